// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdint>
#include <vector>

namespace tolva {

/// A byte buffer.
using Bytes = std::vector<std::uint8_t>;

}  // namespace tolva
