// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <span>
#include <string>
#include <unordered_map>

#include "core/SQLiteConnection.hpp"
#include "core/SQLiteStatement.hpp"

namespace tolva {

/// The statements of one operation on one table, each compiled once for its text, against the schema that the file has
/// then. Lives in a turn and, where what it runs is guarded, in a write transaction, which keeps that schema; ends
/// before it. Compiling takes at most `MemoryBudget::ordinary`, which a trigger or a view can be made to exceed.
class PreparedStatements {
 public:
  PreparedStatements(SQLiteConnection& connection, std::string const& table) : connection_(connection), table_(table) {}

  /// The statement of `sql` with `values` bound, before its first step. `names`, which it compares, must be columns of
  /// the table, or it throws: SQLite takes a quoted name that is no column for a string, which would guard nothing.
  SQLiteStatement& ready(std::string const& sql, std::span<std::string const> names,
                         std::span<SQLiteValue const> values);

  /// Runs it to its end. A failure names the SQL in square brackets, as that of `SQLiteConnection::execute`.
  void run(std::string const& sql, std::span<std::string const> names, std::span<SQLiteValue const> values);

 private:
  SQLiteStatement& compile(std::string const& sql, std::span<std::string const> names);

  SQLiteConnection& connection_;
  std::string const& table_;
  std::unordered_map<std::string, SQLiteStatement> compiled_;  // by text
};

}  // namespace tolva
