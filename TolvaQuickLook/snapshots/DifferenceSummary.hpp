// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdint>
#include <span>

#include "platform/Export.hpp"
#include "snapshots/TableDifference.hpp"

namespace tolva {

/// A comparison in seven numbers. A value.
struct TOLVA_EXPORT DifferenceSummary {
  DifferenceSummary() = default;
  explicit DifferenceSummary(std::span<TableDifference const> differences);

  std::int64_t comparedTables = 0;
  std::int64_t changedTables = 0;   // compared ones with a row that differs
  std::int64_t excludedTables = 0;  // tables that were not compared, whatever the reason
  std::int64_t schemaChanges = 0;   // objects that were added, removed or redefined
  std::int64_t inserted = 0;        // rows of the compared tables
  std::int64_t updated = 0;
  std::int64_t deleted = 0;

  bool operator==(DifferenceSummary const&) const = default;
};

}  // namespace tolva
