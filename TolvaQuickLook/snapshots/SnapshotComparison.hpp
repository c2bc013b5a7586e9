// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <stop_token>
#include <string>
#include <vector>

#include "core/CancellationHandle.hpp"
#include "platform/Uptime.hpp"
#include "snapshots/ComparisonLimits.hpp"
#include "snapshots/ComparisonPlan.hpp"
#include "snapshots/ComparisonStore.hpp"
#include "snapshots/DifferenceCell.hpp"
#include "snapshots/DifferenceRow.hpp"
#include "snapshots/SchemaObjects.hpp"
#include "snapshots/SnapshotLease.hpp"
#include "snapshots/TableDifference.hpp"

namespace tolva {

/// One comparison with its result, in the turn of its service. It holds both snapshots until it goes.
///
/// All operations throw `DatabaseError` and `TaskCancelled`.
class SnapshotComparison {
 public:
  SnapshotComparison(std::shared_ptr<SnapshotLease const> const& before,
                     std::shared_ptr<SnapshotLease const> const& after, ComparisonLimits const& limits,
                     std::shared_ptr<CancellationHandle> const& cancellation, std::stop_token const& task);

  /// Compares all objects; called once.
  std::vector<TableDifference> compare(std::function<void(std::string const& name)> const& progress,
                                       std::stop_token const& task);

  // Of a table that was compared ------------------------------------------------------------------

  bool hasRowsOf(std::string const& tableID) const { return plans_.contains(tableID); }
  std::vector<DifferenceRow> rows(std::string const& tableID, std::int64_t after, std::int64_t limit,
                                  std::stop_token const& task) const;
  std::vector<DifferenceCell> cells(std::string const& tableID, std::int64_t rowID, std::stop_token const& task) const;

 private:
  std::map<SchemaKey, SchemaObject> readSchema(char const* database, std::stop_token const& task) const;
  void compareRows(TableDifference& difference, std::string const& table, std::string const& store,
                   Uptime overallDeadline, std::stop_token const& task);
  ComparisonPlan makePlan(std::string const& table, std::string const& store, Uptime deadline,
                          std::stop_token const& task) const;

  ComparisonLimits const limits_;
  Uptime const preparationDeadline_;
  std::unique_ptr<ComparisonStore const> const store_;
  std::map<std::string, ComparisonPlan> plans_;  // by the ids of their tables
};

}  // namespace tolva
