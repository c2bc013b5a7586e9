// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdint>
#include <stop_token>

#include "core/SQLiteConnection.hpp"
#include "platform/Uptime.hpp"
#include "snapshots/ComparisonPlan.hpp"

namespace tolva {

/// How many rows of a table differ. A value.
struct RowCounts {
  std::int64_t inserted = 0;
  std::int64_t updated = 0;
  std::int64_t deleted = 0;

  bool operator==(RowCounts const&) const = default;
};

/// Writes the keys of the rows that differ into the plan's store, which it makes, in one transaction: of a comparison
/// that fails there is no store. `connection` is that of a result store, in its service's turn.
///
/// Throws `TaskCancelled`, or else what the person is told of a table that takes too long or too much room. A snapshot
/// whose index of the primary key does not count as many rows as its table, a key with a NULL among the rows that
/// differ, and numbers of rows that contradict those of the tables, are told as damage (code 11). The numbers are
/// looked at where the table has an index, since a table without one is scanned itself. Other damage is not looked for,
/// see `DatabaseDiffService`.
///
/// `task` is heard between the calls of functions in one row too; a cancellation by the handle is between rows.
RowCounts compareTable(SQLiteConnection& connection, ComparisonPlan const& plan, Uptime deadline, std::stop_token task);

/// The failure of a table that ran out of time.
[[noreturn]] void failForTime();

}  // namespace tolva
