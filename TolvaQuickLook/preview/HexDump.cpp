// SPDX-License-Identifier: Apache-2.0
#include "preview/HexDump.hpp"

#include <algorithm>
#include <cstddef>

namespace tolva {
namespace {

constexpr std::size_t mostBytes = 4096;
constexpr std::size_t rowBytes = 16;
constexpr std::size_t offsetDigits = 8;

void appendByte(std::string& out, std::uint8_t byte) {
  constexpr char digits[] = "0123456789ABCDEF";
  out += digits[byte >> 4];
  out += digits[byte & 0xF];
}

void appendOffset(std::string& out, std::size_t offset) {
  for (int shift = 24; shift >= 0; shift -= 8) appendByte(out, static_cast<std::uint8_t>(offset >> shift));
}

}  // namespace

std::string hexDump(std::span<std::uint8_t const> bytes) {
  auto const shown = bytes.first(std::min(bytes.size(), mostBytes));
  std::string text;
  text.reserve((shown.size() / rowBytes + 1) * (offsetDigits + 2 + 3 * rowBytes));
  for (std::size_t offset = 0; offset < shown.size(); offset += rowBytes) {
    if (offset > 0) text += '\n';
    appendOffset(text, offset);
    text += ' ';
    for (std::uint8_t const byte : shown.subspan(offset, std::min(rowBytes, shown.size() - offset))) {
      text += ' ';
      appendByte(text, byte);
    }
  }
  if (bytes.size() > mostBytes) text += "\nHex display limited to first 4096 bytes.";
  return text;
}

}  // namespace tolva
