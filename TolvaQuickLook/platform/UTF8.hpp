// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstddef>
#include <string>
#include <string_view>

namespace tolva {

// UTF-8 as The Unicode Standard defines it (section 3.9, table 3-7): no overlong form, no surrogate, nothing above
// U+10FFFF. NUL is a character like any other. Any thread.

/// The number of bytes before the first ill-formed sequence; the size of `text` when all of it is valid.
std::size_t validUTF8Prefix(std::string_view text);

bool isValidUTF8(std::string_view text);

/// `text` with U+FFFD for each ill-formed sequence. As many bytes as could begin one character become one U+FFFD
/// ("maximal subpart", https://www.unicode.org/versions/latest/core-spec/chapter-3/#G66453), which is what browsers and
/// most decoders do. Never fails. A valid text costs one validation and one copy.
std::string repairUTF8(std::string_view text);

}  // namespace tolva
