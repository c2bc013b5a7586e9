// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "core/BrowseRequest.hpp"
#include "core/RowPage.hpp"
#include "core/TableSchema.hpp"
#include "platform/Export.hpp"

namespace tolva {

/// A statement and what to bind to it. A value.
struct BuiltQuery {
  std::string sql;
  std::vector<SQLiteValue> parameters;  // one for each "?", in the order of the text

  bool operator==(BuiltQuery const&) const = default;
};

/// What of the rows a query asks for.
struct QueryScope {
  std::optional<std::int64_t> limit;  // brought into 1 to `mostRows`; all rows where there is none
  bool countOnly = false;             // their number in place of them
};

/// The statements by which rows are browsed. Touches no database; any thread.
namespace TableQueryBuilder {

/// A statement here never fetches more rows, whoever asks.
inline constexpr std::int64_t mostRows = 500;

/// The rows of `request` behind `token`, each with the schema's columns first and its identity after them.
///
/// An unsorted page goes on behind the token's identity, at the same cost anywhere in a table; where that does not
/// serve (a sort, no identity, a deferred value in it) the token's offset counts. Throws when a filtered or sorted
/// column is not in the schema.
TOLVA_EXPORT BuiltQuery build(TableSchema const& schema, BrowseRequest const& request,
                              std::optional<PageToken> const& token = {}, QueryScope const& scope = {});

}  // namespace TableQueryBuilder
}  // namespace tolva
