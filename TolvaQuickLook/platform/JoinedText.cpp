// SPDX-License-Identifier: Apache-2.0
#include "platform/JoinedText.hpp"

namespace tolva {

std::string joined(std::span<std::string const> parts, std::string_view separator) {
  std::string text;
  for (std::string const& part : parts) {
    if (&part != &parts.front()) text += separator;
    text += part;
  }
  return text;
}

}  // namespace tolva
