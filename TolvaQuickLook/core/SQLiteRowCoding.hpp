// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "core/SQLiteValue.hpp"

namespace tolva {

// A row as the JSON array of its values' coded form, straight from and to the values, for rows by the million. Any
// thread.

/// Appends the row to `out`: byte for byte what `encodeJSON` writes, and beyond it what that refuses, the numbers that
/// are not finite, as the texts "Infinity", "-Infinity" and "NaN". Texts are valid UTF-8.
void encodeRow(std::span<SQLiteValue const> row, std::string& out);

/// Reads what `encodeRow` writes. Throws `JSONError`, also for most of what other writers would make of the same row.
std::vector<SQLiteValue> decodeRow(std::string_view coded);

}  // namespace tolva
