// SPDX-License-Identifier: Apache-2.0
// The operations of the reader on rows.
#include <sqlite3.h>

#include "core/DatabaseReader.hpp"
#include "core/Limit.hpp"
#include "core/ReadTransaction.hpp"
#include "core/RowClauses.hpp"
#include "core/RowCursor.hpp"
#include "core/RowSelectionReader.hpp"
#include "core/SQLIdentifier.hpp"
#include "core/TableQueryBuilder.hpp"
#include "core/TraceInterval.hpp"

namespace tolva {
namespace {

constexpr std::int64_t pageRows = 500;
constexpr std::int64_t pageMemory = std::int64_t{4} << 20;  // the row that reaches it is the page's last

constexpr Limit selectionRows{
    10'000, "Select at most 10,000 rows for this operation. Use a streaming export for larger selections."};

/// What narrows the rows of a request down is traced on its own.
char const* fetchName(BrowseRequest const& request) {
  if (!request.search.empty()) return "search";
  return request.filters.empty() ? nullptr : "filter query";
}

/// Reads the rows of a page. The token behind them names the last row by its identity, unless that held text which had
/// to be repaired: such a text has another place in the order, where rows would repeat for ever.
RowPage readPage(RowCursor& cursor, std::int64_t delivered, std::stop_token const& task) {
  RowPage page;
  page.rows.reserve(pageRows);
  bool exact = true;
  for (std::int64_t memory = 0; memory < pageMemory && cursor.step();) {
    checkCancellation(task);
    DatabaseRow const& row = page.rows.emplace_back(cursor.row());
    exact = cursor.hasExactly(row.identity);
    memory += row.memorySize();
  }
  if (page.rows.empty()) return page;
  page.next = PageToken{.identity = exact ? page.rows.back().identity : std::vector<SQLiteValue>(),
                        .offset = delivered + static_cast<std::int64_t>(page.rows.size())};
  return page;
}

/// Fails when a page by key ends before the key it began behind, as it can where a damaged file has its rows out of
/// order: one page would lead to the other for ever.
void checkAdvance(RowPage const& page, std::optional<PageToken> const& token, BrowseRequest const& request) {
  if (request.sort || !token || token->identity.empty() || !page.next || page.next->identity.empty()) return;
  std::int64_t const* const from = token->identity.front().asInteger();
  std::int64_t const* const to = page.next->identity.front().asInteger();
  if (!from || !to) return;
  bool const isWholeKey = page.next->identity.size() == 1;
  if (*to < *from || (isWholeKey && *to == *from)) {
    throw DatabaseError("database disk image is malformed", SQLITE_CORRUPT);
  }
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
  if (char const* const name = fetchName(request)) narrowed.emplace(name);
  BuiltQuery const query = TableQueryBuilder::build(schema, request, token, {.limit = pageRows});
  RowCursor cursor(db(), query, schema, RowCursor::Identity::asKey);
  HandleLock const held(db());
  RowPage page = readPage(cursor, token ? token->offset : 0, task);
  checkAdvance(page, token, request);
  return page;
}

std::int64_t DatabaseReader::count(TableSchema const& schema, BrowseRequest const& request) {
  Turn const turn(turns_);
  BuiltQuery const query = TableQueryBuilder::build(schema, request, {}, {.countOnly = true});
  SQLiteStatement statement = prepareWithinBudget(db(), query);
  if (!statement.step()) return 0;
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
