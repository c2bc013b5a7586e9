// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <string_view>

#include "platform/Bytes.hpp"

namespace tolva {

/// Bytes in the base64 alphabet with padding (RFC 4648, section 4), without line breaks. Any thread.
std::string base64(std::span<std::uint8_t const> bytes);

/// Reads what `base64` writes and nothing else: none for white space, missing or surplus padding, the alphabet for file
/// names, and unused bits that are not zero. Any thread.
std::optional<Bytes> bytesFromBase64(std::string_view text);

}  // namespace tolva
