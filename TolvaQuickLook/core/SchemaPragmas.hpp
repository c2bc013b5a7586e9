// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <string>

#include "core/StructureDetails.hpp"
#include "core/TableSchema.hpp"

namespace tolva {

class SQLiteConnection;

// What SQLite's pragmas tell of one object (https://sqlite.org/pragma.html), in the records of this system. Called in
// the turn of the connection's service; failures are SQLite's own.

/// Columns, flags and row identity. An object that is not there has no columns.
///
/// A row is named by the key of a WITHOUT ROWID table, by a column that is an alias of the rowid, or else by the first
/// of "rowid", "_rowid_", "oid" that no column bears; by nothing where columns bear all three, and in a view.
TableSchema readSchema(SQLiteConnection& connection, DatabaseObject const& object);

/// Indexes, foreign keys and triggers. All entries of an index are listed, the rowid that ends it as "NULL".
StructureDetails readStructure(SQLiteConnection& connection, std::string const& table);

}  // namespace tolva
