// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <string>
#include <vector>

#include "core/DatabaseWriter.hpp"
#include "support/NoTask.hpp"
#include "support/TableRows.hpp"
#include "support/TemporaryDatabase.hpp"

namespace tolva {

/// A database with a writer on it, and the table "t" as a person sees it who has just read it.
struct EditScene {
  explicit EditScene(std::string const& sql, RowValues values = RowValues::asInAPage)
      : database(sql), schema(schemaOf(database.path(), "t")), rows(rowsOf(database.path(), schema, values)) {
    writer.open(database.path());
  }

  std::vector<CellChange> apply(std::vector<CellChange> const& changes) {
    return writer.apply(schema, changes, noTask);
  }
  void deleteRows(std::vector<DatabaseRow> const& deleted) { writer.deleteRows(schema, deleted, noTask); }
  std::string content() const { return database.rows("SELECT * FROM t"); }

  TemporaryDatabase const database;
  TableSchema schema;
  std::vector<DatabaseRow> rows;
  DatabaseWriter writer;
};

}  // namespace tolva
