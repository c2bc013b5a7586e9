// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdint>
#include <filesystem>
#include <functional>
#include <memory>
#include <optional>
#include <stop_token>
#include <string>
#include <vector>

#include "core/BrowseRequest.hpp"
#include "core/CancellationHandle.hpp"
#include "core/DatabaseError.hpp"
#include "core/DatabaseRow.hpp"
#include "core/RowSelection.hpp"
#include "core/TableSchema.hpp"
#include "platform/Export.hpp"
#include "platform/Turn.hpp"
#include "transfer/CSVOptions.hpp"
#include "transfer/ExportFormat.hpp"

namespace tolva {

/// The rows that an export writes: the first that is given of positions, rows and request. A value.
struct ExportRows {
  BrowseRequest request;                             // all rows that it shows, in its order
  std::optional<std::vector<DatabaseRow>> selected;  // these, found again by their identity; one that has gone is none
  std::optional<RowSelection> selectedIndices;       // the rows at these positions of the request
};

/// Told the rows that are done: each 500th and, when all is finished, their number once more. It is called by the
/// operation, in its turn, so it may not call the service. What it throws ends the operation as a failure does. May be
/// empty.
using TransferProgress = std::function<void(std::int64_t)>;

/// Moves rows between a database and files that a person chose, in any number, without ever holding them in memory.
///
/// A serial service: each operation waits for its turn, opens what it needs and blocks until it is done, so call it
/// from a worker thread. `task` is checked for every row; `cancellation()->cancel()`, from any thread, stops the
/// statement that runs.
class TOLVA_EXPORT FileTransfer {
 public:
  FileTransfer();
  ~FileTransfer();
  FileTransfer(FileTransfer const&) = delete;
  FileTransfer& operator=(FileTransfer const&) = delete;

  /// The handle that every connection of the service shares.
  std::shared_ptr<CancellationHandle> const& cancellation() const { return cancellation_; }

  // Out ----------------------------------------------------------------------------------------

  /// Writes rows of a table or view to `destination`, which is made or replaced, and returns their number. The columns
  /// of `schema` are written; of a table exported as SQL, those that are not generated.
  ///
  /// The rows grow in a hidden file beside `destination`, ".tolva-export-" and a UUID, which takes the name when it is
  /// complete and on the disk; a failure deletes it and leaves what was there, and only a crash leaves it. A file that
  /// is replaced leaves its permissions to the new one. Of a symbolic link the link itself is replaced, not what it
  /// leads to; a device or a pipe is not.
  ///
  /// Positions and all rows of the request are read from one state of the database, `selected` rows each for itself.
  /// Throws `DatabaseError`, also where a statement is interrupted, the system's own
  /// `std::filesystem::filesystem_error` where the file cannot be written or published, and `TaskCancelled`.
  std::int64_t exportRows(std::filesystem::path const& database, TableSchema const& schema, ExportRows const& rows,
                          ExportFormat format, std::filesystem::path const& destination,
                          TransferProgress const& progress, std::stop_token task);

  // In -----------------------------------------------------------------------------------------

  // A file may have rows of any number and length, but fields of 16 MiB at most; docs/formats.md tells all that is
  // read. Both throw `DatabaseError` for what the file holds and `std::filesystem::filesystem_error` where it cannot be
  // read.

  /// The first rows of a delimited file, 6 at most, a header among them, without the byte order mark.
  std::vector<std::vector<std::string>> preview(std::filesystem::path const& file, CSVOptions const& options,
                                                std::stop_token task);

  /// Inserts the rows of a delimited file into `table` of a database that is there, and returns their number: in one
  /// transaction, so all of them or none. A file without a row does nothing, and tells nothing to `progress`.
  ///
  /// With a `schema` the table is there. A header names some of its columns in any order, exactly as they are spelt;
  /// without one a row fills the columns from the first on. A field becomes what `SQLiteValue::input` makes of it by
  /// the declared type. Generated columns take nothing.
  ///
  /// Without a `schema` the table is made, with the narrowest type for each column that fits all of its fields: as an
  /// integer or a text a field keeps every letter, a decimal becomes the double nearest to it. The file is read twice
  /// for it, and nobody should write to it meanwhile; without a header the columns are "column_1" and on.
  ///
  /// A row that the table refuses throws `DatabaseError` with SQLite's code and its number among the rows, the header
  /// not counted. `progress` is called inside the transaction but for the last time; it may wait for a thread that
  /// cancels.
  std::int64_t importCSV(std::filesystem::path const& file, std::filesystem::path const& database,
                         std::string const& table, std::optional<TableSchema> const& schema, CSVOptions const& options,
                         TransferProgress const& progress, std::stop_token task);

 private:
  TurnQueue turns_;
  std::shared_ptr<CancellationHandle> const cancellation_;
};

}  // namespace tolva
