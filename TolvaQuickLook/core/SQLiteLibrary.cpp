// SPDX-License-Identifier: Apache-2.0
#include "core/SQLiteLibrary.hpp"

#include <sqlite3.h>

#include "core/GuardVFS.hpp"
#include "core/MemoryBudget.hpp"

namespace tolva {
namespace {

sqlite3_mem_methods plain;  // SQLite's own allocator, below the budget

bool admitted(std::int64_t bytes) noexcept {
  MemoryBudget* const budget = MemoryBudget::armed();
  return !budget || budget->admits(bytes);
}

void charge(std::int64_t bytes) noexcept {
  if (MemoryBudget* const budget = MemoryBudget::armed()) budget->charge(bytes);
}

void* allocate(int bytes) noexcept {
  if (!admitted(bytes)) return nullptr;
  void* const memory = plain.xMalloc(bytes);
  if (memory && MemoryBudget::armed()) charge(plain.xSize(memory));
  return memory;
}

void release(void* memory) noexcept {
  if (memory && MemoryBudget::armed()) charge(-std::int64_t{plain.xSize(memory)});
  plain.xFree(memory);
}

void* reallocate(void* memory, int bytes) noexcept {
  if (!MemoryBudget::armed()) return plain.xRealloc(memory, bytes);
  std::int64_t const before = memory ? plain.xSize(memory) : 0;
  if (!admitted(bytes - before)) return nullptr;
  void* const moved = plain.xRealloc(memory, bytes);
  if (moved) charge(plain.xSize(moved) - before);
  return moved;
}

bool budgetAllocations() {
  if (sqlite3_config(SQLITE_CONFIG_GETMALLOC, &plain) != SQLITE_OK) return false;
  sqlite3_mem_methods budgeted = plain;
  budgeted.xMalloc = allocate;
  budgeted.xFree = release;
  budgeted.xRealloc = reallocate;
  return sqlite3_config(SQLITE_CONFIG_MALLOC, &budgeted) == SQLITE_OK;
}

bool prepareOnce() {
  static bool const budgeted = [] {
    BudgetsLifted const lifted;
    bool const installed = budgetAllocations();
    GuardVFS::install();
    return installed;
  }();
  return budgeted;
}

}  // namespace

void SQLiteLibrary::prepare() { prepareOnce(); }

bool SQLiteLibrary::enforcesMemoryBudgets() { return prepareOnce(); }

}  // namespace tolva
