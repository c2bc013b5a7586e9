// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstddef>
#include <string>
#include <string_view>

namespace tolva {

/// Takes every U+FEFF out of the first field of a file, wherever it stands in it: files that were put together carry
/// more than one. Takes time in proportion to the field, which may hold nothing else.
inline void removeByteOrderMarks(std::string& field) {
  constexpr std::string_view mark = "\uFEFF";
  std::string rest;
  std::size_t from = 0;
  for (std::size_t at = field.find(mark); at != field.npos; at = field.find(mark, from)) {
    rest.append(field, from, at - from);
    from = at + mark.size();
  }
  if (from > 0) field = rest.append(field, from);
}

}  // namespace tolva
