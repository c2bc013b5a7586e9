// SPDX-License-Identifier: Apache-2.0
#include "core/RowCursor.hpp"

#include <sqlite3.h>

#include <optional>

#include "core/IdentityValue.hpp"
#include "core/MemoryBudget.hpp"
#include "core/SQLIdentifier.hpp"
#include "core/StoredText.hpp"
#include "platform/ASCIICase.hpp"

namespace tolva {

namespace {

/// Whether SQLite knows the rowid by this name where no column has it.
bool namesRowid(std::string const& name) {
  std::string const lower = lowerASCII(name);
  return lower == "rowid" || lower == "oid" || lower == "_rowid_";
}

}  // namespace

SQLiteStatement prepareWithinBudget(SQLiteConnection& connection, BuiltQuery const& query) {
  std::optional<MemoryBudget> preparing(MemoryBudget::ordinary);
  SQLiteStatement statement(connection.shared_from_this(), query.sql);
  preparing.reset();
  statement.bind(query.parameters);
  return statement;
}

RowCursor::RowCursor(SQLiteConnection& connection, BuiltQuery const& query, TableSchema const& schema,
                     Identity identity)
    : statement_(prepareWithinBudget(connection, query)),
      schema_(schema),
      columns_(static_cast<int>(schema.columns.size())),
      keys_(statement_.columnCount() - columns_),
      identity_(identity) {}

bool RowCursor::step() {
  bool const isRow = statement_.step();
  if (!hasStepped_) requireColumnsAnew();  // only now is the statement surely compiled under the schema of today
  hasStepped_ = true;
  return isRow;
}

DatabaseRow RowCursor::row() const {
  DatabaseRow row;
  statement_.append(row.values, 0, columns_, /*full=*/false);
  row.identity.reserve(static_cast<std::size_t>(keys_));
  for (int column = columns_; column < columns_ + keys_; ++column) row.identity.push_back(key(column));
  return row;
}

SQLiteValue RowCursor::key(int column) const {
  sqlite3_value* const stored = sqlite3_column_value(statement_.handle(), column);
  if (sqlite3_value_type(stored) == SQLITE_INTEGER) return sqlite3_value_int64(stored);  // a rowid, most often
  if (identity_ == Identity::asKey) return identityValue(statement_, column);
  bool const isValid = isReadAsStored(statement_, column);
  SQLiteValue value = statement_.value(column, identity_ == Identity::wholly);
  return isValid ? value : deferred(value);
}

/// The columns were found under the schema for which the statement is compiled, which SQLite counts.
void RowCursor::requireColumnsAnew() {
  int const compiled = sqlite3_stmt_status(statement_.handle(), SQLITE_STMTSTATUS_REPREPARE, /*resetFlg=*/0);
  if (foundAt_ == compiled) return;
  requireColumns();
  foundAt_ = compiled;
}

/// A column bears its own name, a string the text that it was written as.
void RowCursor::requireColumns() const {
  for (int column = 0; column < columns_ + keys_; ++column) {
    char const* const found = sqlite3_column_name(statement_.handle(), column);
    if (!found) throw statement_.connection()->error(SQLITE_NOMEM);
    bool const isColumn = column < columns_;
    std::string const& name = isColumn ? schema_.columns[static_cast<std::size_t>(column)].name
                                       : schema_.identity[static_cast<std::size_t>(column - columns_)];
    bool const isString = *found == '"' && found == quoteIdentifier(name);
    bool const isGone = isString || (isColumn && namesRowid(name) && !hasColumn(name));
    if (isGone) throw DatabaseError("no such column: " + name);
  }
}

/// Asked while the statement reads, so that both see one schema.
bool RowCursor::hasColumn(std::string const& name) const {
  SQLiteStatement column = prepareWithinBudget(
      *statement_.connection(), {.sql = "PRAGMA table_xinfo(" + quoteIdentifier(schema_.object.name) + ")"});
  while (column.step()) {
    SQLiteValue const found = column.value(1, /*full=*/true);
    if (found.asText() && lowerASCII(*found.asText()) == lowerASCII(name)) return true;
  }
  return false;
}

void RowCursor::restart(SQLiteStatement const& source) {
  sqlite3_reset(statement_.handle());
  for (int column = 0; column < source.columnCount(); ++column) {
    int const bound =
        sqlite3_bind_value(statement_.handle(), column + 1, sqlite3_column_value(source.handle(), column));
    if (bound != SQLITE_OK) throw statement_.connection()->error(bound);
  }
}

void RowCursor::restart(std::span<SQLiteValue const> parameters) {
  sqlite3_reset(statement_.handle());
  statement_.bind(parameters);
  hasStepped_ = false;
}

}  // namespace tolva
