// SPDX-License-Identifier: Apache-2.0
#include "core/MemoryBudget.hpp"

#include <sqlite3.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <utility>

namespace tolva {
namespace {

constexpr std::uint32_t clockPeriod = 1024;  // small allocations between two looks at the clock and the task

constinit thread_local MemoryBudget* innermost = nullptr;

void end(MemoryBudget const* budget, MemoryBudget* outer) {
  if (std::exchange(innermost, outer) == budget) return;
  std::fputs("Memory budgets end in another order than the reverse of their beginning.\n", stderr);
  std::abort();
}

}  // namespace

MemoryBudget::MemoryBudget(std::int64_t bytes, Uptime deadline, std::stop_token task)
    : limit_(bytes),
      deadline_(deadline),
      task_(std::move(task)),
      isTimed_(deadline_ != Uptime::max() || task_.stop_possible()),
      outer_(innermost) {
  innermost = this;
}

MemoryBudget::~MemoryBudget() { end(this, outer_); }

bool MemoryBudget::keep(std::int64_t bytes) noexcept {
  if (!innermost) return true;
  bool const admitted = innermost->admits(bytes);
  if (admitted) innermost->charge(bytes);
  return admitted;
}

bool MemoryBudget::ranOutOfTime() noexcept {
  for (MemoryBudget const* budget = innermost; budget; budget = budget->outer_) {
    if (budget->spent_ == Spent::time) return true;
  }
  return false;
}

MemoryBudget* MemoryBudget::armed() noexcept { return innermost; }

bool MemoryBudget::admits(std::int64_t bytes) noexcept {
  bool admitted = true;
  for (MemoryBudget* budget = this; budget; budget = budget->outer_) {
    if (budget->spent_ == Spent::nothing) budget->spent_ = budget->spentBy(bytes);
    admitted = admitted && budget->spent_ == Spent::nothing;
  }
  return admitted;
}

void MemoryBudget::charge(std::int64_t bytes) noexcept {
  for (MemoryBudget* budget = this; budget; budget = budget->outer_) budget->used_ += bytes;
}

/// What was allocated before the scope and is freed in it gives no credit.
MemoryBudget::Spent MemoryBudget::spentBy(std::int64_t bytes) noexcept {
  if (bytes > limit_ - std::max<std::int64_t>(used_, 0)) return Spent::bytes;
  bool const isOver = isTimed_ && isDue(bytes) && (task_.stop_requested() || uptime() >= deadline_);
  return isOver ? Spent::time : Spent::nothing;
}

/// A large allocation costs far more than the looks do.
bool MemoryBudget::isDue(std::int64_t bytes) noexcept { return ++asked_ % clockPeriod == 0 || bytes >= watchedBytes; }

// Under SQLite --------------------------------------------------------------------------------------

namespace {

sqlite3_mem_methods plain;  // SQLite's own allocator, below the budget

void* allocate(int bytes) noexcept {
  MemoryBudget* const budget = MemoryBudget::armed();
  if (!budget) return plain.xMalloc(bytes);
  if (!budget->admits(bytes)) return nullptr;
  void* const memory = plain.xMalloc(bytes);
  if (memory) budget->charge(plain.xSize(memory));
  return memory;
}

void release(void* memory) noexcept {
  MemoryBudget* const budget = MemoryBudget::armed();
  if (budget && memory) budget->charge(-std::int64_t{plain.xSize(memory)});
  plain.xFree(memory);
}

void* reallocate(void* memory, int bytes) noexcept {
  MemoryBudget* const budget = MemoryBudget::armed();
  if (!budget) return plain.xRealloc(memory, bytes);
  std::int64_t const before = memory ? plain.xSize(memory) : 0;
  if (!budget->admits(bytes - before)) return nullptr;
  void* const moved = plain.xRealloc(memory, bytes);
  if (moved) budget->charge(plain.xSize(moved) - before);
  return moved;
}

}  // namespace

bool MemoryBudget::install() {
  if (sqlite3_config(SQLITE_CONFIG_GETMALLOC, &plain) != SQLITE_OK) return false;
  sqlite3_mem_methods budgeted = plain;
  budgeted.xMalloc = allocate;
  budgeted.xFree = release;
  budgeted.xRealloc = reallocate;
  return sqlite3_config(SQLITE_CONFIG_MALLOC, &budgeted) == SQLITE_OK;
}

BudgetsLifted::BudgetsLifted() : armed_(std::exchange(innermost, nullptr)) {}

BudgetsLifted::~BudgetsLifted() { innermost = armed_; }

}  // namespace tolva
