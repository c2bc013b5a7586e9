// SPDX-License-Identifier: Apache-2.0
#include "core/SchemaPragmas.hpp"

#include <algorithm>
#include <array>
#include <string_view>

#include "core/SQLIdentifier.hpp"
#include "core/SQLiteStatement.hpp"
#include "core/ViewsDisabled.hpp"
#include "platform/ASCIICase.hpp"
#include "platform/DoubleText.hpp"

namespace tolva {
namespace {

bool isOne(SQLiteStatement const& row, int column) { return row.value(column, /*full=*/false) == SQLiteValue(1); }

std::string shown(SQLiteStatement const& row, int column) { return row.value(column, /*full=*/false).display(); }

std::vector<DatabaseColumn> readColumns(SQLiteConnection& connection, std::string const& object) {
  SQLiteStatement row = connection.prepare("PRAGMA table_xinfo(" + quoteIdentifier(object) + ")");
  std::vector<DatabaseColumn> columns;
  while (row.step()) {
    SQLiteValue const hidden = row.value(6, /*full=*/false);
    if (hidden == SQLiteValue(1)) continue;  // a hidden column of a virtual table
    SQLiteValue const defaultSQL = row.value(4, /*full=*/false);
    columns.push_back({.name = shown(row, 1),
                       .type = shown(row, 2),
                       .required = isOne(row, 3),
                       .primaryKey = integerFromText(shown(row, 5)).value_or(0),
                       .defaultSQL = defaultSQL.isNull() ? std::nullopt : std::optional(defaultSQL.display()),
                       .generated = hidden != SQLiteValue(0)});
  }
  return columns;
}

/// `table_list` is narrowed to the name, not to a schema: if a name stands in several, the last one read counts.
void readFlags(SQLiteConnection& connection, TableSchema& schema) {
  ViewsDisabled const disabled(connection);
  SQLiteStatement row = connection.prepare("PRAGMA table_list(" + quoteIdentifier(schema.object.name) + ")");
  while (row.step()) {
    if (row.value(1, /*full=*/false) != SQLiteValue(schema.object.name)) continue;
    schema.withoutRowID = isOne(row, 4);
    schema.strict = isOne(row, 5);
  }
}

bool hasKeyIndex(SQLiteConnection& connection, std::string const& table) {
  SQLiteStatement row = connection.prepare("PRAGMA index_list(" + quoteIdentifier(table) + ")");
  bool found = false;
  while (row.step()) found = found || row.value(3, /*full=*/false) == SQLiteValue("pk");
  return found;
}

std::vector<DatabaseColumn> keyColumns(TableSchema const& schema) {
  std::vector<DatabaseColumn> key;
  std::ranges::copy_if(schema.columns, std::back_inserter(key),
                       [](auto const& column) { return column.primaryKey > 0; });
  std::ranges::stable_sort(key, {}, &DatabaseColumn::primaryKey);
  return key;
}

std::vector<std::string> namesOf(std::vector<DatabaseColumn> const& columns) {
  std::vector<std::string> names;
  std::ranges::transform(columns, std::back_inserter(names), &DatabaseColumn::name);
  return names;
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
  std::vector<DatabaseColumn> const key = keyColumns(schema);
  if (schema.withoutRowID) return namesOf(key);
  bool const keyIndex = hasKeyIndex(connection, schema.object.name);
  bool const alias = key.size() == 1 && upperASCII(key.front().type) == "INTEGER" && !keyIndex;
  return alias ? namesOf(key) : rowidName(schema);
}

std::string indexColumns(SQLiteConnection& connection, std::string const& index) {
  SQLiteStatement row = connection.prepare("PRAGMA index_xinfo(" + quoteIdentifier(index) + ")");
  std::string columns;
  for (bool first = true; row.step(); first = false) columns += (first ? "" : ", ") + shown(row, 2);
  return columns;
}

std::vector<StructureDetails::Row> readIndexes(SQLiteConnection& connection, std::string const& table) {
  SQLiteStatement row = connection.prepare("PRAGMA index_list(" + quoteIdentifier(table) + ")");
  std::vector<StructureDetails::Row> indexes;
  while (row.step()) {
    std::string const name = shown(row, 1);
    indexes.push_back({name, isOne(row, 2) ? "Unique" : "", indexColumns(connection, name)});
  }
  return indexes;
}

std::vector<StructureDetails::Row> readForeignKeys(SQLiteConnection& connection, std::string const& table) {
  SQLiteStatement row = connection.prepare("PRAGMA foreign_key_list(" + quoteIdentifier(table) + ")");
  std::vector<StructureDetails::Row> keys;
  while (row.step()) {
    keys.push_back({shown(row, 3), shown(row, 2) + "." + shown(row, 4),
                    "Update: " + shown(row, 5) + " · Delete: " + shown(row, 6)});
  }
  return keys;
}

std::vector<StructureDetails::Row> readTriggers(SQLiteConnection& connection, std::string const& table) {
  SQLiteStatement row = connection.prepare(
      "SELECT name, sql FROM sqlite_schema WHERE type = ? AND tbl_name = ? ORDER BY name", {"trigger", table});
  std::vector<StructureDetails::Row> triggers;
  while (row.step()) {
    StructureDetails::Row& trigger = triggers.emplace_back();
    for (SQLiteValue const& value : row.row(/*full=*/false)) trigger.push_back(value.display());
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
