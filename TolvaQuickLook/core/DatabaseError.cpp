// SPDX-License-Identifier: Apache-2.0
#include "core/DatabaseError.hpp"

#include <sqlite3.h>

namespace tolva {

std::string DatabaseError::errorDescription() const {
  switch (code & 0xFF) {
    case SQLITE_BUSY:
    case SQLITE_LOCKED:
      return "Another connection is holding a database lock. Wait for its transaction to finish, then try again. " +
             detail;
    case SQLITE_READONLY:
      return "This database is currently read-only. " + detail;
    case SQLITE_INTERRUPT:
      return "Cancelled";
    case SQLITE_CORRUPT:
      return "SQLite detected damage in this database. Restore a known-good backup or recover a separate copy. Tolva "
             "does not automatically repair databases.";
    case SQLITE_CONSTRAINT:
      return "That change violates a database constraint. " + detail;
    case SQLITE_NOTADB:
      return "SQLite cannot recognize this file. It may not be a SQLite database, may be encrypted, or may have a "
             "damaged header. Encrypted databases are not supported.";
    default:
      return detail;
  }
}

}  // namespace tolva
