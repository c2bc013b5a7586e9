// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "core/DatabaseReader.hpp"
#include "support/Failure.hpp"
#include "support/NoTask.hpp"
#include "support/SystemFailure.hpp"
#include "support/TemporaryDatabase.hpp"
#include "transfer/FileTransfer.hpp"

namespace tolva {

/// The schema of an object as a person has it who browses the file, its creating statement included.
inline TableSchema browsedSchema(std::filesystem::path const& database, std::string const& name) {
  DatabaseReader reader;
  for (DatabaseObject const& object : reader.open(database, noTask)) {
    if (object.name == name) return reader.schema(object);
  }
  throw DatabaseError("(there is no " + name + ")", -1);
}

/// A database in a folder with the object `name`, whose rows are exported to a file beside it.
struct ExportScene {
  explicit ExportScene(std::string const& sql, std::string const& name = "t")
      : database(folder, "a.db", sql), schema(browsedSchema(database.path(), name)) {}

  std::int64_t run(ExportFormat format, ExportRows const& rows = {}, std::stop_token task = noTask) {
    return transfer.exportRows(
        database.path(), schema, rows, format, destination, [&](std::int64_t done) { told.push_back(done); }, task);
  }

  /// What an export makes of the rows.
  std::string exported(ExportFormat format, ExportRows const& rows = {}) {
    run(format, rows);
    return content();
  }

  std::string content() const { return folder.read(destination.filename()); }

  TemporaryFolder folder;
  TemporaryDatabase const database;
  TableSchema schema;
  std::filesystem::path destination = folder / "out";
  FileTransfer transfer;
  std::vector<std::int64_t> told;  // to the progress
};

inline std::string const twoRows = "CREATE TABLE t(a); INSERT INTO t VALUES (1), (2)";
inline std::string const twoLines = "a\r\n1\r\n2\r\n";  // as CSV

inline DatabaseError failureAt(ExportScene& scene, std::filesystem::path const& destination) {
  scene.destination = destination;
  return failureOf([&] { scene.run(ExportFormat::csv); });
}

inline std::string systemFailureAt(ExportScene& scene, std::filesystem::path const& destination) {
  scene.destination = destination;
  return systemFailureOf([&] { scene.run(ExportFormat::csv); });
}

}  // namespace tolva
