// SPDX-License-Identifier: Apache-2.0
#include "snapshots/SnapshotLease.hpp"

#include <utility>

#include "snapshots/StoreLock.hpp"

namespace tolva {

SnapshotLease::SnapshotLease(Snapshot record, std::filesystem::path database, StoreLock&& lock)
    : snapshot(std::move(record)), databaseURL(std::move(database)), descriptor(lock.release()) {}

SnapshotLease::~SnapshotLease() { StoreLock::unlockAndClose(descriptor); }

}  // namespace tolva
