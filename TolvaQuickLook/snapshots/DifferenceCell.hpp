// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <optional>
#include <string>

namespace tolva {

/// One column of a row that differs, as shown; a few KiB however large the value. A value.
struct DifferenceCell {
  std::string column;
  std::optional<std::string> before;  // empty for an inserted row
  std::optional<std::string> after;   // empty for a deleted row
  bool changed = false;

  bool operator==(DifferenceCell const&) const = default;
};

}  // namespace tolva
