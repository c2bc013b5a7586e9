// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <stop_token>
#include <utility>

#include "core/DeadlineInterrupt.hpp"
#include "core/MemoryBudget.hpp"
#include "core/ProgressDeadline.hpp"

namespace tolva {

/// How long the statements on a result store may take, for a scope: what runs over a deadline fails as cancelled. It
/// holds for statements that are prepared and for schemas that are parsed again as well.
///
/// In the turn of the connection's service, and ends before the connection does.
class ComparisonTime {
 public:
  ComparisonTime(sqlite3* handle, Uptime deadline, std::stop_token task)
      : time_(handle, deadline, period, DeadlineTest::reached, std::move(task)),
        watch_(handle, deadline, {"older", "newer"}) {}

 private:
  static constexpr int period = 1000;  // operations of SQLite's virtual machine

  ProgressDeadline const time_;
  DeadlineInterrupt const watch_;
};

/// The same with a bound for memory, for whatever may parse a schema.
class ComparisonBudget {
 public:
  ComparisonBudget(sqlite3* handle, Uptime deadline, std::stop_token task) : time_(handle, deadline, std::move(task)) {}

 private:
  MemoryBudget const memory_{MemoryBudget::ordinary};
  ComparisonTime const time_;
};

}  // namespace tolva
