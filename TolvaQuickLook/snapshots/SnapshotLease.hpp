// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdint>
#include <filesystem>

#include "platform/Export.hpp"
#include "snapshots/Snapshot.hpp"

namespace tolva {

class StoreLock;

/// A reader's hold on one snapshot, which no process deletes meanwhile. Ends with the object, or with the process.
///
/// Any thread: nothing of it changes. Shared by all who read.
class TOLVA_EXPORT SnapshotLease {
 public:
  /// Takes over the shared lock.
  SnapshotLease(Snapshot snapshot, std::filesystem::path databaseURL, StoreLock&& lock);
  ~SnapshotLease();
  SnapshotLease(SnapshotLease const&) = delete;
  SnapshotLease& operator=(SnapshotLease const&) = delete;

  Snapshot const snapshot;
  std::filesystem::path const databaseURL;  // the copy, to be opened for reading only

  /// Of the lock; not to be closed by anybody else. The last field, so that nothing can fail behind it.
  std::int32_t const descriptor;
};

}  // namespace tolva
