// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "core/DatabaseRow.hpp"
#include "core/SQLiteStatement.hpp"
#include "core/TableQueryBuilder.hpp"

namespace tolva {

/// The rows of a statement that selects a schema's columns and then its identity. Used in the turn of the connection's
/// service.
///
/// Preparing takes at most `MemoryBudget::ordinary`, which a view can be made to exceed; what the rows take is theirs.
class RowCursor {
 public:
  /// How the identity is read; the columns never are whole.
  enum class Identity {
    marked,  // as the columns are
    asKey,   // blobs up to 65,536 bytes whole, so that they can be compared with
    wholly,
  };

  RowCursor(SQLiteConnection& connection, BuiltQuery const& query, TableSchema const& schema, Identity identity);

  bool step() { return statement_.step(); }

  /// The current row.
  DatabaseRow row() const;

  /// Whether the current row's identity, given as `row` read it, is what is stored and not a repaired text.
  bool hasExactly(std::vector<SQLiteValue> const& identity) const;

  /// For a statement that runs more than once.
  SQLiteStatement& statement() { return statement_; }

 private:
  void readBlobs(std::vector<SQLiteValue>& identity) const;

  SQLiteStatement statement_;
  int const columns_;
  int const keys_;
  Identity const identity_;
};

/// A statement prepared within `MemoryBudget::ordinary`.
SQLiteStatement prepareWithinBudget(SQLiteConnection& connection, BuiltQuery const& query);

}  // namespace tolva
