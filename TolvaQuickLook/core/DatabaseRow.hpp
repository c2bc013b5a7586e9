// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdint>
#include <vector>

#include "core/SQLiteValue.hpp"

namespace tolva {

/// One row of a table or view, and what names it. A value.
struct DatabaseRow {
  std::vector<SQLiteValue> values;    // one for each of the schema's columns, in that order
  std::vector<SQLiteValue> identity;  // one for each name of the schema's identity; invalid text in it is deferred

  /// What the row is charged in memory limits: the sum over all its values.
  std::int64_t memorySize() const {
    std::int64_t size = 0;
    for (auto const* const list : {&values, &identity}) {
      for (SQLiteValue const& value : *list) size += value.memorySize();
    }
    return size;
  }

  bool operator==(DatabaseRow const&) const = default;
};

}  // namespace tolva
