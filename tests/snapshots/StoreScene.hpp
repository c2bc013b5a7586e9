// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <sys/stat.h>

#include <chrono>
#include <filesystem>
#include <optional>
#include <string>
#include <vector>

#include "platform/DurableFolder.hpp"
#include "snapshots/SnapshotRecord.hpp"
#include "snapshots/SnapshotService.hpp"
#include "snapshots/SnapshotSource.hpp"
#include "snapshots/SnapshotStore.hpp"
#include "support/NoTask.hpp"
#include "support/TemporaryDatabase.hpp"
#include "support/TemporaryFolder.hpp"

namespace tolva {

/// A database, a store and its service in one folder, with snapshots as the test wants them.
struct StoreScene {
  TemporaryFolder folder;
  TemporaryDatabase const database;
  SnapshotStore const store;
  SnapshotService service;

  explicit StoreScene(std::string const& sql = "CREATE TABLE t(a); INSERT INTO t VALUES (1)")
      : database(folder, "live.sqlite", sql), store(folder / "store"), service(folder / "store") {
    folder.allowLeftover(".catalog-lock");
    folder.allowLeftover(".lease");
  }

  std::string databaseID() const { return snapshotSource(database.path()).databaseID; }
  std::filesystem::path databaseFolder() const { return store.root() / databaseID(); }
  std::filesystem::path folderOf(Snapshot const& snapshot) const {
    return store.root() / snapshot.databaseID / snapshot.id.text();
  }

  /// A whole snapshot of the database that was complete `seconds` after the epoch of the records, 2001.
  Snapshot plant(std::optional<std::string> const& label, int seconds = 0) const {
    SnapshotSource const source = snapshotSource(database.path());
    Snapshot snapshot;
    snapshot.id = UUID::make();
    snapshot.databaseID = source.databaseID;
    snapshot.sourcePath = source.path;
    snapshot.sourceIdentity = source.sourceIdentity;
    snapshot.started = snapshot.timestamp = at(seconds);
    snapshot.label = label;
    snapshot.size = static_cast<std::int64_t>(std::filesystem::file_size(database.path()));
    snapshot.sqliteVersion = "3.40.1";
    snapshot.journalMode = "delete";
    snapshot.pageSize = 4096;
    makeDurableFolder(folderOf(snapshot));
    std::filesystem::copy_file(database.path(), folderOf(snapshot) / "database.sqlite");
    ::chmod((folderOf(snapshot) / "database.sqlite").c_str(), 0400);
    return writeSnapshotRecord(store, folderOf(snapshot), snapshot);
  }

  static std::chrono::system_clock::time_point at(int seconds) {
    return std::chrono::sys_days(std::chrono::year(2001) / 1 / 1) + std::chrono::seconds(seconds);
  }

  std::vector<Snapshot> history() { return service.history(database.path(), noTask); }

  /// The labels of the history, newest first, "-" for none.
  std::string labels() {
    std::string labels;
    for (Snapshot const& snapshot : history()) labels += (labels.empty() ? "" : " ") + snapshot.label.value_or("-");
    return labels;
  }

  /// The names in the folder of the database that begin with a dot.
  std::vector<std::string> hidden() const {
    std::vector<std::string> hidden;
    if (!std::filesystem::exists(databaseFolder())) return hidden;
    for (auto const& entry : std::filesystem::recursive_directory_iterator(databaseFolder())) {
      std::string const name = entry.path().filename();
      if (name.starts_with('.') && name != ".lease") hidden.push_back(name);
    }
    return hidden;
  }
};

}  // namespace tolva
