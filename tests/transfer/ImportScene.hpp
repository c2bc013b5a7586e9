// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdint>
#include <filesystem>
#include <functional>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "support/NoTask.hpp"
#include "support/TableRows.hpp"
#include "support/TemporaryDatabase.hpp"
#include "support/TemporaryFolder.hpp"
#include "transfer/FileTransfer.hpp"

namespace tolva {

/// A folder with a database, into which files are imported.
struct ImportScene {
  explicit ImportScene(std::string const& sql = "PRAGMA user_version = 1") : database(folder, "a.db", sql) {}

  /// Imports `csv` into the table "t", which is there, or is made for it.
  std::int64_t intoTable(std::string_view csv, CSVOptions const& options = {}) {
    return import(folder.write("in.csv", csv), schemaOf(database.path(), "t"), options);
  }
  std::int64_t intoNew(std::string_view csv, CSVOptions const& options = {}) {
    return import(folder.write("in.csv", csv), {}, options);
  }
  std::int64_t import(std::filesystem::path const& file, std::optional<TableSchema> const& schema,
                      CSVOptions const& options = {}, std::stop_token const& task = noTask) {
    told.clear();
    auto const progress = [&](std::int64_t count) {
      told.push_back(count);
      if (whenTold) whenTold(count);
    };
    return transfer.importCSV(file, database.path(), "t", schema, options, progress, task);
  }

  std::string rows(std::string const& sql = "SELECT * FROM t") const { return database.rows(sql); }
  std::string tables() const { return rows("SELECT sql FROM sqlite_schema"); }

  TemporaryFolder folder;
  TemporaryDatabase const database;
  FileTransfer transfer;
  std::vector<std::int64_t> told;                // what the last import told of its progress
  std::function<void(std::int64_t)> whenTold{};  // called then
};

}  // namespace tolva
