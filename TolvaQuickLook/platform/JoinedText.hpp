// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <span>
#include <string>
#include <string_view>

namespace tolva {

/// The parts in their order, `separator` between any two. Any thread.
std::string joined(std::span<std::string const> parts, std::string_view separator);

}  // namespace tolva
