// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <string>

#include "core/SQLiteStatement.hpp"

namespace tolva {

/// The storage class and the value of one column of the current row, in a few KiB however large it is: "NULL",
/// "INTEGER 5", "REAL 1.0", "TEXT \"a\"", "BLOB hex 00ff [2 bytes]". Of a text the first 1,024 bytes and of a blob the
/// first 64 are shown, with an ellipsis and the whole length behind.
///
/// A text is quoted, with quotes, backslashes, and whatever would break or reorder the line or not be seen in it
/// escaped; it is in hexadecimal where it is no UTF-8 or its last character is cut.
std::string valuePreview(SQLiteStatement const& row, int column);

}  // namespace tolva
