// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <stop_token>
#include <string>

#include "core/ComparisonIdentity.hpp"
#include "core/SQLiteConnection.hpp"
#include "platform/Export.hpp"

/// Decides whether the rows of two versions of a table can be matched, which takes more than naming a row of one: a
/// declared primary key that holds no NULL and compares by a collation of SQLite's own. A rowid is not trusted.
namespace tolva::RowIdentityResolver {

/// The identity of `table` in the attached schema `database`, "main" for one. Throws `DatabaseError` and says why if
/// there is none; a table of more than 200 columns, or with a key of more than 16, has none. Called in the turn of the
/// connection's service; `task` is checked between columns.
TOLVA_EXPORT ComparisonIdentity resolve(SQLiteConnection& connection, std::string const& database,
                                        std::string const& table, std::stop_token task);

}  // namespace tolva::RowIdentityResolver
