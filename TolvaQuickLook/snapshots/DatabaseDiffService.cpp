// SPDX-License-Identifier: Apache-2.0
#include "snapshots/DatabaseDiffService.hpp"

#include <atomic>
#include <utility>

#include "snapshots/SnapshotComparison.hpp"

namespace tolva {
namespace {

/// One comparison at a time in the process, whatever service runs it. A flag and no mutex: it belongs to no thread.
constinit std::atomic_flag comparisonLock;

/// Holds it for a scope. One that is refused holds nothing.
class ComparisonTurn {
 public:
  ComparisonTurn() {
    if (!comparisonLock.test_and_set(std::memory_order_acquire)) return;
    throw DatabaseError("Another snapshot comparison is running. Wait for it to finish or cancel it first.");
  }
  ~ComparisonTurn() { comparisonLock.clear(std::memory_order_release); }
  ComparisonTurn(ComparisonTurn const&) = delete;
  ComparisonTurn& operator=(ComparisonTurn const&) = delete;
};

void requireTwoOfOneHistory(Snapshot const& before, Snapshot const& after) {
  if (before.databaseID != after.databaseID) throw DatabaseError("Choose snapshots from the same source history.");
  if (before.id == after.id) throw DatabaseError("Choose two different snapshots.");
}

}  // namespace

DatabaseDiffService::DatabaseDiffService(ComparisonLimits limits)
    : limits_(limits), cancellation_(std::make_shared<CancellationHandle>()) {}

DatabaseDiffService::~DatabaseDiffService() = default;

/// A failure leaves nothing, and nothing is left when the next comparison may begin.
std::vector<TableDifference> DatabaseDiffService::compare(std::shared_ptr<SnapshotLease const> const& before,
                                                          std::shared_ptr<SnapshotLease const> const& after,
                                                          ComparisonProgress const& progress, std::stop_token task) {
  Turn const turn(turns_);
  result_.reset();
  checkCancellation(task);
  ComparisonTurn const alone;
  requireTwoOfOneHistory(before->snapshot, after->snapshot);
  try {
    result_ = std::make_unique<SnapshotComparison>(before, after, limits_, cancellation_, task);
    return result_->compare(progress, task);
  } catch (...) {
    result_.reset();
    throw;
  }
}

std::vector<DifferenceRow> DatabaseDiffService::rows(std::string const& tableID, std::int64_t after, std::int64_t limit,
                                                     std::stop_token task) {
  Turn const turn(turns_);
  if (!result_ || !result_->hasRowsOf(tableID)) {
    throw DatabaseError("No row comparison is available for this table.");
  }
  return result_->rows(tableID, after, limit, task);
}

std::vector<DifferenceCell> DatabaseDiffService::cells(std::string const& tableID, std::int64_t rowID,
                                                       std::stop_token task) {
  Turn const turn(turns_);
  if (!result_ || !result_->hasRowsOf(tableID)) throw DatabaseError("No row comparison is available.");
  return result_->cells(tableID, rowID, task);
}

void DatabaseDiffService::close() {
  Turn const turn(turns_);
  result_.reset();
}

}  // namespace tolva
