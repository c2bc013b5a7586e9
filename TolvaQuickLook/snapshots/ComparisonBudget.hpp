// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <stop_token>
#include <utility>

#include "core/DeadlineInterrupt.hpp"
#include "core/MemoryBudget.hpp"
#include "core/ProgressDeadline.hpp"

namespace tolva {

/// What the statements on a result store may take, for a scope: memory, and time until a deadline. It holds for those
/// that are prepared and for schemas that are parsed again as well. What runs over the time fails as cancelled.
///
/// In the turn of the connection's service, and ends before the connection does.
class ComparisonBudget {
 public:
  ComparisonBudget(sqlite3* handle, Uptime deadline, std::stop_token task)
      : time_(handle, deadline, period, DeadlineTest::reached, std::move(task)),
        watch_(handle, deadline, {"older", "newer"}) {}

 private:
  static constexpr int period = 1000;  // operations of SQLite's virtual machine

  MemoryBudget const memory_{MemoryBudget::ordinary};
  ProgressDeadline const time_;
  DeadlineInterrupt const watch_;
};

}  // namespace tolva
