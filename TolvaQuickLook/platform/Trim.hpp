// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <string_view>

namespace tolva {

/// The part of `text` between the white space at its ends: every character with the Unicode property White_Space
/// (https://www.unicode.org/Public/UCD/latest/ucd/PropList.txt), line ends and no-break spaces among them. Bytes that
/// are not UTF-8 are not white space. Any thread.
std::string_view trimmed(std::string_view text);

}  // namespace tolva
