// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <string>

#include "core/SQLiteStatement.hpp"

namespace tolva {

/// What one column of the current row shows, for a record that outlives the row. Charged to the memory budget of the
/// thread; throws SQLite's "out of memory" when it does not fit.
std::string keptText(SQLiteStatement const& row, int column);

}  // namespace tolva
