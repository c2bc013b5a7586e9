// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstddef>
#include <string>
#include <string_view>

namespace tolva {

inline std::string repeated(std::string_view text, std::size_t times) {
  std::string result;
  for (std::size_t time = 0; time < times; ++time) result += text;
  return result;
}

}  // namespace tolva
