// SPDX-License-Identifier: Apache-2.0
// The floor of preview-small and preview-5000-tables: open, the one statement of a preview, its counts and its first
// 100 names printed, close. It reads no file attributes and writes neither a size nor a date.
#include <string.h>

#include "floor.h"

int main(int argc, char** argv) {
  if (argc != 2) return 2;
  sqlite3* const database = openReadOnly(argv[1]);
  sqlite3_stmt* const statement = prepare(
      database, "SELECT type, name FROM sqlite_schema WHERE name NOT GLOB 'sqlite_*' ORDER BY name COLLATE NOCASE");
  int tables = 0, views = 0, indexes = 0;
  while (step(statement)) {
    char const* const type = (char const*)sqlite3_column_text(statement, 0);
    if (!strcmp(type, "table")) {
      if (tables++ < 100) puts((char const*)sqlite3_column_text(statement, 1));
    } else if (!strcmp(type, "view")) {
      ++views;
    } else if (!strcmp(type, "index")) {
      ++indexes;
    }
  }
  printf("%d tables · %d views · %d indexes\n", tables, views, indexes);
  sqlite3_finalize(statement);
  sqlite3_close(database);
}
