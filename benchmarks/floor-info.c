// SPDX-License-Identifier: Apache-2.0
// The floor of info-5000: the statements of Database Info within one transaction, stepped to the end, with the columns
// read that the answer needs.
#include <string.h>

#include "floor.h"
#include "measure.h"

enum { mostTables = 4096 };

struct Counts {
  int tables, views, indexes, triggers, asked, foreignKeys;
  long long bytes;
};

static void run(sqlite3* database, char const* sql) {
  sqlite3_stmt* const statement = prepare(database, sql);
  while (step(statement)) continue;
  sqlite3_finalize(statement);
}

/// Runs a pragma of one row; gives its value if that is an integer.
static int scalar(sqlite3* database, char const* sql) {
  sqlite3_stmt* const statement = prepare(database, sql);
  int const value = step(statement) ? sqlite3_column_int(statement, 0) : 0;
  sqlite3_finalize(statement);
  return value;
}

static void countObjects(sqlite3* database, struct Counts* counts) {
  sqlite3_stmt* const statement = prepare(
      database,
      "SELECT type, count(*) FROM sqlite_schema WHERE name NOT GLOB 'sqlite_*' OR type = 'index' GROUP BY type");
  while (step(statement)) {
    char const* const type = (char const*)sqlite3_column_text(statement, 0);
    int const count = sqlite3_column_int(statement, 1);
    if (!strcmp(type, "table")) counts->tables = count;
    if (!strcmp(type, "view")) counts->views = count;
    if (!strcmp(type, "index")) counts->indexes = count;
    if (!strcmp(type, "trigger")) counts->triggers = count;
  }
  sqlite3_finalize(statement);
}

static int hasForeignKey(sqlite3* database, char const* table) {
  char sql[200];
  snprintf(sql, sizeof sql, "PRAGMA foreign_key_list(\"%s\")", table);
  sqlite3_stmt* const statement = prepare(database, sql);
  int const found = step(statement);
  sqlite3_finalize(statement);
  return found;
}

static void scanTables(sqlite3* database, struct Counts* counts) {
  sqlite3_stmt* const statement = prepare(
      database,
      "SELECT name, sql FROM sqlite_schema WHERE type = 'table' AND name NOT GLOB 'sqlite_*' ORDER BY name LIMIT 4097");
  while (step(statement) && counts->asked < mostTables) {
    char const* const name = (char const*)sqlite3_column_text(statement, 0);
    counts->bytes += sqlite3_column_bytes(statement, 0);
    if (sqlite3_column_text(statement, 1)) counts->bytes += sqlite3_column_bytes(statement, 1);
    if (!counts->foreignKeys) counts->foreignKeys = hasForeignKey(database, name);
    ++counts->asked;
  }
  sqlite3_finalize(statement);
}

int main(int argc, char** argv) {
  if (argc != 2) return 2;
  keepSecondThread();
  struct Counts counts = {0, 0, 0, 0, 0, 0, 0};
  struct timespec const began = timeNow();
  sqlite3* const database = openReadOnly(argv[1]);
  run(database, "PRAGMA foreign_keys = ON");
  run(database, "PRAGMA query_only = ON");
  run(database, "BEGIN");
  run(database, "PRAGMA journal_mode");
  int const pageSize = scalar(database, "PRAGMA page_size");
  countObjects(database, &counts);
  scanTables(database, &counts);
  int const readOnly = sqlite3_db_readonly(database, "main");
  run(database, "ROLLBACK");
  sqlite3_close(database);
  char done[200];
  snprintf(done, sizeof done,
           "pages of %d, %d tables, %d views, %d indexes, %d triggers, read-only %d, foreign keys %d", pageSize,
           counts.tables, counts.views, counts.indexes, counts.triggers, readOnly, counts.foreignKeys);
  report(began, done);
}
