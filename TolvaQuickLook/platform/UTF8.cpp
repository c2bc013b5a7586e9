// SPDX-License-Identifier: Apache-2.0
#include "platform/UTF8.hpp"

#include <cstdint>
#include <cstring>

namespace tolva {
namespace {

constexpr std::string_view replacement = "\xEF\xBF\xBD";  // U+FFFD

/// The sequence at the front of a text that does not begin with ASCII.
struct Sequence {
  std::size_t length;  // of the character, or of the maximal subpart of an ill-formed one
  bool valid;
};

Sequence firstSequence(std::uint8_t const* bytes, std::size_t size) {
  auto const trails = [=](std::size_t index) { return index < size && (bytes[index] & 0xC0) == 0x80; };
  std::uint8_t const first = bytes[0];
  if (first < 0xC2 || first > 0xF4 || !trails(1)) return {1, false};
  if (first < 0xE0) return {2, true};
  std::uint8_t const second = bytes[1];
  if (first == 0xE0 && second < 0xA0) return {1, false};
  if (first == 0xED && second > 0x9F) return {1, false};
  if (first == 0xF0 && second < 0x90) return {1, false};
  if (first == 0xF4 && second > 0x8F) return {1, false};
  if (!trails(2)) return {2, false};
  if (first < 0xF0) return {3, true};
  if (!trails(3)) return {3, false};
  return {4, true};
}

bool isASCII(std::uint8_t const* eightBytes) {
  std::uint64_t word;
  std::memcpy(&word, eightBytes, sizeof word);
  return (word & 0x8080808080808080U) == 0;
}

}  // namespace

std::size_t validUTF8Prefix(std::string_view text) {
  auto const* const bytes = reinterpret_cast<std::uint8_t const*>(text.data());
  std::size_t at = 0;
  while (at < text.size()) {
    std::size_t const left = text.size() - at;
    if (left >= 8 && isASCII(bytes + at)) {
      at += 8;
    } else if (left < 8 && text.size() >= 8 && isASCII(bytes + text.size() - 8)) {
      return text.size();  // the last eight bytes are looked at again, all at once
    } else if (bytes[at] < 0x80) {
      ++at;
    } else {
      Sequence const sequence = firstSequence(bytes + at, text.size() - at);
      if (!sequence.valid) return at;
      at += sequence.length;
    }
  }
  return at;
}

bool isValidUTF8(std::string_view text) { return validUTF8Prefix(text) == text.size(); }

std::string repairUTF8(std::string_view text) {
  std::size_t valid = validUTF8Prefix(text);
  std::string repaired(text.substr(0, valid));
  while (valid < text.size()) {
    text.remove_prefix(valid);
    repaired += replacement;
    text.remove_prefix(firstSequence(reinterpret_cast<std::uint8_t const*>(text.data()), text.size()).length);
    valid = validUTF8Prefix(text);
    repaired += text.substr(0, valid);
  }
  return repaired;
}

}  // namespace tolva
