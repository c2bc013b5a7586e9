// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <algorithm>
#include <string_view>

namespace tolva {

/// Whether `text` has an ASCII digit wherever `form` has a zero, and is the same everywhere else. Texts of one form,
/// such as "0000-00-00", stand in the order of what they spell. Any thread.
constexpr bool hasDigitForm(std::string_view text, std::string_view form) {
  return std::ranges::equal(text, form,
                            [](char c, char wanted) { return wanted == '0' ? c >= '0' && c <= '9' : c == wanted; });
}

}  // namespace tolva
