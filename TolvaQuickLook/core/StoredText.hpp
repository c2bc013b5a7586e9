// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "core/SQLiteStatement.hpp"

namespace tolva {

/// Whether that column of the current row is read as it is stored. A text that is no valid Unicode is not: it is
/// repaired, by SQLite itself where the database is of UTF-16. Ask before the value is read, which may convert it.
bool isReadAsStored(SQLiteStatement const& row, int column);

}  // namespace tolva
