// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <compare>
#include <map>
#include <stop_token>
#include <string>

#include "core/SQLiteConnection.hpp"

namespace tolva {

/// What tells a schema object from others: its kind and name as shown, and as they are stored. Two names that are no
/// text of their encoding can look alike. A value; ordered by what is shown.
struct SchemaKey {
  std::string text;   // "table:t"
  std::string bytes;  // in the encoding of the database

  auto operator<=>(SchemaKey const&) const = default;
};

/// A schema object of a snapshot. A value.
struct SchemaObject {
  std::string kind;  // these three as shown
  std::string name;
  std::string sql;
  std::string table;       // the name as SQLite knows it: up to a NUL, and with whatever is no UTF-8
  std::string definition;  // the bytes of `sql` as they are stored
};

/// All objects of an attached database but SQLite's own, at most 4,096 and 4 MiB. In the turn of the connection's
/// service, within its budget of memory; `task` is checked between objects.
std::map<SchemaKey, SchemaObject> readSchemaObjects(SQLiteConnection& connection, std::string const& database,
                                                    std::stop_token task);

}  // namespace tolva
