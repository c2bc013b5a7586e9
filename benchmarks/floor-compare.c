// SPDX-License-Identifier: Apache-2.0
// The floor of the comparisons: the three statements of a table, bare, into a result store with the same settings.
// `floor-compare TABLE KEYS OLDER NEWER FOLDER`, where KEYS columns at the front of the table are its key.
#include <stdint.h>
#include <string.h>

#include "floor.h"
#include "measure.h"

enum { mostSQL = 16384 };

static sqlite3* database;

static void run(char const* sql) {
  if (sqlite3_exec(database, sql, 0, 0, 0)) stop(sql, database);
}

/// Writes `form`, in which each $ stands for a column's name, for the first `count` columns, and `between` them.
static void join(char* to, char const* form, char const* between, char names[][64], int count) {
  *to = 0;
  for (int column = 0; column < count; ++column) {
    if (column) to += sprintf(to, "%s", between);
    for (char const* from = form; *from; ++from) {
      to += *from == '$' ? sprintf(to, "%s", names[column]) : sprintf(to, "%c", *from);
    }
  }
}

static intmax_t insert(char const* columns, char const* select) {
  static char sql[3 * mostSQL];
  snprintf(sql, sizeof sql, "INSERT INTO changes(kind,%s) %s", columns, select);
  run(sql);
  return sqlite3_changes64(database);
}

int main(int argc, char** argv) {
  if (argc != 6) return 2;
  keepSecondThread();
  char const* const table = argv[1];
  int const keys = atoi(argv[2]);
  char path[4096];
  snprintf(path, sizeof path, "%s/floor-compare.sqlite", argv[5]);
  remove(path);
  int const flags = SQLITE_OPEN_READWRITE | SQLITE_OPEN_CREATE | SQLITE_OPEN_URI | SQLITE_OPEN_FULLMUTEX;
  if (sqlite3_open_v2(path, &database, flags, 0)) stop(path, database);
  run("PRAGMA page_size=4096");
  run("PRAGMA max_page_count=16384");
  run("PRAGMA cache_size=-2048");
  run("PRAGMA temp_store=FILE");
  char sql[3 * mostSQL];
  snprintf(sql, sizeof sql, "ATTACH 'file:%s?mode=ro' AS older; ATTACH 'file:%s?mode=ro' AS newer", argv[3], argv[4]);
  run(sql);

  static char names[16][64], places[16][64];
  int columns = 0;
  snprintf(sql, sizeof sql, "SELECT name FROM pragma_table_info('%s', 'older')", table);
  sqlite3_stmt* const listed = prepare(database, sql);
  while (step(listed)) snprintf(names[columns++], 64, "%s", (char const*)sqlite3_column_text(listed, 0));
  sqlite3_finalize(listed);
  for (int key = 0; key < keys; ++key) snprintf(places[key], 64, "%d", key);

  char a[512], b[512], nulls[512], on[1024], stored[512], more[512];
  static char differ[mostSQL];
  join(a, "a.$", ",", names, keys);
  join(b, "b.$", ",", names, keys);
  join(nulls, "NULL", ",", names, keys);
  join(on, "a.$ COLLATE BINARY = b.$", " AND ", names, keys);
  join(stored, "o$", ",", places, keys);
  join(more, "n$", ",", places, keys);
  strcat(strcat(stored, ","), more);
  join(differ,
       "(typeof(a.$) != typeof(b.$) OR CASE WHEN typeof(a.$) IN ('text','blob') THEN CAST(a.$ AS BLOB) IS NOT "
       "CAST(b.$ AS BLOB) ELSE a.$ IS NOT b.$ END)",
       " OR ", names, columns);

  run("BEGIN");
  snprintf(sql, sizeof sql, "CREATE TABLE changes(id INTEGER PRIMARY KEY,kind TEXT,%s)", stored);
  run(sql);
  snprintf(sql, sizeof sql,
           "SELECT 'Inserted',%s,%s FROM newer.%s b WHERE NOT EXISTS(SELECT 1 FROM older.%s a WHERE %s)", nulls, b,
           table, table, on);
  intmax_t const inserted = insert(stored, sql);
  snprintf(sql, sizeof sql, "SELECT 'Updated',%s,%s FROM older.%s a JOIN newer.%s b ON %s WHERE %s", a, b, table, table,
           on, differ);
  intmax_t const updated = insert(stored, sql);
  snprintf(sql, sizeof sql,
           "SELECT 'Deleted',%s,%s FROM older.%s a WHERE NOT EXISTS(SELECT 1 FROM newer.%s b WHERE %s)", a, nulls,
           table, table, on);
  intmax_t const deleted = insert(stored, sql);
  run("COMMIT");
  printf("Compared: %jd inserted, %jd updated, %jd deleted\n", inserted, updated, deleted);
  remove(path);
}
