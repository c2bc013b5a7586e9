// SPDX-License-Identifier: Apache-2.0
#include "core/RowCursor.hpp"

#include <optional>

#include "core/MemoryBudget.hpp"

namespace tolva {
namespace {

constexpr std::int64_t wholeKeyLimit = 65'536;  // bytes of a blob

}  // namespace

SQLiteStatement prepareWithinBudget(SQLiteConnection& connection, BuiltQuery const& query) {
  std::optional<MemoryBudget> preparing(MemoryBudget::ordinary);
  SQLiteStatement statement(connection.shared_from_this(), query.sql);
  preparing.reset();
  statement.bind(query.parameters);
  return statement;
}

RowCursor::RowCursor(SQLiteConnection& connection, BuiltQuery const& query, TableSchema const& schema,
                     Identity identity)
    : statement_(prepareWithinBudget(connection, query)),
      columns_(static_cast<int>(schema.columns.size())),
      keys_(statement_.columnCount() - columns_),
      identity_(identity) {}

DatabaseRow RowCursor::row() const {
  DatabaseRow row;
  statement_.append(row.values, 0, columns_, /*full=*/false);
  statement_.append(row.identity, columns_, keys_, identity_ == Identity::wholly);
  if (identity_ == Identity::asKey) readBlobs(row.identity);
  return row;
}

void RowCursor::readBlobs(std::vector<SQLiteValue>& identity) const {
  int column = columns_;
  for (SQLiteValue& value : identity) {
    LargeBlob const* const blob = value.asLargeBlob();
    if (blob && blob->bytes <= wholeKeyLimit) value = statement_.value(column, /*full=*/true);
    ++column;
  }
}

bool RowCursor::hasExactly(std::vector<SQLiteValue> const& identity) const {
  int column = columns_;
  for (SQLiteValue const& value : identity) {
    std::string const* const text = value.asText();
    if (text && !statement_.holds(column, *text)) return false;
    ++column;
  }
  return true;
}

}  // namespace tolva
