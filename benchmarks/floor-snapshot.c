// SPDX-License-Identifier: Apache-2.0
// The floor of snapshot-500MB: SQLite's own steps of 256 pages into a file with a cache of 2 MiB, flushed at the end.
#include <fcntl.h>
#include <stdint.h>
#include <sys/stat.h>
#include <unistd.h>

#include "floor.h"

static void run(sqlite3* database, char const* sql) {
  if (sqlite3_exec(database, sql, 0, 0, 0)) stop(sql, database);
}

int main(int argc, char** argv) {
  if (argc != 3) return 2;
  char path[4096];
  snprintf(path, sizeof path, "%s/floor-snapshot.sqlite", argv[2]);
  remove(path);
  sqlite3* const source = openReadOnly(argv[1]);
  sqlite3* copy;
  if (sqlite3_open(path, &copy)) stop(path, copy);
  run(copy, "PRAGMA cache_size=-2048");
  run(copy, "PRAGMA cache_spill=1");
  sqlite3_backup* const backup = sqlite3_backup_init(copy, "main", source, "main");
  if (!backup) stop("backup", copy);
  while (sqlite3_backup_step(backup, 256) == SQLITE_OK) continue;
  if (sqlite3_backup_finish(backup)) stop("backup", copy);
  run(copy, "PRAGMA journal_mode=DELETE");
  sqlite3_close(copy);
  int const file = open(path, O_RDONLY);
  struct stat status;
  if (fsync(file) || fstat(file, &status)) return 1;
  close(file);
  printf("%jd bytes\n", (intmax_t)status.st_size);
  remove(path);
}
