// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdint>
#include <filesystem>
#include <memory>
#include <optional>
#include <stop_token>
#include <string>
#include <string_view>
#include <vector>

#include "core/CancellationHandle.hpp"
#include "core/DatabaseError.hpp"
#include "core/QueryPage.hpp"
#include "core/RowSelection.hpp"
#include "core/SQLiteValue.hpp"
#include "platform/Export.hpp"
#include "platform/Turn.hpp"
#include "platform/Uptime.hpp"
#include "preview/CellPreview.hpp"
#include "preview/PreviewHelpers.hpp"

namespace tolva {

class QueryScript;
class QuerySpool;
class SQLiteConnection;
class SQLiteStatement;

/// Runs SQL that a person typed, on a connection of its own, and shows a result of any length page by page.
///
/// A serial service: each operation waits for its turn and blocks until it has an answer, so call it from a worker
/// thread. `cancellation()->cancel()`, from any thread, stops the statement that runs; `task` is checked between rows
/// and between statements. SQLite's failures pass through as `DatabaseError`.
///
/// A statement that reads is stepped no further than the pages that were asked for, and until its end it keeps a read
/// transaction open, between two pages too; `close` ends it. In WAL mode that can hold back a checkpoint; with a
/// rollback journal every writer finds the database locked (code 5), a `DatabaseWriter` of the same program included. A
/// cancel between two pages stops the statement as well: the next page that needs more rows fails with code 9. A script
/// may not ATTACH or DETACH, nor VACUUM, which attaches, and not set `query_only`, `writable_schema` or `foreign_keys`:
/// "not authorized" (code 23), of VACUUM "authorization denied".
///
/// In WAL mode a script also runs on a file that has lost its name, or whose name another has taken: what it changes
/// then is not in the file of that name. `DatabaseMonitor` tells of this; open the file again.
class TOLVA_EXPORT QueryExecutor {
 public:
  static constexpr std::int64_t pageRows = 500;

  /// With `helpers` to decode the pictures and documents of previews.
  explicit QueryExecutor(PreviewHelpers helpers = PreviewHelpers());
  ~QueryExecutor();
  QueryExecutor(QueryExecutor const&) = delete;
  QueryExecutor& operator=(QueryExecutor const&) = delete;

  /// The handle of the query connection, the same for the executor's whole life.
  std::shared_ptr<CancellationHandle> const& cancellation() const { return cancellation_; }

  // Opening ------------------------------------------------------------------------------------

  void open(std::filesystem::path const& database, bool readOnly);

  /// Ends everything; the last result is gone.
  void close();

  // Running ------------------------------------------------------------------------------------

  /// Runs a script and returns the first page of its result: of its last statement, if that has columns and nothing but
  /// comments follows. Rows of other statements are dropped. A statement that writes and returns rows runs to its end
  /// before its first page; one that fails stops the script, and what ran before stands unless the script began a
  /// transaction itself.
  ///
  /// A statement that writes and is stopped between two rows, by `task` or because its rows cannot be kept, changes
  /// nothing; in a transaction of the script its changes stay in that. When the failure comes after its last row, its
  /// changes stand. `affected` of the later pages counts the statements that came to their end, and no other.
  ///
  /// A cancelled `task` throws `TaskCancelled`, a statement that `cancellation` stopped `DatabaseError` with code 9,
  /// and so does a `task` that is cancelled during the backup; a cancel through `cancellation` does not stop the
  /// backup. A text with a NUL is refused, as SQLite would read no further, and nothing runs.
  ///
  /// On a writable connection a text that names DROP or ALTER, in a comment too, first makes a backup in
  /// `backupDirectory` (`makeBackup`, whose failures pass through); without one it is refused and nothing runs.
  QueryPage start(std::string_view sql, std::optional<std::filesystem::path> const& backupDirectory,
                  std::stop_token task);

  // The result, until the next `start` or `close` ------------------------------------------------

  /// The rows from position `offset` on: at most 500, and no more than came to 4 MiB, so a page can be short and the
  /// next one begins behind its last row. Without a result an empty page, which is finished.
  ///
  /// After a failure or a cancel no further row can be fetched: the pages show what came before, none is `finished`,
  /// and behind it they are empty.
  QueryPage page(std::int64_t offset, std::stop_token task);

  /// What can be shown of one cell of a row that was fetched: of a large value a head of at most 64 KiB, as long as
  /// those of its row stay within 256 KiB and the value within 8 MiB.
  CellPreview preview(std::int64_t row, std::int64_t column, std::stop_token task);

  /// The rows at these positions, at most 10,000 and 32 MB, in ascending order.
  std::vector<std::vector<SQLiteValue>> selectedRows(RowSelection const& positions, std::stop_token task);

 private:
  void closeAll() REQUIRES(turns_);
  void clearRun() REQUIRES(turns_);
  void backUpBefore(std::string_view sql, std::optional<std::filesystem::path> const& directory,
                    std::stop_token const& task) REQUIRES(turns_);
  bool holdsOldSnapshot() const REQUIRES(turns_);
  bool runToResult(QueryScript& script, std::stop_token const& task) REQUIRES(turns_);
  void runToEnd(SQLiteStatement& statement, std::int32_t changesBefore, std::stop_token const& task) REQUIRES(turns_);
  void noteChangesSince(std::int32_t before) REQUIRES(turns_);
  QueryPage firstPage(std::stop_token const& task) REQUIRES(turns_);
  QueryPage pageAt(std::int64_t offset, std::stop_token const& task) REQUIRES(turns_);
  QueryPage emptyPage() const REQUIRES(turns_);
  std::vector<std::vector<SQLiteValue>> rowsBetween(std::int64_t first, std::int64_t end, std::stop_token const& task)
      REQUIRES(turns_);
  void fetchUpTo(std::int64_t target, std::stop_token const& task) REQUIRES(turns_);

  TurnQueue turns_;
  std::shared_ptr<CancellationHandle> const cancellation_;
  PreviewHelpers const helpers_;
  std::shared_ptr<SQLiteConnection> connection_ GUARDED_BY(turns_);

  // The run
  std::unique_ptr<SQLiteStatement> statement_ GUARDED_BY(turns_);  // the result's, while it can still be stepped
  std::unique_ptr<QuerySpool> spool_ GUARDED_BY(turns_);           // none without a result
  std::vector<std::string> columns_ GUARDED_BY(turns_);
  std::int64_t fetched_ GUARDED_BY(turns_) = 0;  // rows in the spool, and the next position
  bool done_ GUARDED_BY(turns_) = true;          // the statement has ended
  Uptime started_ GUARDED_BY(turns_) = uptime();
  std::int64_t affected_ GUARDED_BY(turns_) = 0;
  std::int32_t changesBefore_ GUARDED_BY(turns_) = 0;  // SQLite's count when the result's statement began
};

}  // namespace tolva
