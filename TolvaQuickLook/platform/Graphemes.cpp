// SPDX-License-Identifier: Apache-2.0
#include "platform/Graphemes.hpp"

#include <unicode/brkiter.h>
#include <unicode/uchar.h>
#include <unicode/utext.h>
#include <unicode/utf8.h>

#include <algorithm>
#include <cstdint>
#include <limits>
#include <stdexcept>

namespace tolva {
namespace {

/// Reads the character at `at` and steps over it.
UChar32 nextCharacter(std::string_view text, std::size_t& at) {
  auto const* const bytes = reinterpret_cast<std::uint8_t const*>(text.data());
  UChar32 character;
  U8_NEXT_OR_FFFD(bytes, at, text.size(), character);
  return character;
}

/// Whether the character never shares a cluster with another such one (rules GB4, GB5 and GB999), CR LF excepted.
bool isSolitary(UChar32 character) {
  switch (u_getIntPropertyValue(character, UCHAR_GRAPHEME_CLUSTER_BREAK)) {
    case U_GCB_OTHER:
    case U_GCB_CONTROL:
    case U_GCB_CR:
    case U_GCB_LF:
      return true;
    default:
      return false;
  }
}

}  // namespace

/// ICU's rules over the text, or over as much of it as ICU can address at once.
struct GraphemeCursor::Rules {
  Rules() {
    UErrorCode status = U_ZERO_ERROR;
    iterator.reset(icu::BreakIterator::createCharacterInstance(icu::Locale::getRoot(), status));
    if (U_FAILURE(status)) throw std::runtime_error("The rules for characters are missing.");
  }
  ~Rules() { utext_close(&input); }
  Rules(Rules const&) = delete;
  Rules& operator=(Rules const&) = delete;

  std::size_t clusterEnd(std::string_view text, std::size_t begin) {
    if (begin >= last) open(text, begin);
    auto const at = static_cast<std::int32_t>(begin - first);
    std::int32_t const end = iterator->current() == at ? iterator->next() : iterator->following(at);
    return first + static_cast<std::size_t>(end);
  }

  void open(std::string_view text, std::size_t begin) {
    first = begin;
    last = begin + std::min<std::size_t>(text.size() - begin, std::numeric_limits<std::int32_t>::max());
    UErrorCode status = U_ZERO_ERROR;
    utext_openUTF8(&input, text.data() + first, static_cast<std::int64_t>(last - first), &status);
    iterator->setText(&input, status);
    if (U_FAILURE(status)) throw std::runtime_error("The text cannot be split into characters.");
  }

  std::unique_ptr<icu::BreakIterator> iterator;
  UText input = UTEXT_INITIALIZER;
  std::size_t first = 0;  // the part of the text that is open; none when both are equal
  std::size_t last = 0;
};

GraphemeCursor::GraphemeCursor(std::string_view text) : text_(text) {}

GraphemeCursor::~GraphemeCursor() = default;

void GraphemeCursor::reset(std::string_view text) {
  text_ = text;
  at_ = 0;
  if (rules_) rules_->first = rules_->last = 0;
}

std::size_t GraphemeCursor::clusterEnd(std::size_t begin) {
  if (text_.substr(begin, 2) == "\r\n") return begin + 2;
  std::size_t middle = begin;
  UChar32 const one = nextCharacter(text_, middle);
  if (middle == text_.size()) return middle;
  std::size_t behind = middle;
  UChar32 const other = nextCharacter(text_, behind);
  if (isSolitary(one) && isSolitary(other)) return middle;
  if (!rules_) rules_ = std::make_unique<Rules>();
  return rules_->clusterEnd(text_, begin);
}

std::size_t graphemeCount(std::string_view text) {
  std::size_t count = 0;
  for (GraphemeCursor cursor(text); cursor.next();) ++count;
  return count;
}

std::string_view firstGraphemes(std::string_view text, std::size_t count) {
  if (text.size() <= count) return text;  // no character is empty
  GraphemeCursor cursor(text);
  std::size_t size = 0;
  while (count-- > 0) {
    auto const cluster = cursor.next();
    if (!cluster) break;
    size += cluster->size();
  }
  return text.substr(0, size);
}

}  // namespace tolva
