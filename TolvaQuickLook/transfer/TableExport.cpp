// SPDX-License-Identifier: Apache-2.0
#include "transfer/TableExport.hpp"

#include <sqlite3.h>

#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "core/KeyOrder.hpp"
#include "core/ReadTransaction.hpp"
#include "core/RowClauses.hpp"
#include "core/RowCursor.hpp"
#include "core/RowsByKey.hpp"
#include "core/SQLIdentifier.hpp"
#include "core/TableQueryBuilder.hpp"
#include "platform/JoinedText.hpp"
#include "platform/TaskCancellation.hpp"
#include "transfer/SpreadsheetCodec.hpp"
#include "transfer/StatementText.hpp"

namespace tolva {
namespace {

std::string headerLine(TableSchema const& schema) {
  std::vector<std::string> names;
  for (DatabaseColumn const& column : schema.columns) names.push_back(column.name);
  return SpreadsheetCodec::encode({names}, ",") + "\r\n";
}

/// A row by its identity. Behind its table's a name that is gone fails; alone it would be a string.
BuiltQuery byIdentity(SQLiteConnection& connection, TableSchema const& schema,
                      std::vector<SQLiteValue> const& identity) {
  std::vector<std::string> columns;
  for (DatabaseColumn const& column : schema.columns) columns.push_back(quoteIdentifier(column.name));
  return {.sql = "SELECT " + joined(columns, ",") + " FROM " + quoteIdentifier(schema.object.name) + " WHERE " +
                 KeyOrder(connection, schema).lookup(),
          .parameters = identity};
}

/// Whether no more rows stand between the ranges than in them.
bool isDense(RowSelection const& selection) {
  std::int64_t const spanned = selection.ranges().back().end - selection.ranges().front().first;
  return spanned - selection.count() <= selection.count();
}

}  // namespace

TableExport::TableExport(ExportOrder const& order, TransferProgress const& progress,
                         std::shared_ptr<CancellationHandle> const& cancellation, std::stop_token task)
    : order_(order),
      schema_(order.schema),
      task_(std::move(task)),
      destination_(order.database, order.destination),
      connection_(SQLiteConnection::open(order.database, {.readOnly = true}, cancellation)),
      file_(destination_, task_),
      progress_(progress),
      writer_(order.schema, order.format, file_, [this](std::int64_t rows) { tell(rows); }) {}

std::int64_t TableExport::run() {
  begin();
  writeRows();
  end();
  file_.publish();
  return writer_.rows();
}

// The frame ----------------------------------------------------------------------------------------

void TableExport::begin() {
  switch (order_.format) {
    case ExportFormat::csv:
      return file_.put(headerLine(schema_));
    case ExportFormat::json:
      return file_.put("[\n");
    case ExportFormat::sql:
      return file_.put(createStatement() + "\n");
  }
}

/// As the database holds it, and its end. A forged schema can hold more than the one statement, which SQLite never looks
/// at but whoever runs the file would run.
std::string TableExport::createStatement() {
  std::string const sql = storedStatement();
  auto const end = statementEnd(sql);
  if (!end) throw DatabaseError("database disk image is malformed", SQLITE_CORRUPT);
  return sql + std::string(*end);
}

/// The schema's own text, unless that is only a marker in place of a text too large to carry.
std::string TableExport::storedStatement() {
  if (schema_.object.kind != "table") throw DatabaseError("SQL export requires a table; use CSV or JSON for a view.");
  if (!schema_.object.sql.starts_with("Large Text · ")) return schema_.object.sql;
  SQLiteStatement stored =
      prepareWithinBudget(*connection_, {.sql = "SELECT sql FROM sqlite_schema WHERE type = ? AND name = ?",
                                         .parameters = {"table", schema_.object.name}});
  if (!stored.step()) throw DatabaseError("no such table: " + schema_.object.name);
  return stored.value(0, /*full=*/true).display();
}

void TableExport::end() {
  if (order_.format == ExportFormat::json) file_.put("\n]\n");
}

// Rows ---------------------------------------------------------------------------------------------

void TableExport::writeRows() {
  held_.emplace(*connection_);
  if (order_.rows.selectedIndices)
    writePositions();
  else if (order_.rows.selected)
    writeSelected();
  else
    writeBrowsed();
  held_.reset();
}

/// The handle is free meanwhile: whoever is told may cancel, and waits for what it likes.
void TableExport::tell(std::int64_t rows) {
  if (!progress_) return;
  held_.reset();
  progress_(rows);
  held_.emplace(*connection_);
}

/// By the first row SQLite has all files of the database open.
void TableExport::write(RowCursor const& row) {
  checkCancellation(task_);
  if (writer_.rows() == 0) destination_.noteFiles();
  writer_.write(row.statement());
}

void TableExport::writeBrowsed() {
  RowCursor row(*connection_, TableQueryBuilder::build(schema_, order_.rows.request), schema_,
                RowCursor::Identity::marked);
  while (row.step()) write(row);
}

/// One statement serves all rows, each run of it for itself: the rows are those of no one moment.
void TableExport::writeSelected() {
  if (schema_.identity.empty()) throw DatabaseError("Selected-row export requires stable row identities.");
  std::optional<RowCursor> found;
  for (DatabaseRow const& row : *order_.rows.selected) {
    checkCancellation(task_);
    if (found)
      found->restart(row.identity);
    else
      found.emplace(*connection_, byIdentity(*connection_, schema_, row.identity), schema_,
                    RowCursor::Identity::marked);
    while (found->step()) write(*found);
  }
}

/// A walk over everything from the first selected row to the last reads no more than twice what is asked for where the
/// selection is dense; where it is not, rows are looked up by their keys, or there is no better way.
void TableExport::writePositions() {
  RowSelection const& selection = *order_.rows.selectedIndices;
  if (selection.ranges().empty()) throw DatabaseError("Select rows to export first.");
  ReadTransaction const snapshot(*connection_);
  RowsByKey const byKey(*connection_, schema_, order_.rows.request);
  if (isDense(selection) || !byKey.areFound()) return writePositionsInOneWalk();
  byKey.read(
      selection, [&](RowCursor const& row) { write(row); }, task_);
}

void TableExport::writePositionsInOneWalk() {
  std::vector<RowSelection::Range> const& ranges = order_.rows.selectedIndices->ranges();
  std::int64_t position = ranges.front().first;
  BuiltQuery query = TableQueryBuilder::build(schema_, order_.rows.request);
  query.sql += " LIMIT ? OFFSET ?";
  query.parameters.emplace_back(ranges.back().end - position);
  query.parameters.emplace_back(position);
  RowCursor row(*connection_, query, schema_, RowCursor::Identity::marked);
  for (RowSelection::Range const& range : ranges) {
    for (; position < range.end; ++position) {
      checkCancellation(task_);
      if (!row.step()) selectedRowsAreGone();
      if (position >= range.first) write(row);
    }
  }
}

}  // namespace tolva
