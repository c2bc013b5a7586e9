// SPDX-License-Identifier: Apache-2.0
#include "core/RowIdentityResolver.hpp"

#include <algorithm>
#include <array>
#include <cstdint>
#include <map>
#include <optional>
#include <string_view>
#include <vector>

#include "core/SQLIdentifier.hpp"
#include "core/SQLiteStatement.hpp"
#include "core/ViewsDisabled.hpp"
#include "platform/ASCIICase.hpp"
#include "platform/TaskCancellation.hpp"

namespace tolva {
namespace {

constexpr std::size_t mostColumns = 200;
constexpr char tooManyColumns[] = "Row comparison is limited to 200 columns per table.";
constexpr std::size_t mostKeyColumns = 16;
constexpr char tooManyKeyColumns[] = "Comparison keys are limited to 16 columns.";

constexpr std::array<std::string_view, 3> knownCollations{"BINARY", "NOCASE", "RTRIM"};

struct Column {
  std::string name;
  std::string type;  // in upper case
  bool required;
  std::int64_t key;  // position in the primary key, from 1; 0 if not part of it
};

struct Flags {
  bool withoutRowID;
  bool strict;
};

/// One attached schema, asked through pragmas.
struct Schema {
  SQLiteConnection& connection;
  std::string const database;  // quoted

  SQLiteStatement pragma(char const* call, std::string const& of) const {
    return connection.prepare("PRAGMA " + database + call + quoteIdentifier(of) + ")");
  }
};

bool isOne(SQLiteStatement const& row, int column) { return row.value(column, /*full=*/false) == SQLiteValue(1); }

std::string shown(SQLiteStatement const& row, int column) { return row.value(column, /*full=*/false).display(); }

Flags readFlags(Schema const& of, std::string const& table) {
  ViewsDisabled const disabled(of.connection);
  SQLiteStatement row = of.pragma(".table_list(", table);
  if (!row.step() || row.value(2, /*full=*/false) != SQLiteValue("table")) {
    throw DatabaseError("Views, virtual tables and shadow tables are not row-compared.");
  }
  return {.withoutRowID = isOne(row, 4), .strict = isOne(row, 5)};
}

std::vector<Column> readColumns(Schema const& of, std::string const& table, std::stop_token const& task) {
  SQLiteStatement row = of.pragma(".table_xinfo(", table);
  std::vector<Column> columns;
  while (row.step()) {
    checkCancellation(task);
    if (columns.size() == mostColumns) throw DatabaseError(tooManyColumns);
    SQLiteValue const name = row.value(1, /*full=*/false);
    SQLiteValue const key = row.value(5, /*full=*/false);
    if (!name.asText() || !key.asInteger()) throw DatabaseError("Unsupported column metadata.");
    columns.push_back({.name = *name.asText(),
                       .type = upperASCII(shown(row, 2)),
                       .required = isOne(row, 3),
                       .key = *key.asInteger()});
  }
  return columns;
}

std::vector<Column> keyOf(std::vector<Column> const& columns) {
  std::vector<Column> key;
  std::ranges::copy_if(columns, std::back_inserter(key), [](Column const& column) { return column.key > 0; });
  std::ranges::stable_sort(key, {}, &Column::key);
  if (key.empty()) {
    throw DatabaseError("No declared primary key. Rowid/fingerprint matching could misidentify changed rows.");
  }
  if (key.size() > mostKeyColumns) throw DatabaseError(tooManyKeyColumns);
  return key;
}

/// The index of the primary key; an alias of the rowid needs none.
std::optional<std::string> keyIndex(Schema const& of, std::string const& table) {
  SQLiteStatement row = of.pragma(".index_list(", table);
  std::optional<std::string> name;
  while (row.step()) {
    if (row.value(3, /*full=*/false) == SQLiteValue("pk")) name = shown(row, 1);
  }
  return name;
}

/// In an ordinary table a primary key lets NULL in, any number of times, unless its columns are declared NOT NULL.
void refuseNull(std::vector<Column> const& key, Flags flags, bool hasIndex) {
  bool const alias = key.size() == 1 && key.front().type == "INTEGER" && !hasIndex;
  if (alias || flags.withoutRowID || flags.strict || std::ranges::all_of(key, &Column::required)) return;
  throw DatabaseError("The declared primary key permits NULL; reliable row matching is unavailable.");
}

std::vector<std::string> collationsOf(std::vector<Column> const& key, Schema const& of, std::string const& index) {
  SQLiteStatement row = of.pragma(".index_xinfo(", index);
  std::map<std::string, std::string> found;  // by column name
  while (row.step()) {
    if (isOne(row, 5)) found[shown(row, 2)] = upperASCII(shown(row, 4));
  }
  std::vector<std::string> collations;
  for (Column const& column : key) {
    auto const collation = found.find(column.name);
    if (collation == found.end() || std::ranges::find(knownCollations, collation->second) == knownCollations.end()) {
      throw DatabaseError("The primary key requires an unsupported collation.");
    }
    collations.push_back(collation->second);
  }
  return collations;
}

std::vector<std::string> namesOf(std::vector<Column> const& columns) {
  std::vector<std::string> names;
  std::ranges::transform(columns, std::back_inserter(names), &Column::name);
  return names;
}

}  // namespace

ComparisonIdentity RowIdentityResolver::resolve(SQLiteConnection& connection, std::string const& database,
                                                std::string const& table, std::stop_token task) {
  Schema const of{connection, quoteIdentifier(database)};
  Flags const flags = readFlags(of, table);
  std::vector<Column> const columns = readColumns(of, table, task);
  std::vector<Column> const key = keyOf(columns);
  std::optional<std::string> const index = keyIndex(of, table);
  refuseNull(key, flags, index.has_value());
  std::vector<std::string> collations(key.size(), "BINARY");
  if (index) collations = collationsOf(key, of, *index);
  return {.columns = namesOf(key), .collations = std::move(collations), .allColumns = namesOf(columns)};
}

}  // namespace tolva
