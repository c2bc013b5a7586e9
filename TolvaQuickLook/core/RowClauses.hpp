// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "core/BrowseRequest.hpp"
#include "core/RowPage.hpp"
#include "core/TableSchema.hpp"

namespace tolva {

/// Which rows a request shows, and in which order, as the parts of a statement. A value.
struct RowClauses {
  std::vector<std::string> conditions;  // all of them hold
  std::vector<SQLiteValue> parameters;  // one for each "?" of the conditions
  std::vector<std::string> order;       // total where the schema has an identity

  /// " FROM …", with " WHERE …" and " ORDER BY …" where they are needed.
  std::string text(std::string_view table) const;
};

/// The clauses of a request. Throws when a filtered or sorted column is not in the schema.
RowClauses rowClauses(TableSchema const& schema, BrowseRequest const& request);

/// Whether the rows behind `token` are those behind its identity; else they are those behind its offset.
bool goesOnByKey(PageToken const& token, TableSchema const& schema, BrowseRequest const& request);

/// The names of the schema's columns, then those of its identity, as a list of what to select.
std::string selectList(TableSchema const& schema);

}  // namespace tolva
