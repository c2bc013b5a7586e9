// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "core/DatabaseObject.hpp"

namespace tolva {

/// One column of a table or view. A value.
struct DatabaseColumn {
  std::string name;
  std::string type;                       // declared type, as written, possibly empty
  bool required = false;                  // declared NOT NULL
  std::int64_t primaryKey = 0;            // 1-based position in the primary key; 0 if not part of it
  std::optional<std::string> defaultSQL;  // the default expression as SQL text
  bool generated = false;                 // virtual or stored

  bool operator==(DatabaseColumn const&) const = default;
};

/// The columns of a table or view and what names one of its rows. A value.
struct TableSchema {
  DatabaseObject object;
  std::vector<DatabaseColumn> columns;  // visible ones, in table order
  std::vector<std::string> identity;    // columns that name a row, in key order; may be a rowid name that is no column
  bool withoutRowID = false;
  bool strict = false;

  /// Whether a row can be named, and so changed. Never so for a view.
  bool editable() const { return object.kind == "table" && !identity.empty(); }

  bool operator==(TableSchema const&) const = default;
};

}  // namespace tolva
