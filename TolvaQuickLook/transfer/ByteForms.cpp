// SPDX-License-Identifier: Apache-2.0
#include "transfer/ByteForms.hpp"

#include <array>
#include <cstdint>
#include <cstring>

namespace tolva {
namespace {

// Eight bytes at once ------------------------------------------------------------------------------
// https://graphics.stanford.edu/~seander/bithacks.html#HasLessInWord

using Word = std::uint64_t;

constexpr Word repeated(unsigned char byte) { return Word{0x0101010101010101} * byte; }

constexpr bool hasLess(Word word, unsigned char bound) {
  return ((word - repeated(bound)) & ~word & repeated(0x80)) != 0;
}

constexpr bool has(Word word, char byte) { return hasLess(word ^ repeated(static_cast<unsigned char>(byte)), 1); }

/// Copies `bytes`, those for which `isSpecial` holds through `writeSpecial`. `mayHold` tells of a word whether one of
/// its bytes is special.
template <class MayHold, class IsSpecial, class WriteSpecial>
char* copyWith(char* out, std::string_view bytes, MayHold mayHold, IsSpecial isSpecial, WriteSpecial writeSpecial) {
  auto const one = [&](char byte) {
    if (isSpecial(byte))
      out = writeSpecial(out, byte);
    else
      *out++ = byte;
  };
  Word word = 0;
  for (; bytes.size() >= sizeof word; bytes.remove_prefix(sizeof word)) {
    std::memcpy(&word, bytes.data(), sizeof word);
    if (mayHold(word)) {
      for (char const byte : bytes.substr(0, sizeof word)) one(byte);
    } else {
      std::memcpy(out, &word, sizeof word);
      out += sizeof word;
    }
  }
  for (char const byte : bytes) one(byte);
  return out;
}

char* writeEscape(char* out, char byte) {
  *out++ = '\\';
  if (byte == '"' || byte == '\\') {
    *out++ = byte;
    return out;
  }
  for (char const digit : {'u', '0', '0', byte < 0x10 ? '0' : '1', "0123456789abcdef"[byte & 0xF]}) *out++ = digit;
  return out;
}

constexpr auto digitPairs = [] {
  constexpr std::string_view digits = "0123456789ABCDEF";
  std::array<std::array<char, 2>, 256> pairs{};
  for (std::size_t byte = 0; byte < pairs.size(); ++byte) pairs[byte] = {digits[byte >> 4], digits[byte & 0xF]};
  return pairs;
}();

}  // namespace

char* writeDoubledQuotes(char* out, std::string_view bytes) {
  auto const doubled = [](char* to, char byte) {
    *to++ = byte;
    *to++ = byte;
    return to;
  };
  return copyWith(
      out, bytes, [](Word word) { return has(word, '"'); }, [](char byte) { return byte == '"'; }, doubled);
}

char* writeEscaped(char* out, std::string_view bytes) {
  auto const mayHold = [](Word word) { return hasLess(word, 0x20) || has(word, '"') || has(word, '\\'); };
  auto const isSpecial = [](char byte) {
    return static_cast<unsigned char>(byte) < 0x20 || byte == '"' || byte == '\\';
  };
  return copyWith(out, bytes, mayHold, isSpecial, writeEscape);
}

char* writeHexDigits(char* out, std::string_view bytes) {
  for (char const byte : bytes) {
    std::memcpy(out, digitPairs[static_cast<unsigned char>(byte)].data(), 2);
    out += 2;
  }
  return out;
}

}  // namespace tolva
