// SPDX-License-Identifier: Apache-2.0
#pragma once

// The bare use of SQLite that the floor programs share. A floor is what nobody who uses the system library can go
// below: it opens as the library opens, asks the same statements, reads the same columns, and does nothing else.

#include <sqlite3.h>
#include <stdio.h>
#include <stdlib.h>

static inline void stop(char const* doing, sqlite3* database) {
  fprintf(stderr, "%s: %s\n", doing, sqlite3_errmsg(database));
  exit(1);
}

static inline sqlite3* openReadOnly(char const* path) {
  sqlite3* database;
  if (sqlite3_open_v2(path, &database, SQLITE_OPEN_READONLY | SQLITE_OPEN_FULLMUTEX, 0)) stop(path, database);
  return database;
}

static inline sqlite3_stmt* prepare(sqlite3* database, char const* sql) {
  sqlite3_stmt* statement;
  if (sqlite3_prepare_v2(database, sql, -1, &statement, 0)) stop(sql, database);
  return statement;
}

/// Whether there is a row. Anything but a row or the end stops the program.
static inline int step(sqlite3_stmt* statement) {
  int const code = sqlite3_step(statement);
  if (code != SQLITE_ROW && code != SQLITE_DONE) stop(sqlite3_sql(statement), sqlite3_db_handle(statement));
  return code == SQLITE_ROW;
}
