// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <string>
#include <string_view>

/// Text of a database as it may be printed: a control character, which a terminal might obey, becomes a picture of
/// itself. Line feeds and tabs stay.
inline std::string terminalText(std::string_view text) {
  std::string shown;
  for (std::size_t at = 0; at < text.size(); ++at) {
    auto const byte = static_cast<unsigned char>(text[at]);
    auto const next = at + 1 < text.size() ? static_cast<unsigned char>(text[at + 1]) : 0;
    if (byte < 0x20 && byte != '\n' && byte != '\t') {
      shown += {'\xe2', '\x90', static_cast<char>(0x80 + byte)};  // U+2400 and the ones after it
    } else if (byte == 0x7f) {
      shown += "\u2421";
    } else if (byte == 0xc2 && next >= 0x80 && next < 0xa0) {  // those of eight bits have no pictures
      shown += "\ufffd";
      ++at;
    } else {
      shown += text[at];
    }
  }
  return shown;
}
