// SPDX-License-Identifier: Apache-2.0
#include "core/ProgressDeadline.hpp"

#include <sqlite3.h>

#include <chrono>

namespace tolva {
namespace {

// Long enough that a statement that runs always meets the progress handler first and reads as cancelled.
constexpr std::chrono::milliseconds preparingGrace{100};

}  // namespace

ProgressDeadline::ProgressDeadline(sqlite3* handle, Uptime deadline, int period, DeadlineTest test,
                                   std::stop_token task)
    : handle_(handle),
      deadline_(deadline),
      test_(test),
      task_(std::move(task)),
      preparing_(MemoryBudget::unlimited, deadline + preparingGrace) {
  sqlite3_progress_handler(handle_, period, isOver, this);
}

ProgressDeadline::~ProgressDeadline() { sqlite3_progress_handler(handle_, 0, nullptr, nullptr); }

int ProgressDeadline::isOver(void* self) noexcept {
  auto const& budget = *static_cast<ProgressDeadline const*>(self);
  if (budget.task_.stop_requested()) return 1;
  Uptime const now = uptime();
  return budget.test_ == DeadlineTest::passed ? budget.deadline_ < now : now >= budget.deadline_;
}

}  // namespace tolva
