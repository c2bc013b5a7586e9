// SPDX-License-Identifier: Apache-2.0
#include "core/PreparedStatements.hpp"

#include <sqlite3.h>

#include <algorithm>

#include "core/MemoryBudget.hpp"
#include "core/SQLIdentifier.hpp"

namespace tolva {
namespace {

constexpr std::size_t mostSelected = 1000;  // columns at a time; SQLite has a limit of 2,000
constexpr std::size_t mostCompiled = 64;    // one operation rarely has more than a few; each takes some kilobytes

/// Fails with "no such column" unless the table has them all. A name behind its table's is never read as a string.
///
/// Preparing alone asks only the schema that the connection remembers. The step compares it with the file's, and reads
/// that anew if another process has changed it; from then on the transaction keeps it as it is.
void requireColumns(SQLiteConnection& connection, std::string const& table, std::span<std::string const> names) {
  std::string const quotedTable = quoteIdentifier(table);
  do {
    auto const some = names.first(std::min(names.size(), mostSelected));
    std::string sql = "SELECT 1";
    for (std::string const& name : some) sql += "," + quotedTable + "." + quoteIdentifier(name);
    connection.prepare(sql + " FROM " + quotedTable + " LIMIT 0").step();
    names = names.subspan(some.size());
  } while (!names.empty());
}

}  // namespace

SQLiteStatement& PreparedStatements::ready(std::string const& sql, std::span<std::string const> names,
                                           std::span<SQLiteValue const> values) {
  auto const known = compiled_.find(sql);
  SQLiteStatement& statement = known == compiled_.end() ? compile(sql, names) : known->second;
  sqlite3_reset(statement.handle());
  sqlite3_clear_bindings(statement.handle());
  statement.bind(values);
  return statement;
}

void PreparedStatements::run(std::string const& sql, std::span<std::string const> names,
                             std::span<SQLiteValue const> values) try {
  SQLiteStatement& statement = ready(sql, names, values);
  while (statement.step()) continue;
} catch (DatabaseError const& error) {
  throw DatabaseError(error.detail + " [" + sql + "]", error.code);
}

SQLiteStatement& PreparedStatements::compile(std::string const& sql, std::span<std::string const> names) {
  MemoryBudget const preparing(MemoryBudget::ordinary);
  requireColumns(connection_, table_, names);
  SQLiteStatement statement(connection_.shared_from_this(), sql);
  if (compiled_.size() == mostCompiled) compiled_.clear();
  return compiled_.emplace(sql, std::move(statement)).first->second;
}

}  // namespace tolva
