// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <filesystem>
#include <memory>
#include <optional>
#include <string_view>
#include <vector>

#include "platform/UUID.hpp"
#include "snapshots/Snapshot.hpp"
#include "snapshots/SnapshotLease.hpp"
#include "snapshots/SnapshotStore.hpp"
#include "snapshots/StoreLock.hpp"

namespace tolva {

/// The snapshots of a store, while its catalog lock is held: from construction to the end of the object nobody else
/// works on the store, in this process or another. In its service's turn.
///
/// A snapshot is found by its `databaseID` and `id`; everything else is read afresh.
class SnapshotCatalog {
 public:
  explicit SnapshotCatalog(SnapshotStore const& store) : store_(store), lock_(store.lockCatalog()) {}

  /// The complete snapshots of one source, the newest first. Removes what a crash has left.
  std::vector<Snapshot> history(std::filesystem::path const& source) const;

  Snapshot rename(Snapshot const& snapshot, std::string_view label) const;
  void remove(Snapshot const& snapshot) const;

  std::shared_ptr<SnapshotLease const> lease(Snapshot const& snapshot) const;
  std::shared_ptr<SnapshotLease const> lease(std::filesystem::path const& file) const;

  /// The record of a snapshot, nothing if that or its database is gone.
  std::optional<Snapshot> find(std::string_view databaseID, UUID const& id) const;

 private:
  SnapshotStore const& store_;
  StoreLock const lock_;
};

}  // namespace tolva
