// SPDX-License-Identifier: Apache-2.0
#include "core/RowIdentityResolver.hpp"

#include <algorithm>
#include <array>
#include <cstdint>
#include <optional>
#include <string_view>
#include <vector>

#include "core/Limit.hpp"
#include "core/SQLIdentifier.hpp"
#include "core/SQLiteStatement.hpp"
#include "core/TablePragmas.hpp"
#include "platform/ASCIICase.hpp"
#include "platform/TaskCancellation.hpp"

namespace tolva {
namespace {

constexpr Limit tableColumns{200, "Row comparison is limited to 200 columns per table."};
constexpr Limit keyLength{16, "Comparison keys are limited to 16 columns."};

constexpr std::int64_t mostListed = 4000;  // objects of a schema with views

constexpr std::array<std::string_view, 3> knownCollations{"BINARY", "NOCASE", "RTRIM"};

/// One attached schema.
struct Schema {
  SQLiteConnection& connection;
  std::string const& database;

  /// Whether the list of one table can take long without asking for the memory by which it is bounded: it walks through
  /// all tables again, for each of them, while there is a view that cannot be resolved.
  bool isTooLargeToList() const {
    std::string const from = "SELECT 1 FROM " + quoteIdentifier(database) + ".sqlite_schema ";
    return connection.prepare(from + "LIMIT 1 OFFSET ?", {mostListed}).step() &&
           connection.prepare(from + "WHERE type = 'view' OR rootpage = 0 LIMIT 1").step();
  }

  /// Whether it declares an ordinary table of that name, in whatever case, or else a virtual one.
  bool declares(std::string const& table, bool ordinary) const {
    return connection
        .prepare("SELECT 1 FROM " + quoteIdentifier(database) +
                     ".sqlite_schema WHERE type = 'table' AND name = ? COLLATE NOCASE AND (rootpage > 0) IS ?",
                 {table, ordinary ? 1 : 0})
        .step();
  }
};

std::string shown(SQLiteStatement const& row, int column) { return row.value(column, /*full=*/false).display(); }

/// Shadow tables are named after their virtual table, with an underscore and more behind it.
bool mayBeShadow(Schema const& of, std::string const& table) {
  std::size_t const underscore = table.rfind('_');
  return underscore != table.npos && of.declares(table.substr(0, underscore), /*ordinary=*/false);
}

/// The table as it is listed. Where listing takes too much, a table that is not refused has no flags: SQLite tells the
/// columns of a key that lets no NULL in for it as NOT NULL.
ListedTable ordinaryTable(Schema const& of, std::string const& table) {
  std::optional<std::vector<ListedTable>> const tables =
      of.isTooLargeToList() ? std::nullopt : listTables(of.connection, of.database, table);
  bool const ordinary = tables ? !tables->empty() && tables->front().type == SQLiteValue("table")
                               : of.declares(table, /*ordinary=*/true) && !mayBeShadow(of, table);
  if (!ordinary) throw DatabaseError("Views, virtual tables and shadow tables are not row-compared.");
  return tables ? tables->front() : ListedTable{};
}

/// All of them, hidden ones too. Their types are in upper case.
std::vector<DatabaseColumn> readColumns(Schema const& of, std::string const& table, std::stop_token const& task) {
  SQLiteStatement row =
      of.connection.prepare("PRAGMA " + quoteIdentifier(of.database) + ".table_xinfo(" + quoteIdentifier(table) + ")");
  std::vector<DatabaseColumn> columns;
  while (row.step()) {
    checkCancellation(task);
    tableColumns.check(static_cast<std::int64_t>(columns.size()) + 1);
    SQLiteValue const name = row.value(1, /*full=*/false);
    SQLiteValue const key = row.value(5, /*full=*/false);
    if (!name.asText() || !key.asInteger()) throw DatabaseError("Unsupported column metadata.");
    columns.push_back({.name = *name.asText(),
                       .type = upperASCII(shown(row, 2)),
                       .required = isOne(row, 3),
                       .primaryKey = *key.asInteger()});
  }
  return columns;
}

std::vector<DatabaseColumn> declaredKey(std::vector<DatabaseColumn> const& columns) {
  std::vector<DatabaseColumn> key = keyColumns(columns);
  if (key.empty()) {
    throw DatabaseError("No declared primary key. Rowid/fingerprint matching could misidentify changed rows.");
  }
  keyLength.check(static_cast<std::int64_t>(key.size()));
  return key;
}

/// In an ordinary table a primary key lets NULL in, any number of times, unless its columns are declared NOT NULL.
void refuseNull(std::vector<DatabaseColumn> const& key, ListedTable const& table, bool hasIndex) {
  bool const alias = key.size() == 1 && key.front().type == "INTEGER" && !hasIndex;
  bool const required = std::ranges::all_of(key, &DatabaseColumn::required);
  if (alias || table.withoutRowID || table.strict || required) return;
  throw DatabaseError("The declared primary key permits NULL; reliable row matching is unavailable.");
}

/// A column that the key holds by two collations has no single one.
std::vector<std::string> collationsOf(std::vector<DatabaseColumn> const& key, Schema const& of,
                                      std::string const& index) {
  auto const held = keyCollations(of.connection, of.database, index);
  std::vector<std::string> collations;
  for (DatabaseColumn const& column : key) {
    auto const found = held.find(column.name);
    bool const isSingle = found != held.end() && found->second.size() == 1;
    if (!isSingle || std::ranges::find(knownCollations, *found->second.begin()) == knownCollations.end()) {
      throw DatabaseError("The primary key requires an unsupported collation.");
    }
    collations.push_back(*found->second.begin());
  }
  return collations;
}

}  // namespace

ComparisonIdentity RowIdentityResolver::resolve(SQLiteConnection& connection, std::string const& database,
                                                std::string const& table, std::stop_token task) {
  Schema const of{connection, database};
  ListedTable const listed = ordinaryTable(of, table);
  std::vector<DatabaseColumn> const columns = readColumns(of, table, task);
  std::vector<DatabaseColumn> const key = declaredKey(columns);
  std::optional<std::string> const index = keyIndex(connection, database, table);
  refuseNull(key, listed, index.has_value());
  std::vector<std::string> collations(key.size(), "BINARY");
  if (index) collations = collationsOf(key, of, *index);
  return {.columns = namesOf(key), .collations = std::move(collations), .allColumns = namesOf(columns)};
}

}  // namespace tolva
