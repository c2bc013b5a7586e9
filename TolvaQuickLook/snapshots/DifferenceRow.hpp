// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdint>
#include <string>

namespace tolva {

/// One row that differs. A value.
struct DifferenceRow {
  std::int64_t id = 0;   // its place among the differences of its table, from 1
  std::string kind;      // "Inserted", "Updated" or "Deleted"
  std::string identity;  // its key as shown: "id=INTEGER 5, name=TEXT \"a\""

  bool operator==(DifferenceRow const&) const = default;
};

}  // namespace tolva
