// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <algorithm>
#include <filesystem>
#include <functional>
#include <optional>
#include <stop_token>
#include <string>
#include <vector>

#include "platform/UUID.hpp"
#include "snapshots/SnapshotCapture.hpp"
#include "snapshots/SnapshotRecord.hpp"
#include "snapshots/SnapshotSource.hpp"
#include "snapshots/SnapshotStore.hpp"
#include "support/NoTask.hpp"
#include "support/TemporaryDatabase.hpp"
#include "support/TemporaryFolder.hpp"

namespace tolva {

/// A table of more pages than two steps of a copy take, of which the sum of one column is 0.
inline std::string const manyPages =
    "CREATE TABLE t(a INTEGER, pad); WITH RECURSIVE n(i) AS (SELECT 1 UNION ALL SELECT i + 1 FROM n WHERE i < 600) "
    "INSERT INTO t SELECT 0, zeroblob(4000) FROM n;";

/// Of the direct entries, sorted.
inline std::vector<std::string> namesIn(std::filesystem::path const& folder) {
  std::vector<std::string> names;
  for (auto const& entry : std::filesystem::directory_iterator(folder)) names.push_back(entry.path().filename());
  std::ranges::sort(names);
  return names;
}

/// A database and an empty store for snapshots of it.
struct CaptureScene {
  explicit CaptureScene(std::string const& sql = "CREATE TABLE t(a); INSERT INTO t VALUES (1),(2);")
      : database(folder, "a.db", sql) {
    folder.allowLeftover(".catalog-lock");
  }

  struct With {
    std::optional<std::string> label{};
    SnapshotProgressReport progress{};
    SourceValidation validateSource{};
    std::stop_token task{};
    SnapshotLimits limits{};
  };

  Snapshot capture(With const& with) const {
    StoreLock const lock = store.lockCatalog();
    return captureSnapshot(store, with.limits, {database.path(), with.label, with.progress, with.validateSource},
                           with.task);
  }
  Snapshot capture() const { return capture({}); }

  std::filesystem::path sourceFolder() const { return store.directory(snapshotSource(database.path()).databaseID); }

  std::filesystem::path folderOf(Snapshot const& snapshot) const {
    return store.directory(snapshot.databaseID, snapshot.id);
  }
  std::filesystem::path databaseOf(Snapshot const& snapshot) const { return folderOf(snapshot) / "database.sqlite"; }

  /// The names in the folders of all sources, sorted.
  std::vector<std::string> names() const {
    std::vector<std::string> found;
    if (!std::filesystem::exists(store.root())) return found;
    for (auto const& source : std::filesystem::directory_iterator(store.root())) {
      if (!source.is_directory()) continue;
      for (auto const& entry : std::filesystem::directory_iterator(source)) found.push_back(entry.path().filename());
    }
    std::ranges::sort(found);
    return found;
  }

  /// What a listing would show, in no order.
  std::vector<Snapshot> snapshots() const {
    std::vector<Snapshot> found;
    if (!std::filesystem::exists(store.root())) return found;
    for (auto const& source : std::filesystem::directory_iterator(store.root())) {
      if (!source.is_directory()) continue;
      for (auto const& entry : std::filesystem::directory_iterator(source)) {
        if (UUID::parse(entry.path().filename().string())) found.push_back(readSnapshotRecord(store, entry.path()));
      }
    }
    return found;
  }

  std::vector<std::string> staged() const {
    std::vector<std::string> found = names();
    std::erase_if(found, [](std::string const& name) { return !name.starts_with(".partial-"); });
    return found;
  }

  TemporaryFolder folder;
  TemporaryDatabase const database;
  SnapshotStore const store{folder / "store"};
};

}  // namespace tolva
