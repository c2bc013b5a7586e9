// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace tolva {

// Numbers as text and back, the same under every locale. Any thread.

/// The shortest text that reads back as `value`: "1.0", "-0.0", "1e+16", "0.0001", "1e-05", "inf", "nan".
///
/// Scientific from 1e16 up and below 1e-4. It enters SQL and files that are stored, so it never changes.
std::string doubleText(double value);

/// The room that `writeDoubleText` needs.
inline constexpr std::size_t mostDoubleText = 32;

/// Writes the same text to `out`, for values by the million, and returns its end.
char* writeDoubleText(char* out, double value);

/// The same for a number in JSON, where a whole one stands without ".0". The caller has refused what is not finite.
std::string jsonNumberText(double value);

/// The number that the whole of `text` spells, as `strtod` of the C locale reads it: signs, exponents, hexadecimal
/// floats; what is too large becomes infinity. "inf" and "nan" are read too: a caller that wants neither tests for it.
/// Empty when anything stands before or behind the number, a blank or NUL included.
std::optional<double> doubleFromText(std::string_view text);

/// The number that the whole of `text` spells in decimal: one `+` or `-` at most, then ASCII digits only. Empty when it
/// does not fit.
std::optional<std::int64_t> integerFromText(std::string_view text);

}  // namespace tolva
