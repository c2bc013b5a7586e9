// SPDX-License-Identifier: Apache-2.0
#include "core/SchemaPragmas.hpp"

#include <algorithm>
#include <chrono>
#include <iterator>
#include <optional>

#include "core/KeptText.hpp"
#include "core/MemoryBudget.hpp"
#include "core/SQLIdentifier.hpp"
#include "core/SQLiteStatement.hpp"
#include "platform/ASCIICase.hpp"
#include "platform/DoubleText.hpp"

namespace tolva {
namespace {

using namespace std::chrono_literals;

// What resolving the views of a file may take before a table's flags are read otherwise.
constexpr std::int64_t resolvingMemory = std::int64_t{64} << 20;
constexpr auto resolvingTime = 50ms;

bool isOne(SQLiteStatement const& row, int column) { return row.value(column, /*full=*/false) == SQLiteValue(1); }

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

/// `table_list` is narrowed to the name, not to a schema: if a name stands in several, the last one read counts.
void readFlags(SQLiteConnection& connection, TableSchema& schema) {
  SQLiteStatement row = connection.prepare("PRAGMA table_list(" + quoteIdentifier(schema.object.name) + ")");
  while (row.step()) {
    if (row.value(1, /*full=*/false) != SQLiteValue(schema.object.name)) continue;
    schema.withoutRowID = isOne(row, 4);
    schema.strict = isOne(row, 5);
  }
}

/// False where it takes too much. `table_list` begins with resolving all views of the file, again from the start for each
/// object while one of them cannot be resolved: minutes in a hostile file. What it has resolved stays so.
bool readFlagsWithinBudget(SQLiteConnection& connection, TableSchema& schema) {
  MemoryBudget const budget(resolvingMemory, uptime() + resolvingTime);
  try {
    readFlags(connection, schema);
    return true;
  } catch (DatabaseError const&) {
    if (!budget.spent()) throw;
    return false;
  }
}

/// Reads the flags of an ordinary table from an empty copy of it, in a database where it is alone.
void readFlagsOfCopy(SQLiteConnection& connection, TableSchema& schema) {
  SQLiteStatement row = connection.prepare("SELECT sql FROM sqlite_schema WHERE type = ? AND name = ? AND rootpage > 0",
                                           {"table", schema.object.name});
  if (!row.step()) return;  // a view has no flags; of a virtual table they cannot be had
  auto const scratch = SQLiteConnection::open({}, {.readOnly = false, .inMemory = true});
  scratch->execute(row.value(0, /*full=*/true).display());
  readFlags(*scratch, schema);
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
  if (!readFlagsWithinBudget(connection, schema)) readFlagsOfCopy(connection, schema);
  schema.identity = rowIdentity(connection, schema);
  return schema;
}

StructureDetails readStructure(SQLiteConnection& connection, std::string const& table) {
  return {.indexes = readIndexes(connection, table),
          .foreignKeys = readForeignKeys(connection, table),
          .triggers = readTriggers(connection, table)};
}

}  // namespace tolva
