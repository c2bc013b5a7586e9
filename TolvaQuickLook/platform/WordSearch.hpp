// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <span>
#include <string_view>

namespace tolva {

/// Whether one of `words` stands in `text` as a word of its own, in letters of either case.
///
/// The same as the expression `\b(FIRST|SECOND)\b` without case (`Expression`), in one pass that takes no memory, so
/// that a text of many megabytes costs milliseconds. The words are of ASCII letters and not of "S" and "K", which
/// letters beyond ASCII are like. Text that is not UTF-8 is read as `repairUTF8` would make it. Any thread.
bool containsWord(std::string_view text, std::span<std::string_view const> words);

}  // namespace tolva
