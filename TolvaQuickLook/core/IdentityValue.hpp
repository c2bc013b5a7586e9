// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdint>

#include "core/SQLiteStatement.hpp"

namespace tolva {

/// The largest blob, in bytes, that is read whole where it names a row.
inline constexpr std::int64_t wholeIdentityLimit = 65'536;

/// One column of the current row that names the row, read so that the row can be found by it: a blob up to
/// `wholeIdentityLimit` is whole. What cannot serve is a marker, so that nobody compares with it: a larger value, and a
/// text that is no valid Unicode, which would be repaired and could then name another row.
SQLiteValue identityValue(SQLiteStatement const& row, int column);

/// The marker in place of a text; any other value as it is.
SQLiteValue deferred(SQLiteValue const& value);

}  // namespace tolva
