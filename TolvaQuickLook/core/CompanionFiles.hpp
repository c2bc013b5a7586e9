// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <filesystem>

namespace tolva {

// The files that SQLite keeps beside a database (https://sqlite.org/tempfiles.html). The first two only in write-ahead
// mode, the last one in the others and while something is being written.

/// The log with the commits that are not in the database yet.
inline std::filesystem::path walOf(std::filesystem::path database) { return database += "-wal"; }

/// The index of the log, shared by the processes that have the database open.
inline std::filesystem::path shmOf(std::filesystem::path database) { return database += "-shm"; }

/// What undoes the transaction that was under way when a process died.
inline std::filesystem::path journalOf(std::filesystem::path database) { return database += "-journal"; }

}  // namespace tolva
