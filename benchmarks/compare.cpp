// SPDX-License-Identifier: Apache-2.0
// What it takes to compare two states of a database, as a whole process: `compare OLDER NEWER FOLDER`. The result store
// lies in FOLDER.
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <memory>

#include "measure.h"
#include "snapshots/DatabaseDiffService.hpp"
#include "snapshots/StoreLock.hpp"

namespace {

/// A hold on a file that nobody deletes.
std::shared_ptr<tolva::SnapshotLease const> leaseOf(char const* file, std::filesystem::path const& folder) {
  tolva::Snapshot snapshot;
  snapshot.id = tolva::UUID::make();
  return std::make_shared<tolva::SnapshotLease>(snapshot, file,
                                                tolva::StoreLock(folder / "lock", tolva::LockKind::shared));
}

}  // namespace

int main(int argc, char** argv) {
  if (argc != 4) return 2;
  keepSecondThread();
  setenv("TMPDIR", argv[3], 1);
  tolva::DatabaseDiffService service;
  for (tolva::TableDifference const& table :
       service.compare(leaseOf(argv[1], argv[3]), leaseOf(argv[2], argv[3]), {}, {})) {
    std::printf("%s: %jd inserted, %jd updated, %jd deleted\n", table.status.c_str(),
                static_cast<std::intmax_t>(table.inserted), static_cast<std::intmax_t>(table.updated),
                static_cast<std::intmax_t>(table.deleted));
  }
}
