// SPDX-License-Identifier: Apache-2.0
#include "core/KeptText.hpp"

#include <sqlite3.h>

#include "core/MemoryBudget.hpp"

namespace tolva {

std::string keptText(SQLiteStatement const& row, int column) {
  SQLiteValue const value = row.value(column, /*full=*/false);
  if (!MemoryBudget::keep(value.memorySize())) throw DatabaseError(sqlite3_errstr(SQLITE_NOMEM), SQLITE_NOMEM);
  return value.display();
}

}  // namespace tolva
