// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdint>
#include <string_view>
#include <variant>

namespace tolva {

// The rule of `SQLiteValue::input`, for whoever binds texts by the million and makes no values of them. Any thread.

/// Whether a column of this declared type holds what is a number as a number. Any other column keeps every text.
bool takesNumbers(std::string_view declaredType);

/// The number that a text becomes in such a column; none when it stays text. Takes no memory of a text that begins like
/// a decimal number and is neither too large nor too small for a double.
std::variant<std::monostate, std::int64_t, double> typedNumber(std::string_view text);

}  // namespace tolva
