// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdint>
#include <span>
#include <string>

namespace tolva {

/// The first 4096 bytes in rows of 16: the offset in eight upper-case hexadecimal digits, two blanks, the bytes with a
/// blank between. More bytes than that are told in a line at the end. Empty for no bytes. Any thread.
std::string hexDump(std::span<std::uint8_t const> bytes);

}  // namespace tolva
