// SPDX-License-Identifier: Apache-2.0
#include "core/TablePragmas.hpp"

#include <algorithm>
#include <chrono>
#include <iterator>

#include "core/MemoryBudget.hpp"
#include "core/SQLIdentifier.hpp"
#include "platform/ASCIICase.hpp"

namespace tolva {
namespace {

using namespace std::chrono_literals;

// What resolving the views of a file may take.
constexpr std::int64_t resolvingMemory = std::int64_t{64} << 20;
constexpr auto resolvingTime = 50ms;

SQLiteStatement pragma(SQLiteConnection& connection, std::string const& database, char const* call,
                       std::string const& of) {
  std::string const prefix = database.empty() ? "" : quoteIdentifier(database) + ".";
  return connection.prepare("PRAGMA " + prefix + call + "(" + quoteIdentifier(of) + ")");
}

std::string shown(SQLiteStatement const& row, int column) { return row.value(column, /*full=*/false).display(); }

std::vector<ListedTable> readList(SQLiteStatement row) {
  std::vector<ListedTable> tables;
  while (row.step()) {
    tables.push_back({.name = row.value(1, /*full=*/false),
                      .type = row.value(2, /*full=*/false),
                      .withoutRowID = isOne(row, 4),
                      .strict = isOne(row, 5)});
  }
  return tables;
}

}  // namespace

std::optional<std::vector<ListedTable>> listTables(SQLiteConnection& connection, std::string const& database,
                                                   std::string const& table) {
  MemoryBudget const budget(resolvingMemory, uptime() + resolvingTime);
  try {
    return readList(pragma(connection, database, "table_list", table));
  } catch (DatabaseError const&) {
    if (!budget.spent()) throw;
    return std::nullopt;
  }
}

std::optional<std::string> keyIndex(SQLiteConnection& connection, std::string const& database,
                                    std::string const& table) {
  SQLiteStatement row = pragma(connection, database, "index_list", table);
  std::optional<std::string> name;
  while (row.step()) {
    if (row.value(3, /*full=*/false) == SQLiteValue("pk")) name = shown(row, 1);
  }
  return name;
}

bool hasIndexBesideKey(SQLiteConnection& connection, std::string const& database, std::string const& table) {
  SQLiteStatement row = pragma(connection, database, "index_list", table);
  while (row.step()) {
    if (row.value(3, /*full=*/false) != SQLiteValue("pk")) return true;
  }
  return false;
}

std::map<std::string, std::set<std::string>> keyCollations(SQLiteConnection& connection, std::string const& database,
                                                           std::string const& index) {
  SQLiteStatement row = pragma(connection, database, "index_xinfo", index);
  std::map<std::string, std::set<std::string>> collations;
  while (row.step()) {
    if (isOne(row, 5)) collations[shown(row, 2)].insert(upperASCII(shown(row, 4)));
  }
  return collations;
}

bool isOne(SQLiteStatement const& row, int column) { return row.value(column, /*full=*/false) == SQLiteValue(1); }

std::vector<DatabaseColumn> keyColumns(std::vector<DatabaseColumn> const& columns) {
  std::vector<DatabaseColumn> key;
  std::ranges::copy_if(columns, std::back_inserter(key), [](auto const& column) { return column.primaryKey > 0; });
  std::ranges::stable_sort(key, {}, &DatabaseColumn::primaryKey);
  return key;
}

std::vector<std::string> namesOf(std::vector<DatabaseColumn> const& columns) {
  std::vector<std::string> names;
  std::ranges::transform(columns, std::back_inserter(names), &DatabaseColumn::name);
  return names;
}

}  // namespace tolva
