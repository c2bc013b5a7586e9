// SPDX-License-Identifier: Apache-2.0
#include "core/RowSelectionReader.hpp"

#include <algorithm>

#include "core/KeyOrder.hpp"
#include "core/Limit.hpp"
#include "core/RowClauses.hpp"
#include "core/RowCursor.hpp"
#include "core/SQLIdentifier.hpp"
#include "platform/JoinedText.hpp"
#include "platform/TaskCancellation.hpp"

namespace tolva {
namespace {

constexpr Limit selectionMemory{
    std::int64_t{32} << 20, "The selection exceeds the 32 MB operation limit. Select fewer rows or export instead."};

[[noreturn]] void rowsAreGone() {
  throw DatabaseError("Selected rows changed or disappeared. Refresh and select them again.");
}

/// The identities of the first `most` rows in order.
BuiltQuery identityWalk(TableSchema const& schema, BrowseRequest const& request, std::int64_t most) {
  RowClauses clauses = rowClauses(schema, request);
  clauses.parameters.emplace_back(most);
  return {.sql = "SELECT " + joined(quoted(schema.identity), ",") + clauses.text(schema.object.name) + " LIMIT ?",
          .parameters = std::move(clauses.parameters)};
}

/// One row by its identity, still to be bound. Columns compare by their own collation, under which the key's index can
/// be of no use and a text equal to others: so they are compared by the key's, and as they are stored.
BuiltQuery keyLookup(TableSchema const& schema, KeyOrder& order) {
  std::string const table = quoteIdentifier(schema.object.name);
  std::vector<std::string> terms;
  int parameter = 0;
  for (std::string const& name : schema.identity) {
    std::set<std::string> collations = order.keyCollations(name);
    collations.insert("BINARY");
    std::string const term = table + "." + quoteIdentifier(name) + " IS ?" + std::to_string(++parameter) + " COLLATE ";
    for (std::string const& collation : collations) terms.push_back(term + quoteIdentifier(collation));
  }
  return {.sql = "SELECT " + selectList(schema) + " FROM " + table + " WHERE " + joined(terms, " AND "),
          .parameters = std::vector<SQLiteValue>(schema.identity.size())};
}

}  // namespace

std::vector<DatabaseRow> RowSelectionReader::read(RowSelection const& selection) {
  HandleLock const held(connection_);
  if (selection.ranges().size() > 1 && hasRowsByKey()) {
    readScattered(selection);
  } else {
    for (RowSelection::Range const& range : selection.ranges()) readRange(range);
  }
  return std::move(rows_);
}

/// Whether an identity surely leads back to its row. A virtual table, which has no root page, finds rows as its module
/// pleases.
bool RowSelectionReader::hasRowsByKey() const {
  if (!schema_.editable()) return false;
  SQLiteStatement stored = connection_.prepare(
      "SELECT 1 FROM sqlite_schema WHERE type = ? AND name = ? AND rootpage > ?", {"table", schema_.object.name, 0});
  return stored.step();
}

void RowSelectionReader::readRange(RowSelection::Range range) {
  while (range.first < range.end) {
    checkCancellation(task_);
    std::int64_t const read = readChunk(range.first, std::min(range.end - range.first, TableQueryBuilder::mostRows));
    if (read == 0) rowsAreGone();
    range.first += read;
  }
}

std::int64_t RowSelectionReader::readChunk(std::int64_t first, std::int64_t most) {
  BuiltQuery const query =
      TableQueryBuilder::build(schema_, request_, PageToken{.identity = {}, .offset = first}, {.limit = most});
  RowCursor cursor(connection_, query, schema_, RowCursor::Identity::marked);
  std::int64_t read = 0;
  for (; cursor.step(); ++read) {
    checkCancellation(task_);
    add(cursor);
  }
  return read;
}

/// Walks once over the identities in order and looks up the rows that are selected: OFFSET would count from the first
/// row again for each range, and the rows in between would be read whole for nothing.
void RowSelectionReader::readScattered(RowSelection const& selection) {
  SQLiteStatement walk =
      prepareWithinBudget(connection_, identityWalk(schema_, request_, selection.ranges().back().end));
  KeyOrder order(connection_, schema_);
  RowCursor row(connection_, keyLookup(schema_, order), schema_, RowCursor::Identity::marked);
  std::int64_t position = 0;
  for (RowSelection::Range const& range : selection.ranges()) {
    for (; position < range.end; ++position) {
      checkCancellation(task_);
      if (!walk.step()) rowsAreGone();
      if (position < range.first) continue;
      row.restart(walk);
      if (!row.step()) rowsAreGone();
      add(row);
    }
  }
}

void RowSelectionReader::add(RowCursor const& cursor) {
  rows_.push_back(cursor.row());
  memorySize_ += rows_.back().memorySize();
  selectionMemory.check(memorySize_);
}

}  // namespace tolva
