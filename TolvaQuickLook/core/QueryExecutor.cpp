// SPDX-License-Identifier: Apache-2.0
#include "core/QueryExecutor.hpp"

#include <sqlite3.h>

#include <algorithm>
#include <array>
#include <iterator>
#include <limits>
#include <utility>

#include "core/DatabaseBackup.hpp"
#include "core/HeapLimits.hpp"
#include "core/Limit.hpp"
#include "core/QueryScript.hpp"
#include "core/QuerySpool.hpp"
#include "core/SQLiteConnection.hpp"
#include "core/SQLiteStatement.hpp"
#include "platform/TaskCancellation.hpp"
#include "platform/WordSearch.hpp"
#include "preview/CellPreviewService.hpp"

namespace tolva {
namespace {

using Row = std::vector<SQLiteValue>;

constexpr std::int64_t fillBytes = 4'194'304;  // after which a fill stops for now

constexpr Limit copiedRows{10'000, "Select at most 10,000 query rows to copy."};
constexpr Limit copiedBytes{33'554'432, "Select fewer rows: copying is limited to 32 MB."};
constexpr Limit previewedBytes{
    8'388'608, "Query values larger than 8 MiB are not captured for preview. Select a bounded substring explicitly."};

constexpr std::array<std::string_view, 2> schemaWords{"DROP", "ALTER"};

// What a script may not do ---------------------------------------------------------------------------

// The SQL is the person's own: this keeps them from other files and from switching off what protects the database, and
// is no sandbox for SQL of somebody else.

/// Pragmas that only the host sets; a script may read them.
constexpr std::array<char const*, 3> hostPragmas{"foreign_keys", "query_only", "writable_schema"};

int authorize(void*, int action, char const* name, char const* argument, char const*, char const*) noexcept {
  switch (action) {
    case SQLITE_ATTACH:
    case SQLITE_DETACH:
      return SQLITE_DENY;
    case SQLITE_PRAGMA: {
      auto const isNamed = [name](char const* pragma) { return sqlite3_stricmp(name, pragma) == 0; };
      return name && argument && std::ranges::any_of(hostPragmas, isNamed) ? SQLITE_DENY : SQLITE_OK;
    }
    default:
      return SQLITE_OK;
  }
}

// Backups ------------------------------------------------------------------------------------------

bool hasLostItsName(SQLiteConnection const& connection) {
  int moved = 0;
  sqlite3_file_control(connection.handle(), "main", SQLITE_FCNTL_HAS_MOVED, &moved);
  return moved != 0;
}

/// Whether a script has locked the file for itself (https://sqlite.org/pragma.html#pragma_locking_mode), so that nobody
/// else can have written since, nor can read. The mode itself does not tell: the lock comes later.
bool keepsOthersOut(SQLiteConnection const& connection) {
  int lock = SQLITE_LOCK_NONE;
  sqlite3_file_control(connection.handle(), "main", SQLITE_FCNTL_LOCKSTATE, &lock);
  return lock == SQLITE_LOCK_EXCLUSIVE;
}

/// Another connection to the same file, which reads it as it is now.
std::shared_ptr<SQLiteConnection> anotherOn(SQLiteConnection const& connection) {
  return SQLiteConnection::open(sqlite3_db_filename(connection.handle(), "main"), {.readOnly = true});
}

// The result ---------------------------------------------------------------------------------------

bool reads(SQLiteStatement const& statement) { return sqlite3_stmt_readonly(statement.handle()) != 0; }

/// Ends a statement that was given up between two rows, and takes back what it changed. SQLite would commit that, so
/// the statement is made to fail first. In a transaction of the script its changes stay for the person to undo: the
/// failure would undo all that came before as well.
void abandon(SQLiteStatement const& statement) noexcept {
  sqlite3* const db = statement.connection()->handle();
  if (!reads(statement) && sqlite3_stmt_busy(statement.handle()) && sqlite3_get_autocommit(db)) {
    sqlite3_interrupt(db);
    sqlite3_step(statement.handle());
  }
  sqlite3_reset(statement.handle());
}

/// Where a copying of rows stands.
struct Copied {
  std::int64_t fetched;  // rows in all
  bool ended;            // and there are no more
};

/// Copies rows of the result from position `range.first` on. A statement that reads goes no further than it must; one
/// that writes goes to its end, so that what is shown has happened.
Copied copyRows(SQLiteStatement& result, QuerySpool::Writer& spool, RowSelection::Range range,
                std::stop_token const& task) {
  HandleLock const held(*result.connection());
  bool const lazily = reads(result);
  std::int64_t bytes = 0;
  std::int64_t position = range.first;
  for (; !lazily || (position < range.end && bytes <= fillBytes); ++position) {
    checkCancellation(task);
    if (!result.step()) return {position, true};
    bytes += spool.add(position, result);
  }
  return {position, false};
}

std::int64_t endOfPage(std::int64_t offset) {
  return std::min(offset, std::numeric_limits<std::int64_t>::max() - QueryExecutor::pageRows) + QueryExecutor::pageRows;
}

[[noreturn]] void failAsGone() { throw DatabaseError("Query result is no longer available."); }

/// The value of a cell for which no head was captured; a deferred one cannot be shown.
SQLiteValue wholeValue(Row const& row, std::int64_t column) {
  if (column >= std::ssize(row)) failAsGone();
  SQLiteValue const& value = row[static_cast<std::size_t>(column)];
  if (auto const* const text = value.asLargeText()) previewedBytes.check(text->bytes);
  if (auto const* const blob = value.asLargeBlob()) previewedBytes.check(blob->bytes);
  if (value.isDeferred()) {
    throw DatabaseError(
        "This query cell exceeded the 256 KiB per-row preview budget. Select fewer large columns in the query to "
        "preview it.");
  }
  return value;
}

}  // namespace

QueryExecutor::QueryExecutor(PreviewHelpers helpers)
    : cancellation_(std::make_shared<CancellationHandle>()), helpers_(std::move(helpers)) {}

QueryExecutor::~QueryExecutor() = default;

// Opening ------------------------------------------------------------------------------------------

void QueryExecutor::open(std::filesystem::path const& database, bool readOnly) {
  Turn const turn(turns_);
  closeAll();
  connection_ = SQLiteConnection::open(database, {.readOnly = readOnly}, cancellation_);
  sqlite3_set_authorizer(connection_->handle(), authorize, nullptr);  // after the connection's own pragmas
}

void QueryExecutor::close() {
  Turn const turn(turns_);
  closeAll();
}

void QueryExecutor::closeAll() {
  clearRun();
  connection_.reset();
  done_ = true;
}

void QueryExecutor::clearRun() {
  statement_.reset();
  spool_.reset();
  columns_.clear();
  fetched_ = 0;
}

// Running ------------------------------------------------------------------------------------------

QueryPage QueryExecutor::start(std::string_view sql, std::optional<std::filesystem::path> const& backupDirectory,
                               std::stop_token task) {
  Turn const turn(turns_);
  checkCancellation(task);
  if (!connection_) throw DatabaseError("No query connection is open.");
  QueryScript script(sql);
  backUpBefore(sql, backupDirectory, task);
  HeapLimits const kept;
  clearRun();
  done_ = false;
  started_ = uptime();
  affected_ = 0;
  if (!runToResult(script, task)) {
    done_ = true;
    return emptyPage();
  }
  return firstPage(task);
}

/// Comments and texts count: a backup too many does no harm.
void QueryExecutor::backUpBefore(std::string_view sql, std::optional<std::filesystem::path> const& directory,
                                 std::stop_token const& task) {
  if (connection_->readOnly() || !containsWord(sql, schemaWords)) return;
  if (!directory) throw DatabaseError("Schema changes require a backup location.");
  makeBackup(holdsOldSnapshot() ? *anotherOn(*connection_) : *connection_, *directory, task);
}

/// Whether a result that still stands between two rows keeps the connection at what the database was when it began,
/// while the script would see what others have written since. Inside a transaction the script sees no more either.
bool QueryExecutor::holdsOldSnapshot() const {
  return statement_ && sqlite3_get_autocommit(connection_->handle()) && !hasLostItsName(*connection_) &&
         !keepsOthersOut(*connection_);
}

/// Runs the statements before the result's, which is kept before its first step. False if there is none.
bool QueryExecutor::runToResult(QueryScript& script, std::stop_token const& task) {
  while (std::optional<SQLiteStatement> statement = script.next(connection_)) {
    checkCancellation(task);
    std::int32_t const before = sqlite3_total_changes(connection_->handle());
    if (connection_->readOnly() && !reads(*statement))
      throw DatabaseError("This object is read-only.", SQLITE_READONLY);
    if (statement->columnCount() > 0 && script.atEnd()) {
      columns_ = statement->names();
      changesBefore_ = before;
      statement_ = std::make_unique<SQLiteStatement>(*std::move(statement));
      return true;
    }
    runToEnd(*statement, before, task);
  }
  return false;
}

void QueryExecutor::runToEnd(SQLiteStatement& statement, std::int32_t changesBefore, std::stop_token const& task) try {
  while (statement.step()) checkCancellation(task);
  noteChangesSince(changesBefore);
} catch (...) {
  abandon(statement);
  throw;
}

/// To be called once a statement has ended, and of no other: SQLite counts what triggers change at once and does not
/// take that back with the statement. Its count has 32 bits and wraps.
void QueryExecutor::noteChangesSince(std::int32_t before) {
  auto const now = static_cast<std::uint32_t>(sqlite3_total_changes(connection_->handle()));
  affected_ += static_cast<std::int32_t>(now - static_cast<std::uint32_t>(before));
}

// The result ---------------------------------------------------------------------------------------

QueryPage QueryExecutor::page(std::int64_t offset, std::stop_token task) {
  Turn const turn(turns_);
  return pageAt(offset, task);
}

/// A run that ends before its statement began must not leave that to a later page, which would still make its changes.
QueryPage QueryExecutor::firstPage(std::stop_token const& task) try {
  spool_ = std::make_unique<QuerySpool>();
  return pageAt(0, task);
} catch (...) {
  statement_.reset();
  throw;
}

QueryPage QueryExecutor::pageAt(std::int64_t offset, std::stop_token const& task) {
  checkCancellation(task);
  if (!spool_) return emptyPage();
  std::int64_t const end = endOfPage(offset);
  fetchUpTo(end, task);
  std::vector<Row> rows = spool_->rows(offset, end);
  bool const finished = done_ && offset + std::ssize(rows) >= fetched_;
  return {.columns = columns_,
          .rows = std::move(rows),
          .finished = finished,
          .affected = affected_,
          .duration = uptime() - started_};
}

QueryPage QueryExecutor::emptyPage() const {
  return {.columns = {}, .rows = {}, .finished = true, .affected = affected_, .duration = uptime() - started_};
}

/// The rows of a fill that fails are not in the spool. The statement has moved past them, and after an interrupt it
/// would begin anew: so it is gone unless the fill succeeds.
void QueryExecutor::fetchUpTo(std::int64_t target, std::stop_token const& task) {
  if (!statement_) return;
  HeapLimits const kept;
  Copied copied{.fetched = fetched_, .ended = false};
  auto const copy = [&copied, &result = *statement_, target, &task](QuerySpool::Writer& spool) {
    copied = copyRows(result, spool, {copied.fetched, target}, task);
  };
  try {
    spool_->fill(copy, task);
  } catch (...) {
    abandon(*statement_);
    if (copied.ended) noteChangesSince(changesBefore_);
    statement_.reset();
    throw;
  }
  fetched_ = copied.fetched;
  done_ = copied.ended;
  if (!done_) return;
  noteChangesSince(changesBefore_);
  statement_.reset();
}

CellPreview QueryExecutor::preview(std::int64_t row, std::int64_t column, std::stop_token task) {
  Turn turn(turns_);
  checkCancellation(task);
  if (row < 0 || row >= fetched_ || column < 0 || column >= std::ssize(columns_) || !spool_) failAsGone();
  if (std::optional<QuerySpool::Head> const head = spool_->head(row, column)) {
    return turn.away(
        [&] { return CellPreviewService(helpers_).previewBytes(head->type, head->total, head->bytes, task); });
  }
  std::optional<Row> const stored = spool_->row(row);
  if (!stored) failAsGone();
  SQLiteValue const value = wholeValue(*stored, column);
  return turn.away([&] { return CellPreviewService(helpers_).cached(value, task); });
}

std::vector<Row> QueryExecutor::selectedRows(RowSelection const& positions, std::stop_token task) {
  Turn const turn(turns_);
  copiedRows.check(positions.count());
  checkCancellation(task);
  std::vector<Row> selected;
  std::int64_t bytes = 0;
  for (RowSelection::Range const& range : positions.ranges()) {
    for (std::int64_t cursor = range.first; cursor < range.end;) {
      std::vector<Row> rows = rowsBetween(cursor, range.end, task);
      if (rows.empty()) throw DatabaseError("The selected query rows are no longer available. Run the query again.");
      cursor += std::ssize(rows);
      for (Row& row : rows) {
        for (SQLiteValue const& value : row) bytes += value.memorySize();
        copiedBytes.check(bytes);
        selected.push_back(std::move(row));
      }
    }
  }
  return selected;
}

/// Those of the page at `first` that lie before `end`: most rows of a page may be none of the selection's.
std::vector<Row> QueryExecutor::rowsBetween(std::int64_t first, std::int64_t end, std::stop_token const& task) {
  checkCancellation(task);
  if (!spool_) return {};
  fetchUpTo(endOfPage(first), task);
  return spool_->rows(first, std::min(end, endOfPage(first)));
}

}  // namespace tolva
