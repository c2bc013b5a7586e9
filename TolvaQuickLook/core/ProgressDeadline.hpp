// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <stop_token>

#include "core/MemoryBudget.hpp"
#include "platform/Export.hpp"
#include "platform/Uptime.hpp"

struct sqlite3;

namespace tolva {

/// When a statement at its deadline is stopped.
enum class DeadlineTest {
  passed,   // once the deadline is earlier than now
  reached,  // once now has reached it
};

inline bool isOver(Uptime deadline, Uptime now, DeadlineTest test) {
  return test == DeadlineTest::passed ? deadline < now : deadline <= now;
}

/// A time budget for the statements of one handle, for a scope: a statement that runs over it, or whose `task` is
/// cancelled, fails as cancelled.
///
/// The clock and the task are asked every `period` operations of SQLite's virtual machine, and when SQLite allocates as
/// `MemoryBudget` says: a statement that is still being prepared runs no operations, and one that calls functions few.
/// One call of a function can still take its time. Belongs to the thread that made it, for as long as the handle is
/// open. One at a time for a handle.
class TOLVA_EXPORT ProgressDeadline {
 public:
  ProgressDeadline(sqlite3* handle, Uptime deadline, int period, DeadlineTest test, std::stop_token task);
  ~ProgressDeadline();
  ProgressDeadline(ProgressDeadline const&) = delete;
  ProgressDeadline& operator=(ProgressDeadline const&) = delete;

 private:
  static int stops(void* self) noexcept;

  sqlite3* const handle_;
  Uptime const deadline_;
  DeadlineTest const test_;
  std::stop_token const task_;
  MemoryBudget const allocations_;
};

}  // namespace tolva
