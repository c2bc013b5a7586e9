// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstddef>
#include <string_view>

namespace tolva {

/// A form in which the bytes of a value stand in an export. A value.
struct ByteForm {
  /// Writes `bytes` in the form to `out`, which has room for `mostGrowth` times as many, and returns the end.
  char* (*write)(char* out, std::string_view bytes);
  std::size_t mostGrowth;
};

// Any bytes are taken: none of these looks for UTF-8, or for an end before the last byte.

char* writeDoubledQuotes(char* out, std::string_view bytes);
char* writeEscaped(char* out, std::string_view bytes);
char* writeHexDigits(char* out, std::string_view bytes);

/// Each `"` twice.
inline constexpr ByteForm doubledQuotes{writeDoubledQuotes, 2};

/// `"` and `\` behind a backslash, and a byte below 32 as `\u00xx` in lower case.
inline constexpr ByteForm escapedBytes{writeEscaped, 6};

/// Two hexadecimal digits a byte, in upper case.
inline constexpr ByteForm hexDigits{writeHexDigits, 2};

}  // namespace tolva
