// SPDX-License-Identifier: Apache-2.0
#include "core/ProgressDeadline.hpp"

#include <sqlite3.h>

#include <utility>

namespace tolva {

ProgressDeadline::ProgressDeadline(sqlite3* handle, Uptime deadline, int period, DeadlineTest test,
                                   std::stop_token task)
    : handle_(handle),
      deadline_(deadline),
      test_(test),
      task_(std::move(task)),
      allocations_(MemoryBudget::unlimited, deadline, task_) {
  sqlite3_progress_handler(handle_, period, stops, this);
}

ProgressDeadline::~ProgressDeadline() { sqlite3_progress_handler(handle_, 0, nullptr, nullptr); }

int ProgressDeadline::stops(void* self) noexcept {
  auto const& budget = *static_cast<ProgressDeadline const*>(self);
  return budget.task_.stop_requested() || isOver(budget.deadline_, uptime(), budget.test_);
}

}  // namespace tolva
