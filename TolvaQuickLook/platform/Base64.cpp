// SPDX-License-Identifier: Apache-2.0
#include "platform/Base64.hpp"

#include <sodium.h>

#include "platform/Sodium.hpp"

namespace tolva {
namespace {

constexpr int variant = sodium_base64_VARIANT_ORIGINAL;

}  // namespace

std::string base64(std::span<std::uint8_t const> bytes) {
  prepareSodium();
  std::string text(sodium_base64_encoded_len(bytes.size(), variant), '\0');  // counts a final NUL
  sodium_bin2base64(text.data(), text.size(), bytes.data(), bytes.size(), variant);
  text.pop_back();
  return text;
}

std::optional<Bytes> bytesFromBase64(std::string_view text) {
  prepareSodium();
  Bytes bytes(text.size() / 4 * 3 + 1);  // one too many, since libsodium takes no null pointer
  std::size_t length = 0;
  char const* end = nullptr;
  int const failed = sodium_base642bin(bytes.data(), bytes.size(), text.data(), text.size(), /*ignore=*/nullptr,
                                       &length, &end, variant);
  if (failed || end != text.data() + text.size()) return {};  // it stops quietly at the first foreign character
  bytes.resize(length);
  return bytes;
}

}  // namespace tolva
