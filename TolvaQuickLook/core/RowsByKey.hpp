// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <functional>
#include <stop_token>

#include "core/BrowseRequest.hpp"
#include "core/RowSelection.hpp"
#include "core/SQLiteConnection.hpp"
#include "core/TableSchema.hpp"

namespace tolva {

class RowCursor;

/// Reads rows at scattered positions: walks once over the identities in order and looks up the rows that are selected.
/// OFFSET would count from the first row again for each range, and the rows in between would be read whole for nothing.
/// Used in the turn of the connection's service, under a `ReadTransaction`.
class RowsByKey {
 public:
  RowsByKey(SQLiteConnection& connection, TableSchema const& schema, BrowseRequest const& request)
      : connection_(connection), schema_(schema), request_(request) {}

  /// Whether an identity surely leads back to its row, and the walk surely passes the rows in the order of the whole. A
  /// virtual table, which has no root page, finds rows as its module pleases. Rows that the order does not tell apart
  /// stand in another order where only their identities are read, by another index perhaps.
  bool areFound() const;

  /// Calls `take` with each row of a selection that has any, in order. Fails when there is none at a
  /// position, or when its identity is another row's as well.
  void read(RowSelection const& selection, std::function<void(RowCursor const&)> const& take,
            std::stop_token const& task) const;

 private:
  SQLiteConnection& connection_;
  TableSchema const& schema_;
  BrowseRequest const& request_;
};

/// Fails as each reading of selected positions does where there is no row at one of them.
[[noreturn]] void selectedRowsAreGone();

}  // namespace tolva
