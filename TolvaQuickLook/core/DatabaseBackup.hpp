// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <filesystem>
#include <stop_token>

#include "platform/Export.hpp"

namespace tolva {

class SQLiteConnection;

/// Writes a copy of the connection's main database into `directory`, which is made if need be, and returns its path:
/// "backup-", the seconds since 1970, "-", a UUID, ".sqlite". The copy is one file, whatever journal the source keeps,
/// and only its owner may read it.
///
/// Of the backups in the folder the five newest stay, this one among them; whatever is no regular file of such a name,
/// or a database that this process has open, is not touched. The source is locked for 256 pages at a time
/// (https://sqlite.org/c3ref/backup_finish.html): a writer that has it locked is not waited for, the backup fails
/// (code 5), and so it does in a transaction of the connection itself that writes.
///
/// In the connection's turn. Only `task` stops it: a cancel through the connection's handle is lost. Throws
/// `DatabaseError`, with code 9 for a cancelled task, and leaves no new file; only where the folder could not be made,
/// or not be listed once the backup was complete, the system's own `std::filesystem::filesystem_error`. A crash can
/// leave a hidden file, never a partial backup.
TOLVA_EXPORT std::filesystem::path makeBackup(SQLiteConnection& connection, std::filesystem::path const& directory,
                                              std::stop_token task);

}  // namespace tolva
