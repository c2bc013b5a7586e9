// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <map>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include "core/SQLiteStatement.hpp"
#include "core/TableSchema.hpp"

namespace tolva {

// What those who read the pragmas of one table (https://sqlite.org/pragma.html) have in common. Called in the turn of
// the connection's service; failures are SQLite's own.

/// A row of `PRAGMA table_list`. A value.
struct ListedTable {
  SQLiteValue name;  // as it was declared
  SQLiteValue type;  // "table", "view", "virtual" or "shadow"
  bool withoutRowID;
  bool strict;
};

/// The tables and views of that name, in whatever case, in `database`; in all attached ones where that is empty.
///
/// Nothing where it takes too much: the pragma begins with resolving all views of the file, again from the start for
/// each object while one of them cannot be resolved, which takes minutes in a hostile file. What it has resolved stays
/// so.
std::optional<std::vector<ListedTable>> listTables(SQLiteConnection& connection, std::string const& database,
                                                   std::string const& table);

/// The index of the primary key; an alias of the rowid needs none. `database` is as above.
std::optional<std::string> keyIndex(SQLiteConnection& connection, std::string const& database,
                                    std::string const& table);

/// Whether the table has any other index. `database` is as above.
bool hasIndexBesideKey(SQLiteConnection& connection, std::string const& database, std::string const& table);

/// The collations, in upper case, by which an index holds each column of its key: one, unless the key names the column
/// twice.
std::map<std::string, std::set<std::string>> keyCollations(SQLiteConnection& connection, std::string const& database,
                                                           std::string const& index);

/// Whether a column of the current row is the integer 1.
bool isOne(SQLiteStatement const& row, int column);

/// The columns of the primary key, in the order of the key.
std::vector<DatabaseColumn> keyColumns(std::vector<DatabaseColumn> const& columns);

std::vector<std::string> namesOf(std::vector<DatabaseColumn> const& columns);

}  // namespace tolva
