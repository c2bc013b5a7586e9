// SPDX-License-Identifier: Apache-2.0
#include "core/IdentityValue.hpp"

#include "core/StoredText.hpp"

namespace tolva {

SQLiteValue identityValue(SQLiteStatement const& row, int column) {
  bool const isValid = isReadAsStored(row, column);
  SQLiteValue value = row.value(column, /*full=*/false);
  auto const* const blob = value.asLargeBlob();
  if (blob && blob->bytes <= wholeIdentityLimit) return row.value(column, /*full=*/true);
  return isValid ? value : deferred(value);
}

SQLiteValue deferred(SQLiteValue const& value) {
  auto const* const text = value.asText();
  return text ? SQLiteValue::largeText(static_cast<std::int64_t>(text->size())) : value;
}

}  // namespace tolva
