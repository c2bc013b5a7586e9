// SPDX-License-Identifier: Apache-2.0
#include "core/IdentityValue.hpp"

namespace tolva {

SQLiteValue identityValue(SQLiteStatement const& row, int column) {
  SQLiteValue value = row.value(column, /*full=*/false);
  auto const* const blob = value.asLargeBlob();
  if (blob && blob->bytes <= wholeIdentityLimit) return row.value(column, /*full=*/true);
  auto const* const text = value.asText();
  if (text && !row.holds(column, *text)) return SQLiteValue::largeText(static_cast<std::int64_t>(text->size()));
  return value;
}

}  // namespace tolva
