// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstddef>
#include <functional>
#include <string>

namespace tolva {

/// A table or view of a database. A value.
struct DatabaseObject {
  std::string name;
  std::string kind;  // "table" or "view"
  std::string sql;   // the creating statement; empty when the schema holds none

  bool operator==(DatabaseObject const&) const = default;
};

}  // namespace tolva

template <>
struct std::hash<tolva::DatabaseObject> {
  std::size_t operator()(tolva::DatabaseObject const& object) const noexcept {
    std::size_t combined = 0;
    for (std::string const* const field : {&object.name, &object.kind, &object.sql}) {
      combined = combined * 31 + std::hash<std::string>()(*field);
    }
    return combined;
  }
};
