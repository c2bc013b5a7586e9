// SPDX-License-Identifier: Apache-2.0
#include "preview/JSONDepth.hpp"

#include <cstddef>

namespace tolva {
namespace {

constexpr int mostOpen = 64;

/// The place behind the string whose inside begins at `at`; npos when nothing closes it.
std::size_t stringEnd(std::string_view text, std::size_t at) {
  for (; at < text.size(); ++at) {
    if (text[at] == '"') return at + 1;
    if (text[at] == '\\') ++at;
  }
  return std::string_view::npos;
}

}  // namespace

bool jsonDepthIsSafe(std::string_view text) {
  int open = 0;
  for (std::size_t at = 0; at < text.size();) {
    switch (text[at++]) {
      case '"':
        at = stringEnd(text, at);
        if (at == text.npos) return false;
        break;
      case '{':
      case '[':
        if (++open > mostOpen) return false;
        break;
      case '}':
      case ']':
        if (--open < 0) return false;
        break;
      default:
        break;
    }
  }
  return open == 0;
}

}  // namespace tolva
