// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <string>
#include <string_view>

namespace tolva {

/// The name between double quotes, each double quote in it doubled. Every identifier in every SQL text and pragma goes
/// through here; none is pasted bare or bound.
inline std::string quoteIdentifier(std::string_view name) {
  std::string quoted = "\"";
  for (char const c : name) {
    if (c == '"') quoted += '"';
    quoted += c;
  }
  return quoted += '"';
}

}  // namespace tolva
