// SPDX-License-Identifier: Apache-2.0
#include "platform/Trim.hpp"

#include <unicode/uchar.h>
#include <unicode/utf8.h>

#include <cstddef>
#include <cstdint>

namespace tolva {
namespace {

using Byte = std::uint8_t;

/// The size of the white space character at the front of `[begin, end)`, 0 when none stands there.
std::size_t leadingSpace(Byte const* begin, Byte const* end) {
  std::size_t size = 0;
  auto const available = static_cast<std::size_t>(end - begin);
  UChar32 character;  // becomes negative when the bytes are not UTF-8
  U8_NEXT(begin, size, available, character);
  return u_isUWhiteSpace(character) ? size : 0;
}

/// The same for the back.
std::size_t trailingSpace(Byte const* begin, Byte const* end) {
  Byte const* first = end - 1;
  while (first > begin && end - first < U8_MAX_LENGTH && U8_IS_TRAIL(*first)) --first;
  auto const size = static_cast<std::size_t>(end - first);
  return leadingSpace(first, end) == size ? size : 0;
}

}  // namespace

std::string_view trimmed(std::string_view text) {
  auto const* begin = reinterpret_cast<Byte const*>(text.data());
  auto const* end = begin + text.size();
  while (begin < end) {
    std::size_t const size = leadingSpace(begin, end);
    if (size == 0) break;
    begin += size;
  }
  while (begin < end) {
    std::size_t const size = trailingSpace(begin, end);
    if (size == 0) break;
    end -= size;
  }
  return {reinterpret_cast<char const*>(begin), static_cast<std::size_t>(end - begin)};
}

}  // namespace tolva
