// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdint>
#include <optional>
#include <string>

namespace tolva {

/// How one schema object differs between two snapshots. A value.
struct TableDifference {
  std::string name;
  std::string kind;         // as `sqlite_schema` says: "table", "index", "view" or "trigger"
  std::string status;       // "Compared", "Not compared", "Schema changed", "Added" or "Removed"
  std::string explanation;  // one line for the person
  std::int64_t inserted = 0;
  std::int64_t updated = 0;
  std::int64_t deleted = 0;
  std::optional<std::string> beforeSQL;  // the definition in the older one
  std::optional<std::string> afterSQL;   // and in the newer

  std::string id() const { return kind + ":" + name; }
  bool compared() const { return status == "Compared"; }

  bool operator==(TableDifference const&) const = default;
};

}  // namespace tolva
