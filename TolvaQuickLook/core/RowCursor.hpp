// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <span>

#include "core/DatabaseRow.hpp"
#include "core/SQLiteStatement.hpp"
#include "core/TableQueryBuilder.hpp"

namespace tolva {

/// The rows of a statement that selects a schema's columns and then its identity, as `selectList` names them. Used in
/// the turn of the connection's service; the schema outlives it.
///
/// Preparing takes at most `MemoryBudget::ordinary`, which a view can be made to exceed; what the rows take is theirs.
/// Where another process has changed the schema since the connection last read, the first step compiles again, without
/// that bound.
class RowCursor {
 public:
  /// How the identity is read; the columns never are whole.
  enum class Identity {
    marked,  // as the columns are
    asKey,   // as `identityValue` reads it, so that it can be compared with
    wholly,
  };

  RowCursor(SQLiteConnection& connection, BuiltQuery const& query, TableSchema const& schema, Identity identity);

  /// Moves to the next row; false at the end. The first step throws where the schema is stale.
  bool step();

  /// The statement at the current row, for who reads its columns in place.
  SQLiteStatement const& statement() const { return statement_; }

  /// The current row. A text of its identity that is no valid Unicode is deferred: repaired, it could be another row's.
  DatabaseRow row() const;

  /// Fails with "no such column" where a name of the schema is gone: SQLite takes it for a string and makes rows up,
  /// or for the rowid.
  /// True of the schema under which the statement was compiled, for the last time in its first step.
  void requireColumns() const;

  /// Begins again with the columns of `source`'s current row as parameters: exactly what is stored, invalid texts and
  /// whole blobs included.
  void restart(SQLiteStatement const& source);

  /// Begins again with `parameters`, in another transaction perhaps: where the schema has changed meanwhile, the
  /// columns are looked for anew.
  void restart(std::span<SQLiteValue const> parameters);

 private:
  void requireColumnsAnew();
  SQLiteValue key(int column) const;
  bool hasColumn(std::string const& name) const;

  SQLiteStatement statement_;
  TableSchema const& schema_;
  int const columns_;
  int const keys_;
  Identity const identity_;
  bool hasStepped_ = false;
  int foundAt_ = -1;  // how often the statement had been compiled anew when its columns were found
};

/// A statement prepared within `MemoryBudget::ordinary`.
SQLiteStatement prepareWithinBudget(SQLiteConnection& connection, BuiltQuery const& query);

}  // namespace tolva
