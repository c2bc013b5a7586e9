// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <stop_token>
#include <string>
#include <vector>

#include "core/CancellationHandle.hpp"
#include "core/DatabaseError.hpp"
#include "platform/Export.hpp"
#include "platform/TaskCancellation.hpp"
#include "platform/Turn.hpp"
#include "snapshots/ComparisonLimits.hpp"
#include "snapshots/DifferenceCell.hpp"
#include "snapshots/DifferenceRow.hpp"
#include "snapshots/DifferenceSummary.hpp"
#include "snapshots/SnapshotLease.hpp"
#include "snapshots/TableDifference.hpp"

namespace tolva {

class SnapshotComparison;

/// Told the name of a table just before its rows are compared. It is called by the operation, in its turn, so it may
/// call no serial service at all, this one or another: `Turn` ends the program otherwise. What it throws ends the
/// comparison as a failure does. May be empty.
using ComparisonProgress = std::function<void(std::string const& name)>;

/// Compares two snapshots of one database row by row, and shows the rows that differ.
///
/// Rows are matched by the declared primary key alone; a table without one on which SQLite can be relied is told as not
/// compared, never compared by approximation. So is one with any column whose collation is not SQLite's own, with
/// SQLite's message. Values are compared by their bytes and storage class: 1 and 1.0 differ, and so do texts that a
/// collation holds for equal. Memory stays flat: the keys of the rows that differ go to a result store in a private
/// temporary folder, and their values are read from the snapshots when they are asked for.
///
/// A damaged snapshot may give wrong rows. What can be told at little cost is refused as damage (code 11): a NULL in a
/// key that differs; an index of the primary key that holds more or fewer rows than its table; and, where the table has
/// any index, numbers of inserted and deleted rows that contradict how many rows both sides have. SQLite may scan the
/// smallest index for the keys, so that is how one is noticed that misses rows. Not noticed are an index that holds
/// other values than its table; rows that are missed in equal number on both sides; and rows that stand in the wrong
/// order in the table itself and are not found by their keys, unless it has an index and the numbers contradict.
///
/// A serial service: each operation waits for its turn and blocks until it is done, so call it from a worker thread.
/// All operations throw `DatabaseError` and `TaskCancelled`.
///
/// `cancellation()->cancel()`, from any thread, stops the statement that runs, at its next row. A task and the time are
/// heard within a row as well, whenever SQLite makes a value of 16 KiB or more. One call of a function, or calls that
/// make no such value, can still take their time, and a task waits for the count of a whole table.
class TOLVA_EXPORT DatabaseDiffService {
 public:
  explicit DatabaseDiffService(ComparisonLimits limits = {});
  ~DatabaseDiffService();
  DatabaseDiffService(DatabaseDiffService const&) = delete;
  DatabaseDiffService& operator=(DatabaseDiffService const&) = delete;

  /// The handle of the connection that compares.
  std::shared_ptr<CancellationHandle> const& cancellation() const { return cancellation_; }

  /// Compares all schema objects and returns those that differ, with every table whose definition is the same, in
  /// ascending order of their ids. The former result is closed first.
  ///
  /// One comparison runs at a time in the process; a second one fails at once. A table that cannot be compared, that
  /// takes too long or has too many differences for the store is told as "Not compared", and the others still are. A
  /// comparison of more than five minutes fails as a whole, and so does one of more than 4,096 schema objects, of a
  /// definition of more than 64 KiB or of more than 4 MiB of them. Each table that has a key costs a transaction that
  /// is written to the disk, however few its rows: thousands of them take the most part of a minute, and on a slow disk
  /// may take all five.
  ///
  /// The two, which are not null, must be different snapshots of one history. The result holds both leases until
  /// `close`, or until the next comparison or the end of the service; a comparison that fails leaves nothing. Of two
  /// tables that are shown by the same name, since their names are no UTF-8, one is compared; the other is told as
  /// "Another table is shown by the same name."
  ///
  /// A kind is taken as the file spells it: what a hostile one calls a "TABLE" has a definition to compare, and no
  /// rows.
  std::vector<TableDifference> compare(std::shared_ptr<SnapshotLease const> const& before,
                                       std::shared_ptr<SnapshotLease const> const& after,
                                       ComparisonProgress const& progress, std::stop_token task);

  // The result -------------------------------------------------------------------------------------
  // Of the tables that were compared, named by `TableDifference::id`.

  /// Rows that differ, in the order of their ids, behind the id `after`, 0 for the first: `limit` of them, at least 1
  /// and at most 100. Fails after the seconds for reading, as `cells` does: "Reading the comparison took too long."
  std::vector<DifferenceRow> rows(std::string const& tableID, std::int64_t after, std::int64_t limit,
                                  std::stop_token task);

  /// Both sides of one of them, a cell for each column of the table in its order. Meanwhile all values of both are in
  /// memory, which are up to 1 MiB each.
  std::vector<DifferenceCell> cells(std::string const& tableID, std::int64_t rowID, std::stop_token task);

  /// Forgets the result and lets the snapshots go. Never throws.
  void close();

 private:
  TurnQueue turns_;
  ComparisonLimits const limits_;
  std::shared_ptr<CancellationHandle> const cancellation_;
  std::unique_ptr<SnapshotComparison> result_ GUARDED_BY(turns_);
};

}  // namespace tolva
