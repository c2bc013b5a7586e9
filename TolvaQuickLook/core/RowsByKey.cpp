// SPDX-License-Identifier: Apache-2.0
#include "core/RowsByKey.hpp"

#include <string>
#include <vector>

#include "core/KeyOrder.hpp"
#include "core/RowClauses.hpp"
#include "core/RowCursor.hpp"
#include "core/SQLIdentifier.hpp"
#include "platform/JoinedText.hpp"
#include "platform/TaskCancellation.hpp"

namespace tolva {
namespace {

/// The identities of the first `most` rows in order.
BuiltQuery identityWalk(TableSchema const& schema, BrowseRequest const& request, std::int64_t most) {
  RowClauses clauses = rowClauses(schema, request);
  clauses.parameters.emplace_back(most);
  return {.sql = "SELECT " + joined(quoted(schema.identity), ",") + clauses.text(schema.object.name) + " LIMIT ?",
          .parameters = std::move(clauses.parameters)};
}

/// One row by its identity, still to be bound.
BuiltQuery keyLookup(TableSchema const& schema, KeyOrder& order) {
  return {.sql = "SELECT " + selectList(schema) + " FROM " + quoteIdentifier(schema.object.name) + " WHERE " +
                 order.lookup(),
          .parameters = std::vector<SQLiteValue>(schema.identity.size())};
}

}  // namespace

bool RowsByKey::areFound() const {
  if (!schema_.editable()) return false;
  SQLiteStatement stored = prepareWithinBudget(
      connection_, {.sql = "SELECT 1 FROM sqlite_schema WHERE type = ? AND name = ? AND rootpage > ?",
                    .parameters = {"table", schema_.object.name, 0}});
  return stored.step() && KeyOrder(connection_, schema_).isTotal();
}

void RowsByKey::read(RowSelection const& selection, std::function<void(RowCursor const&)> const& take,
                     std::stop_token const& task) const {
  SQLiteStatement walk =
      prepareWithinBudget(connection_, identityWalk(schema_, request_, selection.ranges().back().end));
  KeyOrder order(connection_, schema_);
  RowCursor row(connection_, keyLookup(schema_, order), schema_, RowCursor::Identity::marked);
  std::int64_t position = 0;
  for (RowSelection::Range const& range : selection.ranges()) {
    for (; position < range.end; ++position) {
      checkCancellation(task);
      if (!walk.step()) selectedRowsAreGone();
      if (position < range.first) continue;
      row.restart(walk);
      if (!row.step()) selectedRowsAreGone();
      take(row);
      if (row.step()) selectedRowsAreGone();  // the key is none any more: which of the rows stands here is not known
    }
  }
}

void selectedRowsAreGone() {
  throw DatabaseError("Selected rows changed or disappeared. Refresh and select them again.");
}

}  // namespace tolva
