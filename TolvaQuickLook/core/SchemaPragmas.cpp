// SPDX-License-Identifier: Apache-2.0
#include "core/SchemaPragmas.hpp"

#include <algorithm>
#include <optional>

#include "core/KeptText.hpp"
#include "core/SQLIdentifier.hpp"
#include "core/SQLiteStatement.hpp"
#include "core/TablePragmas.hpp"
#include "platform/ASCIICase.hpp"
#include "platform/DoubleText.hpp"

namespace tolva {
namespace {

std::vector<DatabaseColumn> readColumns(SQLiteConnection& connection, std::string const& object) {
  SQLiteStatement row = connection.prepare("PRAGMA table_xinfo(" + quoteIdentifier(object) + ")");
  std::vector<DatabaseColumn> columns;
  while (row.step()) {
    SQLiteValue const hidden = row.value(6, /*full=*/false);
    if (hidden == SQLiteValue(1)) continue;  // a hidden column of a virtual table
    SQLiteValue const defaultSQL = row.value(4, /*full=*/false);
    columns.push_back({.name = keptText(row, 1),
                       .type = keptText(row, 2),
                       .required = isOne(row, 3),
                       .primaryKey = integerFromText(keptText(row, 5)).value_or(0),
                       .defaultSQL = defaultSQL.isNull() ? std::nullopt : std::optional(keptText(row, 4)),
                       .generated = hidden != SQLiteValue(0)});
  }
  return columns;
}

/// Whether the table that `sql` makes is STRICT, which a database tells where it is alone. A table that cannot be made
/// there, for lack of a function or a collation of the application that wrote it, counts as none.
bool makesStrict(std::string const& sql, std::string const& table) try {
  auto const scratch = SQLiteConnection::open({}, {.readOnly = false, .inMemory = true});
  scratch->execute(sql);
  auto const listed = listTables(*scratch, "main", table);
  return listed && !listed->empty() && listed->front().strict;
} catch (DatabaseError const&) {
  return false;
}

/// The flags of an ordinary table, read without the list. A view has none; of a virtual table they cannot be had.
void readFlagsAlone(SQLiteConnection& connection, TableSchema& schema) {
  std::string const& table = schema.object.name;
  SQLiteStatement row = connection.prepare("SELECT sql FROM sqlite_schema WHERE type = ? AND name = ? AND rootpage > 0",
                                           {"table", table});
  if (!row.step()) return;
  // The name of a WITHOUT ROWID table stands for its key in this pragma, that of any other table for nothing.
  schema.withoutRowID = connection.prepare("PRAGMA index_xinfo(" + quoteIdentifier(table) + ")").step();
  schema.strict = makesStrict(row.value(0, /*full=*/true).display(), table);
}

/// The list is not narrowed to a schema: if a name stands in several, the last one counts.
void readFlags(SQLiteConnection& connection, TableSchema& schema) {
  auto const tables = listTables(connection, {}, schema.object.name);
  if (!tables) return readFlagsAlone(connection, schema);
  for (ListedTable const& listed : *tables) {
    if (listed.name != SQLiteValue(schema.object.name)) continue;
    schema.withoutRowID = listed.withoutRowID;
    schema.strict = listed.strict;
  }
}

/// The first of the rowid's names that no column bears.
std::vector<std::string> rowidName(TableSchema const& schema) {
  for (char const* const name : {"rowid", "_rowid_", "oid"}) {
    auto const bears = [&](DatabaseColumn const& column) { return lowerASCII(column.name) == name; };
    if (std::ranges::none_of(schema.columns, bears)) return {name};
  }
  return {};
}

/// A single key column is an alias of the rowid if its type is exactly INTEGER and it has no index of its own, which an
/// `INTEGER PRIMARY KEY DESC` has.
std::vector<std::string> rowIdentity(SQLiteConnection& connection, TableSchema const& schema) {
  if (schema.object.kind != "table") return {};
  std::vector<DatabaseColumn> const key = keyColumns(schema.columns);
  if (schema.withoutRowID) return namesOf(key);
  bool const hasIndex = keyIndex(connection, {}, schema.object.name).has_value();
  bool const alias = key.size() == 1 && upperASCII(key.front().type) == "INTEGER" && !hasIndex;
  return alias ? namesOf(key) : rowidName(schema);
}

std::string indexColumns(SQLiteConnection& connection, std::string const& index) {
  SQLiteStatement row = connection.prepare("PRAGMA index_xinfo(" + quoteIdentifier(index) + ")");
  std::string columns;
  for (bool first = true; row.step(); first = false) columns += (first ? "" : ", ") + keptText(row, 2);
  return columns;
}

std::vector<StructureDetails::Row> readIndexes(SQLiteConnection& connection, std::string const& table) {
  SQLiteStatement row = connection.prepare("PRAGMA index_list(" + quoteIdentifier(table) + ")");
  std::vector<StructureDetails::Row> indexes;
  while (row.step()) {
    std::string const name = keptText(row, 1);
    indexes.push_back({name, isOne(row, 2) ? "Unique" : "", indexColumns(connection, name)});
  }
  return indexes;
}

std::vector<StructureDetails::Row> readForeignKeys(SQLiteConnection& connection, std::string const& table) {
  SQLiteStatement row = connection.prepare("PRAGMA foreign_key_list(" + quoteIdentifier(table) + ")");
  std::vector<StructureDetails::Row> keys;
  while (row.step()) {
    keys.push_back({keptText(row, 3), keptText(row, 2) + "." + keptText(row, 4),
                    "Update: " + keptText(row, 5) + " · Delete: " + keptText(row, 6)});
  }
  return keys;
}

std::vector<StructureDetails::Row> readTriggers(SQLiteConnection& connection, std::string const& table) {
  SQLiteStatement row = connection.prepare(
      "SELECT name, sql FROM sqlite_schema WHERE type = ? AND tbl_name = ? ORDER BY name", {"trigger", table});
  std::vector<StructureDetails::Row> triggers;
  while (row.step()) {
    triggers.push_back({keptText(row, 0), keptText(row, 1)});
  }
  return triggers;
}

}  // namespace

TableSchema readSchema(SQLiteConnection& connection, DatabaseObject const& object) {
  TableSchema schema{.object = object, .columns = readColumns(connection, object.name)};
  readFlags(connection, schema);
  schema.identity = rowIdentity(connection, schema);
  return schema;
}

StructureDetails readStructure(SQLiteConnection& connection, std::string const& table) {
  return {.indexes = readIndexes(connection, table),
          .foreignKeys = readForeignKeys(connection, table),
          .triggers = readTriggers(connection, table)};
}

}  // namespace tolva
