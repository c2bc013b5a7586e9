// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdint>
#include <optional>
#include <vector>

#include "core/DatabaseRow.hpp"

namespace tolva {

/// Where the next page begins. A value, of use only with the table, schema and request that it was made under; nothing
/// in it says so.
struct PageToken {
  std::vector<SQLiteValue> identity;  // of the last row delivered; empty where that cannot be compared with exactly
  std::int64_t offset = 0;            // rows delivered so far

  bool operator==(PageToken const&) const = default;
};

/// Some rows in order. A value.
struct RowPage {
  std::vector<DatabaseRow> rows;
  std::optional<PageToken> next;  // absent from the empty page alone, which is how the end of a table is known

  bool operator==(RowPage const&) const = default;
};

}  // namespace tolva
