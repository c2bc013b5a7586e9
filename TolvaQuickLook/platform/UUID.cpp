// SPDX-License-Identifier: Apache-2.0
#include "platform/UUID.hpp"

#include <sodium.h>

#include "platform/Sodium.hpp"

namespace tolva {
namespace {

constexpr std::string_view layout = "xxxxxxxx-xxxx-xxxx-xxxx-xxxxxxxxxxxx";

std::optional<std::uint8_t> digitValue(char digit) {
  if (digit >= '0' && digit <= '9') return digit - '0';
  if (digit >= 'a' && digit <= 'f') return digit - 'a' + 10;
  if (digit >= 'A' && digit <= 'F') return digit - 'A' + 10;
  return {};
}

}  // namespace

UUID UUID::make() {
  prepareSodium();
  UUID made;
  randombytes_buf(made.octets_.data(), made.octets_.size());
  made.octets_[6] = static_cast<std::uint8_t>((made.octets_[6] & 0x0F) | 0x40);  // version 4
  made.octets_[8] = static_cast<std::uint8_t>((made.octets_[8] & 0x3F) | 0x80);  // the variant of the RFC
  return made;
}

std::optional<UUID> UUID::parse(std::string_view text) {
  if (text.size() != layout.size()) return {};
  UUID read;
  std::size_t digits = 0;
  for (std::size_t i = 0; i < layout.size(); ++i) {
    if (layout[i] == '-') {
      if (text[i] != '-') return {};
      continue;
    }
    auto const value = digitValue(text[i]);
    if (!value) return {};
    auto& octet = read.octets_[digits++ / 2];
    octet = static_cast<std::uint8_t>(octet << 4 | *value);
  }
  return read;
}

std::string UUID::text() const {
  std::string text(layout);
  std::size_t digits = 0;
  for (char& place : text) {
    if (place == '-') continue;
    auto const octet = octets_[digits / 2];
    place = "0123456789ABCDEF"[digits++ % 2 == 0 ? octet >> 4 : octet & 0xF];
  }
  return text;
}

}  // namespace tolva
