// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdint>
#include <limits>
#include <stop_token>

#include "platform/Export.hpp"
#include "platform/Uptime.hpp"

namespace tolva {

/// What SQLite, and what an operation keeps of its answers, may allocate on this thread for a scope: a number of bytes,
/// and until when or until its task is cancelled.
///
/// A running statement can be interrupted, but one that is still being prepared cannot, nor can a schema that is being
/// parsed; both allocate all the time. Once a budget is spent SQLite gets no more memory until the scope ends: a
/// statement then fails with "out of memory" (code 7), or as cancelled where it was the time that ran out or the task
/// that ended. Memory that is freed counts back. Scopes nest, and an allocation is charged to all of them.
///
/// The clock and the task are asked at every allocation of `watchedBytes` or more, and now and then at a smaller one:
/// functions in one row make values for minutes, and an interrupt is heard between rows alone. One call of a function,
/// and any number of them that allocate nothing, can still take their time.
///
/// Belongs to the thread that made it, whatever service the thread calls meanwhile; scopes end in the reverse of the
/// order in which they began. Without effect when the host program had initialised SQLite before
/// `SQLiteLibrary::prepare`.
class TOLVA_EXPORT MemoryBudget {
 public:
  static constexpr std::int64_t unlimited = std::numeric_limits<std::int64_t>::max();

  /// What a preview, or an ordinary opening of a file with the reading of its schema, may take: 256 MiB.
  static constexpr std::int64_t ordinary = std::int64_t{256} << 20;

  /// An allocation from which on the clock and the task are asked each time: 16 KiB.
  static constexpr std::int64_t watchedBytes = std::int64_t{16} << 10;

  explicit MemoryBudget(std::int64_t bytes, Uptime deadline = Uptime::max(), std::stop_token task = {});
  ~MemoryBudget();
  MemoryBudget(MemoryBudget const&) = delete;
  MemoryBudget& operator=(MemoryBudget const&) = delete;

  /// Whether SQLite was refused memory, for want of bytes or of time, or for the task's end.
  bool spent() const { return spent_ != Spent::nothing; }

  /// Charges `bytes` that an operation keeps of what it read to the budgets of this thread, for good: a small file can
  /// hold one long text under many names. False when they do not fit.
  static bool keep(std::int64_t bytes) noexcept;

  /// Whether a budget of this thread was spent because its time ran out or its task was cancelled.
  static bool ranOutOfTime() noexcept;

  // For the allocator under SQLite --------------------------------------------------------------

  /// Puts the budgets under SQLite's allocator; called once, by `SQLiteLibrary`. False when SQLite is initialised.
  static bool install();

  /// The innermost budget of this thread, or null.
  static MemoryBudget* armed() noexcept;

  /// Whether `bytes` more are within this budget and those around it. A refusal is final for the scope.
  bool admits(std::int64_t bytes) noexcept;

  /// Adds what was allocated, or takes off what was freed, here and in the budgets around.
  void charge(std::int64_t bytes) noexcept;

 private:
  friend class BudgetsLifted;
  enum class Spent { nothing, bytes, time };

  Spent spentBy(std::int64_t bytes) noexcept;
  bool isDue(std::int64_t bytes) noexcept;

  std::int64_t const limit_;
  Uptime const deadline_;
  std::stop_token const task_;
  bool const isTimed_;
  MemoryBudget* const outer_;
  std::int64_t used_ = 0;
  std::uint32_t asked_ = 0;
  Spent spent_ = Spent::nothing;
};

/// Suspends the budgets of this thread for a scope, for what must not be refused: a rollback, above all.
class TOLVA_EXPORT BudgetsLifted {
 public:
  BudgetsLifted();
  ~BudgetsLifted();
  BudgetsLifted(BudgetsLifted const&) = delete;
  BudgetsLifted& operator=(BudgetsLifted const&) = delete;

 private:
  MemoryBudget* const armed_;
};

}  // namespace tolva
