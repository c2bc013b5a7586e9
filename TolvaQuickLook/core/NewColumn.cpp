// SPDX-License-Identifier: Apache-2.0
#include "core/NewColumn.hpp"

#include "core/SQLIdentifier.hpp"

namespace tolva {

std::string NewColumn::sql() const {
  std::string sql = quoteIdentifier(name) + " " + type;
  if (primaryKey) sql += " PRIMARY KEY";
  if (required) sql += " NOT NULL";
  if (defaultSQL) sql += " DEFAULT " + *defaultSQL;
  if (referenceTable && referenceColumn) {
    sql += " REFERENCES " + quoteIdentifier(*referenceTable) + "(" + quoteIdentifier(*referenceColumn) + ")";
  }
  return sql;
}

}  // namespace tolva
