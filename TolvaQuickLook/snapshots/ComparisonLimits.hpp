// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdint>

namespace tolva {

/// The bounds of a comparison. A value.
struct ComparisonLimits {
  std::int64_t storagePages = 16'384;  // of 4,096 bytes, at least 1, for the keys of all rows that differ
  double tableSeconds = 60.0;          // for one table
  double totalSeconds = 300.0;         // for all of them
  double readingSeconds = 10.0;        // for a page of rows that differ, or for the cells of one
};

}  // namespace tolva
