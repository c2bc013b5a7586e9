// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdint>
#include <stop_token>

#include "core/SQLiteConnection.hpp"
#include "snapshots/SnapshotLimits.hpp"
#include "snapshots/SnapshotService.hpp"
#include "snapshots/SnapshotStaging.hpp"

namespace tolva {

/// Copies the main database of `source` into the database of `staging`, as it is at one moment, into one file that
/// needs no companion. Returns the pages that `source` had: none makes a copy that is an empty database.
///
/// The source is locked for 256 pages at a time; a lock of somebody else's is waited for, until the copy has taken
/// `limits.timeout`. `validateSource` is called before the first step and between any two. Both callbacks may be empty,
/// and what they throw is passed on. Throws `DatabaseError` and `TaskCancelled`, and leaves the connection to the
/// destination closed. In the source's turn, whose time of waiting for locks stays at 50 ms.
std::int64_t copySnapshot(SQLiteConnection& source, SnapshotStaging const& staging, SnapshotLimits const& limits,
                          SnapshotProgressReport const& progress, SourceValidation const& validateSource,
                          std::stop_token const& task);

}  // namespace tolva
