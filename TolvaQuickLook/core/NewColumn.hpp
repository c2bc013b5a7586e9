// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <optional>
#include <string>

#include "platform/Export.hpp"

namespace tolva {

/// A column that a table is to get. A value.
///
/// `type` and `defaultSQL` are SQL in their own right and reach SQLite as they were typed; the names are quoted.
struct TOLVA_EXPORT NewColumn {
  std::string name;
  std::string type;
  bool required = false;                    // NOT NULL
  std::optional<std::string> defaultSQL{};  // an expression
  bool primaryKey = false;
  std::optional<std::string> referenceTable{};  // a foreign key needs both, one alone is left out
  std::optional<std::string> referenceColumn{};

  bool operator==(NewColumn const&) const = default;

  /// The column as it stands in CREATE TABLE and behind ADD COLUMN.
  std::string sql() const;
};

}  // namespace tolva
