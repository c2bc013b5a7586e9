// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <span>
#include <string>
#include <string_view>
#include <vector>

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

/// Each of the names quoted.
inline std::vector<std::string> quoted(std::span<std::string const> names) {
  std::vector<std::string> list;
  list.reserve(names.size());
  for (std::string const& name : names) list.push_back(quoteIdentifier(name));
  return list;
}

}  // namespace tolva
