// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <filesystem>

namespace tolva {

// The files that SQLite keeps beside a database in write-ahead mode (https://sqlite.org/walformat.html).

/// The log with the commits that are not in the database yet.
inline std::filesystem::path walOf(std::filesystem::path database) { return database += "-wal"; }

/// The index of the log, shared by the processes that have the database open.
inline std::filesystem::path shmOf(std::filesystem::path database) { return database += "-shm"; }

}  // namespace tolva
