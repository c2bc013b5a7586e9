// SPDX-License-Identifier: Apache-2.0
// The floor of schema-5000: for 500 tables, spread evenly over all, the three pragmas that tell a table's columns, its
// kind and its indexes, each narrowed by the table's name, stepped to the end with the columns read that a schema
// needs.
#include <string.h>

#include "floor.h"
#include "measure.h"

enum { asked = 500 };

struct Counts {
  int tables, columns, withoutRowID, keyedByRowID;
};

static sqlite3_stmt* pragma(sqlite3* database, char const* name, char const* table) {
  char sql[200];
  snprintf(sql, sizeof sql, "PRAGMA %s(\"%s\")", name, table);
  return prepare(database, sql);
}

/// Reads a text as far as its length, which is the least that a copy of it would need.
static int readText(sqlite3_stmt* statement, int column) {
  return sqlite3_column_text(statement, column) ? sqlite3_column_bytes(statement, column) : 0;
}

static void readSchema(sqlite3* database, char const* table, struct Counts* counts) {
  int withoutRowID = 0, keyIndex = 0;
  sqlite3_stmt* statement = pragma(database, "table_xinfo", table);
  while (step(statement)) {
    for (int column = 1; column <= 4; ++column) readText(statement, column);
    if (sqlite3_column_int(statement, 6) != 1) ++counts->columns;
    sqlite3_column_int(statement, 5);
  }
  sqlite3_finalize(statement);
  statement = pragma(database, "table_list", table);
  while (step(statement)) {
    readText(statement, 1);
    withoutRowID = sqlite3_column_int(statement, 4);
    sqlite3_column_int(statement, 5);
  }
  sqlite3_finalize(statement);
  if (!withoutRowID) {
    statement = pragma(database, "index_list", table);
    while (step(statement)) {
      char const* const origin = (char const*)sqlite3_column_text(statement, 3);
      if (origin && !strcmp(origin, "pk")) keyIndex = 1;
    }
    sqlite3_finalize(statement);
  }
  ++counts->tables;
  counts->withoutRowID += withoutRowID;
  counts->keyedByRowID += !withoutRowID && !keyIndex;
}

int main(int argc, char** argv) {
  if (argc != 2) return 2;
  keepSecondThread();
  sqlite3* const database = openReadOnly(argv[1]);
  sqlite3_stmt* const statement = prepare(
      database,
      "SELECT name FROM sqlite_schema WHERE type = 'table' AND name NOT GLOB 'sqlite_*' ORDER BY name COLLATE NOCASE");
  char** names = 0;
  int known = 0;
  while (step(statement)) {
    names = realloc(names, sizeof(char*) * (size_t)(known + 1));
    names[known++] = strdup((char const*)sqlite3_column_text(statement, 0));
  }
  sqlite3_finalize(statement);
  if (known < asked) stop("500 tables are needed", database);

  struct Counts counts = {0, 0, 0, 0};
  struct timespec const began = timeNow();
  for (int table = 0; table < asked; ++table) readSchema(database, names[table * (known / asked)], &counts);
  char done[200];
  snprintf(done, sizeof done, "%d tables of %d: %d columns, %d without rowid, %d with the rowid as key", counts.tables,
           known, counts.columns, counts.withoutRowID, counts.keyedByRowID);
  report(began, done);
  sqlite3_close(database);
}
