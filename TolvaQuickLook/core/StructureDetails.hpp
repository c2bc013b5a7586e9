// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <string>
#include <vector>

namespace tolva {

/// The structure of a table as display rows, each ready for a table view. A value.
struct StructureDetails {
  using Row = std::vector<std::string>;

  std::vector<Row> indexes;      // name; "Unique" or empty; columns joined by ", ", the auxiliary rowid as "NULL"
  std::vector<Row> foreignKeys;  // child column; parent table "." parent column; "Update: … · Delete: …"
  std::vector<Row> triggers;     // name; SQL

  bool operator==(StructureDetails const&) const = default;
};

}  // namespace tolva
