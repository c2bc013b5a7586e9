// SPDX-License-Identifier: Apache-2.0
// The operations of the reader on rows.
#include <sqlite3.h>

#include <limits>
#include <stdexcept>

#include "core/DatabaseReader.hpp"
#include "core/KeyOrder.hpp"
#include "core/Limit.hpp"
#include "core/ReadTransaction.hpp"
#include "core/RowClauses.hpp"
#include "core/RowCursor.hpp"
#include "core/RowSelectionReader.hpp"
#include "core/SQLIdentifier.hpp"
#include "core/TableQueryBuilder.hpp"
#include "core/TraceInterval.hpp"
#include "platform/JoinedText.hpp"

namespace tolva {
namespace {

constexpr std::int64_t pageMemory = std::int64_t{4} << 20;  // the row that reaches it is the page's last

constexpr Limit selectionRows{
    10'000, "Select at most 10,000 rows for this operation. Use a streaming export for larger selections."};

/// The offset behind `rows` more. What no table can hold is a fault of the program that made the token.
std::int64_t advanced(std::int64_t offset, std::size_t rows) {
  auto const count = static_cast<std::int64_t>(rows);
  if (offset > std::numeric_limits<std::int64_t>::max() - count)
    throw std::out_of_range("No row stands at the last position");
  return offset + count;
}

RowPage readPage(RowCursor& cursor, std::int64_t delivered, std::stop_token const& task) {
  RowPage page;
  page.rows.reserve(TableQueryBuilder::mostRows);
  for (std::int64_t memory = 0; memory < pageMemory && cursor.step();) {
    checkCancellation(task);
    memory += page.rows.emplace_back(cursor.row()).memorySize();
  }
  if (page.rows.empty()) return page;
  page.next = PageToken{.identity = page.rows.back().identity, .offset = advanced(delivered, page.rows.size())};
  return page;
}

/// Fails when a page by key leads back to where it began, as it can where a damaged file has its rows out of order: one
/// page would lead to the other for ever. SQLite itself compares each row with a key of several columns, so that no
/// page by one goes back. A token whose key would skip rows leads on by its offset.
void checkNext(RowPage& page, SQLiteConnection& connection, TableSchema const& schema, BrowseRequest const& request,
               std::optional<PageToken> const& token) {
  if (!page.next || !goesOnByKey(*page.next, schema, request)) return;
  std::vector<SQLiteValue>& identity = page.next->identity;
  KeyOrder order(connection, schema);
  bool const isJudged = identity.size() == 1 && token && goesOnByKey(*token, schema, request);
  if (isJudged && order.contradicts(token->identity.front(), identity.front())) {
    throw DatabaseError("database disk image is malformed", SQLITE_CORRUPT);
  }
  if (order.mayHideRows(identity)) identity.clear();
}

/// Fails where the schema is stale, as a page does. A count names no column, so it is asked of the rows that it counts,
/// under the schema that the count has just read.
void requireColumns(SQLiteConnection& connection, TableSchema const& schema, BrowseRequest const& request) {
  RowCursor(connection, TableQueryBuilder::build(schema, request), schema, RowCursor::Identity::marked)
      .requireColumns();
}

BuiltQuery rowByIdentity(TableSchema const& schema, std::vector<SQLiteValue> const& identity) {
  std::vector<std::string> terms = quoted(schema.identity);
  for (std::string& term : terms) term += " IS ?";
  return {.sql = "SELECT " + selectList(schema) + " FROM " + quoteIdentifier(schema.object.name) + " WHERE " +
                 joined(terms, " AND ") + " LIMIT 1",
          .parameters = identity};
}

}  // namespace

RowPage DatabaseReader::page(TableSchema const& schema, BrowseRequest const& request,
                             std::optional<PageToken> const& token, std::stop_token task) {
  Turn const turn(turns_);
  checkCancellation(task);
  TraceInterval const interval(token ? "page fetch" : "initial page");
  std::optional<TraceInterval> narrowed;
  if (!request.search.empty()) narrowed.emplace("search");
  if (request.search.empty() && !request.filters.empty()) narrowed.emplace("filter query");
  BuiltQuery const query = TableQueryBuilder::build(schema, request, token, {.limit = TableQueryBuilder::mostRows});
  RowCursor cursor(db(), query, schema, RowCursor::Identity::asKey);
  HandleLock const held(db());
  RowPage page = readPage(cursor, token ? token->offset : 0, task);
  checkNext(page, db(), schema, request, token);
  return page;
}

std::int64_t DatabaseReader::count(TableSchema const& schema, BrowseRequest const& request) {
  Turn const turn(turns_);
  BuiltQuery const query = TableQueryBuilder::build(schema, request, {}, {.countOnly = true});
  SQLiteStatement statement = prepareWithinBudget(db(), query);
  if (!statement.step()) return 0;
  if (!request.filters.empty() || !request.search.empty()) requireColumns(db(), schema, request);
  SQLiteValue const counted = statement.value(0, /*full=*/false);
  return counted.asInteger() ? *counted.asInteger() : 0;
}

std::optional<DatabaseRow> DatabaseReader::row(TableSchema const& schema, std::vector<SQLiteValue> const& identity) {
  Turn const turn(turns_);
  if (identity.size() != schema.identity.size() || identity.empty()) return {};
  RowCursor cursor(db(), rowByIdentity(schema, identity), schema, RowCursor::Identity::wholly);
  if (!cursor.step()) return {};
  return cursor.row();
}

std::vector<DatabaseRow> DatabaseReader::selectedRows(TableSchema const& schema, BrowseRequest const& request,
                                                      RowSelection const& indices, std::stop_token task) {
  Turn const turn(turns_);
  selectionRows.check(indices.count());
  ReadTransaction const transaction(db());
  return RowSelectionReader(db(), schema, request, std::move(task)).read(indices);
}

}  // namespace tolva
