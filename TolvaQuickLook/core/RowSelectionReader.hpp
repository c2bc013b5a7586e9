// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <stop_token>
#include <vector>

#include "core/BrowseRequest.hpp"
#include "core/DatabaseRow.hpp"
#include "core/RowSelection.hpp"
#include "core/SQLiteConnection.hpp"
#include "core/TableSchema.hpp"

namespace tolva {

class RowCursor;

/// Reads the rows at chosen positions, once. Used in the turn of the connection's service, under a `ReadTransaction`.
class RowSelectionReader {
 public:
  RowSelectionReader(SQLiteConnection& connection, TableSchema const& schema, BrowseRequest const& request,
                     std::stop_token task)
      : connection_(connection), schema_(schema), request_(request), task_(std::move(task)) {}

  /// The rows in order. Throws when there is none at one of the positions, or when they exceed 32 MiB.
  std::vector<DatabaseRow> read(RowSelection const& selection);

 private:
  void readRange(RowSelection::Range range);
  std::int64_t readChunk(std::int64_t first, std::int64_t most);
  void add(RowCursor const& cursor);

  SQLiteConnection& connection_;
  TableSchema const& schema_;
  BrowseRequest const& request_;
  std::stop_token const task_;

  std::vector<DatabaseRow> rows_;
  std::int64_t memorySize_ = 0;  // of the rows
};

}  // namespace tolva
