// SPDX-License-Identifier: Apache-2.0
// What it takes to take a snapshot into a store in FOLDER, as a whole process: `snapshot FILE FOLDER`.
#include <cstdint>
#include <cstdio>
#include <filesystem>

#include "snapshots/SnapshotService.hpp"

int main(int argc, char** argv) {
  if (argc != 3) return 2;
  std::filesystem::path const root = std::filesystem::path(argv[2]) / "store";
  tolva::SnapshotService service(root);
  tolva::Snapshot const snapshot = service.create(argv[1], {}, {}, {}, {});
  std::printf("%jd bytes\n", static_cast<std::intmax_t>(snapshot.size));
  std::filesystem::remove_all(root);
}
