// SPDX-License-Identifier: Apache-2.0
#include "core/QuerySafety.hpp"

#include <algorithm>
#include <array>
#include <string>

#include "platform/WordSearch.hpp"

namespace tolva {
namespace {

constexpr std::array<std::string_view, 5> warned{"DROP", "ALTER", "DELETE", "UPDATE", "REPLACE"};

/// The size of the comment at the front of `text`, its line end not counted; 0 where none begins. A block comment that
/// never ends is none, and `blocksEnd` says whether another end may still be found.
std::size_t commentSize(std::string_view text, bool& blocksEnd) {
  if (text.starts_with("--")) return std::min(text.find('\n'), text.size());
  if (!blocksEnd || !text.starts_with("/*")) return 0;
  std::size_t const end = text.find("*/", 2);
  blocksEnd = end != text.npos;
  return blocksEnd ? end + 2 : 0;
}

std::string withoutComments(std::string_view sql) {
  std::string bare;
  bare.reserve(sql.size());
  bool blocksEnd = true;
  while (!sql.empty()) {
    std::size_t const size = commentSize(sql, blocksEnd);
    bare += size > 0 ? ' ' : sql.front();
    sql.remove_prefix(std::max<std::size_t>(size, 1));
  }
  return bare;
}

}  // namespace

bool QuerySafety::needsConfirmation(std::string_view sql) { return containsWord(withoutComments(sql), warned); }

}  // namespace tolva
