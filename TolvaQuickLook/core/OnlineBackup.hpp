// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdint>
#include <memory>
#include <optional>

struct sqlite3_backup;

namespace tolva {

class SQLiteConnection;

/// One run of SQLite's online backup (https://sqlite.org/c3ref/backup_finish.html), from the main database of one
/// connection to that of another, which it overwrites.
///
/// The source may be written to between two steps; the copy then starts again at the next one. Whoever stops before
/// the end leaves a copy that is of no use. Used by one thread, in the turn of both connections.
class OnlineBackup {
 public:
  /// Throws `DatabaseError` with the destination's code and message.
  OnlineBackup(SQLiteConnection& source, SQLiteConnection& destination);

  /// Finishes, if that has not been done.
  ~OnlineBackup();
  OnlineBackup(OnlineBackup const&) = delete;
  OnlineBackup& operator=(OnlineBackup const&) = delete;

  // In the order of life ----------------------------------------------------------------------------
  // The results are SQLite's codes, extended ones included.

  /// Copies up to `pages` pages under one lock on the source. `SQLITE_OK` when there are more, `SQLITE_DONE` at the
  /// end; `SQLITE_BUSY` and `SQLITE_LOCKED` may pass, all other failures stay. So do their extended codes, as the one
  /// while another process recovers a log: to SQLite the backup has failed then.
  int step(int pages);

  /// Of the source, as the last step saw it; 0 before the first one.
  std::int64_t pageCount() const { return pageCount_; }
  std::int64_t remaining() const { return remaining_; }

  /// Lets both databases go, once, and returns what it failed with: that of the steps, if they did.
  int finish();

 private:
  std::shared_ptr<SQLiteConnection> const source_;  // SQLite needs both until it has finished
  std::shared_ptr<SQLiteConnection> const destination_;
  sqlite3_backup* backup_;
  std::int64_t pageCount_ = 0;
  std::int64_t remaining_ = 0;
  std::optional<int> finished_;
};

}  // namespace tolva
