// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>

#include "platform/Bytes.hpp"

namespace tolva {

/// All that comes on standard input. None for more than `most` bytes and when it cannot be read.
std::optional<Bytes> readRequest(std::size_t most);

/// Writes all of `answer` to standard output. False when it cannot be written.
bool writeAnswer(std::span<std::uint8_t const> answer);

}  // namespace tolva
