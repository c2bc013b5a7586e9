// SPDX-License-Identifier: Apache-2.0
// The floor of cell-fetch: for each cell the file opened and set up as the library does, the statement of a preview run
// under the same limits, and the head of the value copied.
#include <stdint.h>
#include <string.h>

#include "floor.h"
#include "measure.h"

static int64_t deadline;

static int64_t nanoseconds(void) {
  struct timespec const now = timeNow();
  return now.tv_sec * INT64_C(1000000000) + now.tv_nsec;
}

static int isOver(void* nothing) {
  (void)nothing;
  return nanoseconds() >= deadline;
}

static void run(sqlite3* database, char const* sql) {
  sqlite3_stmt* const statement = prepare(database, sql);
  while (step(statement)) continue;
  sqlite3_finalize(statement);
}

int main(int argc, char** argv) {
  if (argc != 3) return 2;
  long long const rows = atoll(argv[2]);
  keepSecondThread();
  long long bytes = 0;
  unsigned long long ends = 0;  // the sum of the last bytes
  struct timespec began = timeNow();
  for (int cell = 0; cell < 220; ++cell) {
    if (cell == 20) began = timeNow();
    sqlite3* const database = openReadOnly(argv[1]);
    sqlite3_extended_result_codes(database, 1);
    sqlite3_busy_timeout(database, 1200);
    run(database, "PRAGMA foreign_keys = ON");
    run(database, "PRAGMA query_only = ON");
    sqlite3_limit(database, SQLITE_LIMIT_LENGTH, 8388608);
    deadline = nanoseconds() + INT64_C(3000000000);
    sqlite3_progress_handler(database, 1000, isOver, 0);
    sqlite3_stmt* const statement =
        prepare(database,
                "SELECT typeof(\"text\"), length(CAST(\"text\" AS BLOB)), substr(CAST(\"text\" AS BLOB),1,?) FROM "
                "\"cells\" WHERE \"id\" IS ? LIMIT 2");
    sqlite3_bind_int64(statement, 1, 1048576);
    sqlite3_bind_int64(statement, 2, 1 + cell % rows);
    if (!step(statement)) return 1;
    char type[8];
    snprintf(type, sizeof type, "%s", (char const*)sqlite3_column_text(statement, 0));
    bytes += sqlite3_column_int64(statement, 1);
    size_t const size = (size_t)sqlite3_column_bytes(statement, 2);
    unsigned char* const head = malloc(size);
    memcpy(head, sqlite3_column_blob(statement, 2), size);
    ends += head[size - 1];
    free(head);
    if (step(statement)) return 1;
    sqlite3_finalize(statement);
    sqlite3_close(database);
  }
  char done[200];
  snprintf(done, sizeof done, "%lld bytes, last ones %llu", bytes, ends);
  report(began, done);
}
