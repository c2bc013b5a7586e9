// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <string>
#include <vector>

namespace tolva {

/// What matches the rows of two versions of a table: its declared primary key. A value.
struct ComparisonIdentity {
  std::vector<std::string> columns;     // of the key, in key order
  std::vector<std::string> collations;  // one for each of them: "BINARY", "NOCASE" or "RTRIM"
  std::vector<std::string> allColumns;  // of the table, in its order, hidden ones too

  bool operator==(ComparisonIdentity const&) const = default;
};

}  // namespace tolva
