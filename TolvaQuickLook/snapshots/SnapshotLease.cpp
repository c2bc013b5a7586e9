// SPDX-License-Identifier: Apache-2.0
#include "snapshots/SnapshotLease.hpp"

#include <sys/file.h>
#include <unistd.h>

#include <utility>

namespace tolva {

SnapshotLease::SnapshotLease(Snapshot record, std::filesystem::path database, std::int32_t lock)
    : snapshot(std::move(record)), databaseURL(std::move(database)), descriptor(lock) {}

/// A child that another thread has forked keeps a copy of the descriptor until it runs its program: closing alone would
/// leave the lock with it for that moment.
SnapshotLease::~SnapshotLease() {
  ::flock(descriptor, LOCK_UN);
  ::close(descriptor);
}

}  // namespace tolva
