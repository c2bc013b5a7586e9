// SPDX-License-Identifier: Apache-2.0
#include "snapshots/SnapshotService.hpp"

#include <filesystem>
#include <memory>
#include <optional>
#include <stop_token>
#include <string>

#include "core/DatabaseError.hpp"
#include "platform/TaskCancellation.hpp"
#include "platform/UUID.hpp"
#include "snapshots/BaselinePointer.hpp"
#include "snapshots/SnapshotCatalog.hpp"
#include "snapshots/SnapshotSource.hpp"
#include "snapshots/SnapshotStore.hpp"

// A capture takes the catalog lock itself, for its whole length. Before and after it the lock is free for a moment, in
// which others can change the baseline; hence the pointer is looked at on both sides.

namespace tolva {
namespace {

BaselinePointer baselineOf(SnapshotStore const& store, std::string const& databaseID) {
  return BaselinePointer(store, store.directory(databaseID));
}

void requireBaseline(SnapshotStore const& store, std::filesystem::path const& source,
                     std::optional<UUID> const& expected) {
  SnapshotCatalog const catalog(store);
  baselineOf(store, snapshotSource(source).databaseID).require(expected);
}

std::shared_ptr<SnapshotLease const> leaseBaseline(SnapshotStore const& store, std::filesystem::path const& source,
                                                   UUID const& expected) {
  SnapshotCatalog const catalog(store);
  Snapshot baseline;
  baseline.databaseID = snapshotSource(source).databaseID;
  baseline.id = expected;
  baselineOf(store, baseline.databaseID).require(expected);
  return catalog.lease(baseline);
}

}  // namespace

BaselineSelection SnapshotService::baseline(std::filesystem::path const& source, std::stop_token task) {
  Turn const turn(turns_);
  checkCancellation(task);
  SnapshotCatalog const catalog(*store_);
  std::string const databaseID = snapshotSource(source).databaseID;
  auto const id = baselineOf(*store_, databaseID).id();
  if (!id) return {};
  return {.id = id, .snapshot = catalog.find(databaseID, *id)};
}

Snapshot SnapshotService::captureBaseline(std::filesystem::path const& source, std::optional<UUID> const& replacing,
                                          SnapshotProgressReport const& progress, std::stop_token task) {
  Turn const turn(turns_);
  checkCancellation(task);
  requireBaseline(*store_, source, replacing);
  Snapshot snapshot = capture(source, "What Changed baseline", progress, /*validateSource=*/{}, task);
  checkCancellation(task);
  adoptBaseline(source, replacing, snapshot, task);
  return snapshot;
}

void SnapshotService::adoptBaseline(std::filesystem::path const& source, std::optional<UUID> const& replacing,
                                    Snapshot const& snapshot, std::stop_token const& task) {
  SnapshotCatalog const catalog(*store_);
  if (snapshotSource(source).databaseID != snapshot.databaseID)
    throw DatabaseError("The source was replaced. Refresh before capturing a baseline.");
  BaselinePointer const pointer = baselineOf(*store_, snapshot.databaseID);
  pointer.require(replacing);
  auto const proof = catalog.lease(snapshot);  // that it is complete, and nobody deletes it meanwhile
  checkCancellation(task);
  pointer.set(snapshot.id);
}

void SnapshotService::clearBaseline(std::filesystem::path const& source, UUID const& expected, std::stop_token task) {
  Turn const turn(turns_);
  checkCancellation(task);
  SnapshotCatalog const catalog(*store_);
  BaselinePointer const pointer = baselineOf(*store_, snapshotSource(source).databaseID);
  pointer.require(expected);
  checkCancellation(task);
  pointer.clear();
}

PreparedSnapshotComparison SnapshotService::prepareChanges(std::filesystem::path const& source,
                                                           UUID const& expectedBaseline,
                                                           SnapshotProgressReport const& progress,
                                                           std::stop_token task) {
  Turn const turn(turns_);
  checkCancellation(task);
  auto const before = leaseBaseline(*store_, source, expectedBaseline);
  Snapshot const current = capture(source, "What Changed current", progress, /*validateSource=*/{}, task);
  checkCancellation(task);
  if (current.databaseID != before->snapshot.databaseID)
    throw DatabaseError("The source file was replaced. Capture a new baseline before comparing.");
  return {.before = before, .after = SnapshotCatalog(*store_).lease(current)};
}

}  // namespace tolva
