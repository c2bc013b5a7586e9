// SPDX-License-Identifier: Apache-2.0
#include "platform/WordSearch.hpp"

#include <unicode/uchar.h>
#include <unicode/utf8.h>

#include <array>
#include <cstddef>
#include <cstdint>

namespace tolva {
namespace {

char upper(char c) { return c >= 'a' && c <= 'z' ? static_cast<char>(c - 'a' + 'A') : c; }

/// Whether `word` stands at `at`, whatever is around it.
bool spells(std::string_view text, std::size_t at, std::string_view word) {
  if (text.size() - at < word.size()) return false;
  for (std::size_t place = 0; place < word.size(); ++place) {
    if (upper(text[at + place]) != upper(word[place])) return false;
  }
  return true;
}

// Boundaries, as a simple expression sees them: a mark or a format character belongs to what stands before it, and
// there is no boundary in front of it.

bool extends(UChar32 c) { return u_hasBinaryProperty(c, UCHAR_GRAPHEME_EXTEND) || u_charType(c) == U_FORMAT_CHAR; }

bool isOfWords(UChar32 c) {
  constexpr std::uint32_t types = U_GC_M_MASK | U_GC_ND_MASK | U_GC_PC_MASK;
  return (U_GET_GC_MASK(c) & types) != 0 || u_hasBinaryProperty(c, UCHAR_ALPHABETIC) || c == 0x200C || c == 0x200D;
}

struct Character {
  UChar32 code;
  std::size_t size;  // bytes
};

Character firstCharacter(std::string_view text) {
  auto const* const bytes = reinterpret_cast<std::uint8_t const*>(text.data());
  Character first{.code = 0, .size = 0};
  U8_NEXT_OR_FFFD(bytes, first.size, text.size(), first.code);
  return first;
}

Character lastCharacter(std::string_view text) {
  std::size_t at = text.size() - 1;
  while (at > 0 && text.size() - at < U8_MAX_LENGTH && U8_IS_TRAIL(text[at])) --at;
  Character const found = firstCharacter(text.substr(at));
  return found.size == text.size() - at ? found : Character{.code = 0xFFFD, .size = 1};
}

bool endsInWord(std::string_view text) {
  while (!text.empty()) {
    Character const last = lastCharacter(text);
    if (!extends(last.code)) return isOfWords(last.code);
    text.remove_suffix(last.size);
  }
  return false;
}

bool goesOnWithWord(std::string_view text) {
  if (text.empty()) return false;
  UChar32 const next = firstCharacter(text).code;
  return extends(next) || isOfWords(next);
}

}  // namespace

bool containsWord(std::string_view text, std::span<std::string_view const> words) {
  std::array<bool, 256> begins{};  // by the first byte of a word, in either case
  for (std::string_view const word : words) {
    auto const first = static_cast<unsigned char>(upper(word.front()));
    begins[first] = begins[first | 0x20U] = true;
  }
  for (std::size_t at = 0; at < text.size(); ++at) {
    if (!begins[static_cast<unsigned char>(text[at])]) continue;
    for (std::string_view const word : words) {
      if (!spells(text, at, word)) continue;
      if (!endsInWord(text.substr(0, at)) && !goesOnWithWord(text.substr(at + word.size()))) return true;
    }
  }
  return false;
}

}  // namespace tolva
