// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdint>
#include <filesystem>
#include <map>
#include <memory>
#include <optional>
#include <stop_token>
#include <string>
#include <vector>

#include "core/BrowseRequest.hpp"
#include "core/CancellationHandle.hpp"
#include "core/DatabaseError.hpp"
#include "core/DatabaseObject.hpp"
#include "core/RowPage.hpp"
#include "core/RowSelection.hpp"
#include "core/StructureDetails.hpp"
#include "core/TableSchema.hpp"
#include "platform/Export.hpp"
#include "platform/Turn.hpp"

namespace tolva {

class SQLiteConnection;

/// The read service of one open database.
///
/// A serial service: each operation waits for its turn and blocks until it has an answer, so call it from a worker
/// thread. `cancellation()->cancel()`, from any thread, stops the statement that runs, though not one that is still
/// being prepared. Operations on a closed reader throw "No database is open."; SQLite's failures pass through as
/// `DatabaseError`. Opening a file and reading its schema may take `MemoryBudget::ordinary`, the records that they
/// return included, and no certain time; a hostile file ends them as "out of memory".
class TOLVA_EXPORT DatabaseReader {
 public:
  DatabaseReader();
  ~DatabaseReader();
  DatabaseReader(DatabaseReader const&) = delete;
  DatabaseReader& operator=(DatabaseReader const&) = delete;

  /// The handle of the reader's connection, the same for the reader's whole life.
  std::shared_ptr<CancellationHandle> const& cancellation() const { return cancellation_; }

  // Opening ------------------------------------------------------------------------------------

  /// Opens the file read-only and lists its objects. A database that was open before is closed first, and stays closed
  /// when the new one cannot be opened or has no readable schema.
  std::vector<DatabaseObject> open(std::filesystem::path const& database, std::stop_token task);

  void close();

  // Schema -------------------------------------------------------------------------------------

  /// The tables and views, without SQLite's own, by name ignoring case. Forgets the schemas read so far: call it when
  /// the file is known to have changed.
  std::vector<DatabaseObject> objects();

  /// The columns and the row identity of one object; read once, then remembered by the object's name. An object that
  /// has since gone has no columns.
  TableSchema schema(DatabaseObject const& object);

  /// Indexes, foreign keys and triggers of one table, for display.
  StructureDetails structure(TableSchema const& schema);

  // Rows ---------------------------------------------------------------------------------------
  //
  // Blobs, and texts above `inlineTextLimit`, come as markers of their length. A filter or sort on a column that is not
  // in the schema throws; so does a deferred value in a filter or an identity. `task` is checked before each row. A
  // schema of which columns have gone since it was read fails with "no such column".

  /// The first page, or the one that `token` leads to: at most 500 rows, and none more once they take 4 MiB. The end of
  /// the table is the empty page, never a short one. Fails with code 11, as SQLite does on damage that it finds, where
  /// the rows of a damaged file are so out of order that pages would follow each other for ever.
  RowPage page(TableSchema const& schema, BrowseRequest const& request, std::optional<PageToken> const& token,
               std::stop_token task);

  /// How many rows the request shows.
  std::int64_t count(TableSchema const& schema, BrowseRequest const& request);

  /// The row of this identity, its identity read whole. Nothing where there is no such row, or where `identity` is not
  /// one value for each name of the schema's identity.
  std::optional<DatabaseRow> row(TableSchema const& schema, std::vector<SQLiteValue> const& identity);

  /// The rows at some positions of the request's order, at most 10,000 rows of 32 MiB, all from one state of the
  /// database. Throws when there is no row at one of them.
  std::vector<DatabaseRow> selectedRows(TableSchema const& schema, BrowseRequest const& request,
                                        RowSelection const& indices, std::stop_token task);

  // Preview ------------------------------------------------------------------------------------

  /// The summary of a database file as plain text. Opens the file on its own: the reader's open database plays no part.
  /// Reading the schema takes at most 2 seconds, then fails as cancelled, as it does when `task` is; waiting for a lock
  /// of another process ends after 1.2 seconds. A failure to read the file's size and date is the system's own
  /// `std::filesystem::filesystem_error`. Beside a database in WAL mode "-wal" and "-shm" stay behind.
  std::string preview(std::filesystem::path const& database, std::stop_token task);

 private:
  SQLiteConnection& db() const REQUIRES(turns_);
  std::vector<DatabaseObject> readObjects() REQUIRES(turns_);
  void forget() REQUIRES(turns_);

  mutable TurnQueue turns_;
  std::shared_ptr<CancellationHandle> const cancellation_;
  std::shared_ptr<SQLiteConnection> connection_ GUARDED_BY(turns_);
  std::map<std::string, TableSchema> schemas_ GUARDED_BY(turns_);  // by object name
};

}  // namespace tolva
