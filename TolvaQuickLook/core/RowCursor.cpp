// SPDX-License-Identifier: Apache-2.0
#include "core/RowCursor.hpp"

#include <sqlite3.h>

#include <cstddef>
#include <cstring>
#include <optional>
#include <string_view>

#include "core/MemoryBudget.hpp"
#include "core/SQLIdentifier.hpp"
#include "platform/UTF8.hpp"

namespace tolva {
namespace {

constexpr std::int64_t wholeKeyLimit = 65'536;  // bytes of a blob

std::string_view utf8(sqlite3_value* value) {
  auto const size = static_cast<std::size_t>(sqlite3_value_bytes(value));
  auto const* const text = reinterpret_cast<char const*>(sqlite3_value_text(value));
  return text ? std::string_view(text, size) : std::string_view();
}

/// Whether each surrogate has its other half. SQLite converts a half on its own into some other character, and drops an
/// odd byte at the end.
bool isValidUTF16(sqlite3_value* value) {
  auto const* const text = static_cast<std::byte const*>(sqlite3_value_text16(value));
  int const size = sqlite3_value_bytes16(value);
  bool awaitsLow = false;
  for (int at = 0; text && at + 1 < size; at += 2) {
    char16_t unit = 0;
    std::memcpy(&unit, text + at, sizeof unit);  // perhaps not aligned
    bool const isLow = unit >= 0xDC00 && unit <= 0xDFFF;
    if (isLow != awaitsLow) return false;
    awaitsLow = unit >= 0xD800 && unit <= 0xDBFF;
  }
  return text && size % 2 == 0 && !awaitsLow;
}

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
      schema_(schema),
      columns_(static_cast<int>(schema.columns.size())),
      keys_(statement_.columnCount() - columns_),
      identity_(identity) {}

bool RowCursor::step() {
  bool const isRow = statement_.step();
  if (!hasStepped_) requireColumns();  // only now is the statement surely compiled under the schema of today
  hasStepped_ = true;
  return isRow;
}

DatabaseRow RowCursor::row() {
  std::vector<std::size_t> const invalid = invalidKeys();  // before the values are read, which may convert them
  DatabaseRow row;
  statement_.append(row.values, 0, columns_, /*full=*/false);
  statement_.append(row.identity, columns_, keys_, identity_ == Identity::wholly);
  if (identity_ == Identity::asKey) readBlobs(row.identity);
  for (std::size_t const key : invalid) {
    std::string const* const repaired = row.identity[key].asText();
    if (repaired) row.identity[key] = LargeText{static_cast<std::int64_t>(repaired->size())};
  }
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

/// The identity's texts that nobody can read as they are stored, by their places in it.
std::vector<std::size_t> RowCursor::invalidKeys() {
  std::vector<std::size_t> invalid;
  if (!schema_.withoutRowID) return invalid;  // a rowid is a number
  for (int key = 0; key < keys_; ++key) {
    sqlite3_value* const value = sqlite3_column_value(statement_.handle(), columns_ + key);
    if (sqlite3_value_type(value) != SQLITE_TEXT) continue;
    if (!(storesUTF8() ? isValidUTF8(utf8(value)) : isValidUTF16(value)))
      invalid.push_back(static_cast<std::size_t>(key));
  }
  return invalid;
}

bool RowCursor::storesUTF8() {
  if (!storesUTF8_) {
    SQLiteStatement encoding = statement_.connection()->prepare("PRAGMA encoding");
    storesUTF8_ = encoding.step() && encoding.value(0, /*full=*/false) == SQLiteValue("UTF-8");
  }
  return *storesUTF8_;
}

/// A column bears its own name, a string the text that it was written as.
void RowCursor::requireColumns() const {
  for (int column = 0; column < columns_ + keys_; ++column) {
    char const* const found = sqlite3_column_name(statement_.handle(), column);
    if (!found) throw statement_.connection()->error(SQLITE_NOMEM);
    if (*found != '"') continue;
    std::string const& name = column < columns_ ? schema_.columns[static_cast<std::size_t>(column)].name
                                                : schema_.identity[static_cast<std::size_t>(column - columns_)];
    if (found == quoteIdentifier(name)) throw DatabaseError("no such column: " + name);
  }
}

void RowCursor::restart(SQLiteStatement const& source) {
  sqlite3_reset(statement_.handle());
  for (int column = 0; column < source.columnCount(); ++column) {
    int const bound =
        sqlite3_bind_value(statement_.handle(), column + 1, sqlite3_column_value(source.handle(), column));
    if (bound != SQLITE_OK) throw statement_.connection()->error(bound);
  }
}

}  // namespace tolva
