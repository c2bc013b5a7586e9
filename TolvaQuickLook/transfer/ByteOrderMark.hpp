// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstddef>
#include <string>
#include <string_view>

namespace tolva {

/// Takes every U+FEFF out of the first field of a file, wherever it stands in it: files that were put together carry
/// more than one.
inline void removeByteOrderMarks(std::string& field) {
  constexpr std::string_view mark = "\uFEFF";
  for (std::size_t at = field.find(mark); at != field.npos; at = field.find(mark, at)) field.erase(at, mark.size());
}

}  // namespace tolva
