// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdint>
#include <filesystem>
#include <optional>
#include <string>
#include <vector>

#include "core/FileObservation.hpp"

namespace tolva {

/// What a database makes use of. A value.
struct DatabaseCapabilities {
  std::optional<bool> hasForeignKeys;   // absent: none was seen, but not all tables were looked at
  std::vector<std::string> ftsModules;  // "FTS3", "FTS4", "FTS5": those that tables use, sorted
  bool inspectionComplete = false;      // all tables were looked at
  bool hasViews = false;
  bool hasTriggers = false;

  bool operator==(DatabaseCapabilities const&) const = default;
};

/// The answer to "Database Info". A value.
struct DatabaseInfo {
  std::filesystem::path databaseURL;
  std::string sqliteVersion;  // of the library, "3.40.1"
  std::string journalMode;    // in upper case: "DELETE", "WAL"
  std::int64_t pageSize = 0;  // bytes
  std::int64_t tables = 0;    // without SQLite's own
  std::int64_t views = 0;
  std::int64_t indexes = 0;  // with those that SQLite makes for a constraint
  std::int64_t triggers = 0;
  FileObservation databaseSize = FileObservation::unavailable();
  FileObservation walSize = FileObservation::unavailable();
  FileObservation shmSize = FileObservation::unavailable();
  bool inspectionReadOnly = false;  // the connection that looked could not write
  DatabaseCapabilities capabilities;

  bool operator==(DatabaseInfo const&) const = default;
};

}  // namespace tolva
