// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdint>
#include <filesystem>

#include "core/SQLiteConnection.hpp"
#include "snapshots/SnapshotEstimate.hpp"
#include "snapshots/SnapshotLimits.hpp"

namespace tolva {

// What a snapshot takes, and whether the store has room for it. All throw `DatabaseError`. Any thread; a connection in
// its turn.

/// The size of the connection's main database and the free bytes of the file system of `store`. A database in WAL mode
/// whose companions cannot be used fails with a sentence that says what the person can do (code 14).
SnapshotEstimate estimateSnapshot(SQLiteConnection& source, std::filesystem::path const& store,
                                  SnapshotLimits const& limits);

/// In bytes.
std::int64_t databaseSize(std::int64_t pages, std::int64_t pageSize);
std::int64_t pageSizeOf(SQLiteConnection& source);

/// Refuses a capture that would leave less than a tenth of the database free, or than 16 MiB. Where the free bytes are
/// not known it is tried.
void requireSpace(SnapshotEstimate const& estimate);

}  // namespace tolva
