// SPDX-License-Identifier: Apache-2.0
#include "core/SQLiteLibrary.hpp"

#include <sqlite3.h>

#include "core/GuardVFS.hpp"
#include "core/MemoryBudget.hpp"

namespace tolva {
namespace {

bool prepareOnce() {
  static bool const budgeted = [] {
    BudgetsLifted const lifted;
    bool const installed = MemoryBudget::install();
    GuardVFS::install();
    return installed;
  }();
  return budgeted;
}

}  // namespace

void SQLiteLibrary::prepare() { prepareOnce(); }

bool SQLiteLibrary::enforcesMemoryBudgets() { return prepareOnce(); }

void SQLiteLibrary::leaveOutStatistics() { sqlite3_config(SQLITE_CONFIG_MEMSTATUS, 0); }

}  // namespace tolva
