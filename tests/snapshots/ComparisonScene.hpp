// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <filesystem>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "platform/UUID.hpp"
#include "snapshots/DatabaseDiffService.hpp"
#include "snapshots/StoreLock.hpp"
#include "support/Environment.hpp"
#include "support/Failure.hpp"
#include "support/NoTask.hpp"
#include "support/TemporaryDatabase.hpp"
#include "support/TemporaryFolder.hpp"

namespace tolva {

using Lease = std::shared_ptr<SnapshotLease const>;

/// Two snapshots that a test has made itself, and a temporary folder to see what a comparison leaves there.
class ComparisonScene {
 public:
  ComparisonScene() {
    std::filesystem::create_directory(folder / "tmp");
    temporary_ = std::make_unique<Environment>("TMPDIR", folder / "tmp");
  }

  /// A hold on the file `name`, as a snapshot of the history `history`.
  Lease lease(std::string const& name, UUID id = UUID::make(), std::string history = std::string(64, 'a')) const {
    StoreLock lock(folder / (name + ".lock"), LockKind::shared);
    Snapshot const record{.id = id, .databaseID = std::move(history)};
    return std::make_shared<SnapshotLease const>(record, folder / name, std::move(lock));
  }

  Lease snapshot(std::string const& name, std::string const& sql) const {
    TemporaryDatabase const made(folder, name, sql);
    return lease(name);
  }

  std::vector<TableDifference> compare(Lease const& before, Lease const& after) {
    return service.compare(before, after, {}, noTask);
  }

  /// Compares two databases that are made with these statements.
  std::vector<TableDifference> compare(std::string const& before, std::string const& after) {
    Lease const older = snapshot("before.db", before);
    Lease const newer = snapshot("after.db", after);
    return compare(older, newer);
  }

  /// Makes both with the statements of `common` first.
  std::vector<TableDifference> compareWith(std::string const& common, std::string const& before,
                                           std::string const& after) {
    return compare(common + before, common + after);
  }

  std::vector<DifferenceRow> rows(std::string const& table = "table:t") { return service.rows(table, 0, 100, noTask); }
  std::vector<DifferenceCell> cells(std::int64_t row, std::string const& table = "table:t") {
    return service.cells(table, row, noTask);
  }

  /// What stands in the user's temporary folder.
  std::vector<std::filesystem::path> left() const {
    std::vector<std::filesystem::path> paths;
    std::filesystem::path const own = folder / "tmp" / ("tolva-" + std::to_string(::geteuid()));
    if (!std::filesystem::exists(own)) return paths;
    for (auto const& entry : std::filesystem::directory_iterator(own)) paths.push_back(entry.path());
    return paths;
  }

  TemporaryFolder folder;
  DatabaseDiffService service;

 private:
  std::unique_ptr<Environment> temporary_;
};

/// "table:t Compared 1 2 3" for each, one a line.
inline std::string summaryOf(std::vector<TableDifference> const& differences) {
  std::string text;
  for (TableDifference const& difference : differences) {
    text += difference.id() + " " + difference.status + " " + std::to_string(difference.inserted) + " " +
            std::to_string(difference.updated) + " " + std::to_string(difference.deleted) + "\n";
  }
  return text;
}

}  // namespace tolva
