// SPDX-License-Identifier: Apache-2.0
#include "core/StoredText.hpp"

#include <sqlite3.h>

#include <cstddef>
#include <cstring>
#include <string_view>

#include "core/SQLiteConnection.hpp"
#include "platform/UTF8.hpp"

namespace tolva {
namespace {

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

bool isReadAsStored(SQLiteStatement const& row, int column) {
  sqlite3_value* const value = sqlite3_column_value(row.handle(), column);
  if (sqlite3_value_type(value) != SQLITE_TEXT) return true;
  return row.connection()->storesUTF8() ? isValidUTF8(utf8(value)) : isValidUTF16(value);
}

}  // namespace tolva
