// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <filesystem>
#include <map>
#include <memory>
#include <stop_token>
#include <string>
#include <vector>

#include "core/CancellationHandle.hpp"
#include "core/CellChange.hpp"
#include "core/DatabaseError.hpp"
#include "core/DatabaseRow.hpp"
#include "core/SQLiteValue.hpp"
#include "core/SchemaChange.hpp"
#include "core/TableSchema.hpp"
#include "platform/Export.hpp"
#include "platform/Turn.hpp"

namespace tolva {

class SQLiteConnection;

/// The write service of one open database: edits, inserts and deletes, each with proof that it touches exactly the row
/// that a person saw, and changes of the schema behind a backup.
///
/// A serial service: each operation waits for its turn and blocks until it has an answer, so call it from a worker
/// thread. `cancellation()->cancel()`, from any thread, stops the statement that runs; `task` is checked between rows.
/// An operation does all that it was asked or nothing. SQLite's failures pass through as `DatabaseError`; a lock that
/// another program holds is waited for 1.2 seconds. On a closed writer they throw "No database is open." (code 8), and
/// where the file has lost its name, or another has taken it, "attempt to write a readonly database" (code 1032).
///
/// A row is found by its identity and its old values, compared as the columns compare. Two rows that a column cannot
/// tell apart, though the key can, are refused as more than one; where only the other is left, it is taken for the row.
/// A rowid that no column bears may name another row after a VACUUM elsewhere: only the old values tell then.
class TOLVA_EXPORT DatabaseWriter {
 public:
  DatabaseWriter();
  ~DatabaseWriter();
  DatabaseWriter(DatabaseWriter const&) = delete;
  DatabaseWriter& operator=(DatabaseWriter const&) = delete;

  /// The handle of the writer's connection, the same for the writer's whole life.
  std::shared_ptr<CancellationHandle> const& cancellation() const { return cancellation_; }

  // Opening ------------------------------------------------------------------------------------

  /// Makes ready for one file. One that may not be written is refused, and what was open before stays open; any other
  /// failure leaves the writer closed. A database of the snapshot store is refused (code 8).
  void open(std::filesystem::path const& database);

  void close();
  bool isOpen() const;

  // Changing rows ------------------------------------------------------------------------------

  /// Makes the changes in one transaction and returns them in the order of their rows' first ones: each with its row as
  /// edited, and the row's identity before and after. Each result holds a whole row. It does not show what triggers
  /// did, what generated columns became, nor a value as the column stores it (an affinity converts it, NaN is stored
  /// as NULL): read the row again before the next change.
  ///
  /// The row must still have its identity and, in the columns that change, the values of `row`, both compared as SQLite
  /// compares the column: 1 equals 1.0, and "a" equals "A" under NOCASE. All changes of one row are one statement,
  /// guarded by the first one's `row`; of two changes of one cell the later stands.
  ///
  /// A commit that failed has left the old content to everybody. In WAL mode, when its last flush failed and every
  /// process that had the database open then dies, the next to open it may find the new content, whole.
  std::vector<CellChange> apply(TableSchema const& schema, std::vector<CellChange> const& changes,
                                std::stop_token task);

  /// Inserts one row of the values by column name; names that are no column, or a generated one, are ignored.
  void insert(TableSchema const& schema, std::map<std::string, SQLiteValue> const& values);

  /// Deletes the rows in one transaction. Each must still have its identity and all its values but the deferred ones,
  /// which are not compared. A row with more or fewer values than the schema has columns is refused.
  void deleteRows(TableSchema const& schema, std::vector<DatabaseRow> const& rows, std::stop_token task);

  // Changing the schema ------------------------------------------------------------------------

  /// Makes a backup in `backupDirectory` (`makeBackup`), then the change in a transaction, and returns the path of the
  /// backup, which stays when the change fails. A failed backup changes nothing. A change with a NUL in a name, type or
  /// default is refused before that: SQLite would read its SQL no further.
  ///
  /// Only `task` stops the backup: a cancel through `cancellation` is lost, and the change is made.
  std::filesystem::path modifySchema(SchemaChange const& change, std::filesystem::path const& backupDirectory,
                                     std::stop_token task);

 private:
  SQLiteConnection& db() const REQUIRES(turns_);

  mutable TurnQueue turns_;
  std::shared_ptr<CancellationHandle> const cancellation_;
  std::shared_ptr<SQLiteConnection> connection_ GUARDED_BY(turns_);
};

}  // namespace tolva
