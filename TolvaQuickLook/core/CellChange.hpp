// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <optional>
#include <string>
#include <vector>

#include "core/DatabaseRow.hpp"
#include "core/SQLiteValue.hpp"

namespace tolva {

/// One cell and what a person made of it. A value.
struct CellChange {
  DatabaseRow row;  // as the person saw it; in a result, as it is after the edit
  std::string column;
  SQLiteValue value;                                              // the new one
  std::optional<std::vector<SQLiteValue>> previousIdentity = {};  // in a result, the row's identity before the edit

  bool operator==(CellChange const&) const = default;
};

}  // namespace tolva
