// SPDX-License-Identifier: Apache-2.0
// The floor of backup-500MB: SQLite's own steps of 256 pages, into a file that has no journal and is flushed once.
#include <stdint.h>
#include <sys/stat.h>

#include "floor.h"

int main(int argc, char** argv) {
  if (argc != 3) return 2;
  char path[4096];
  snprintf(path, sizeof path, "%s/floor-backup.sqlite", argv[2]);
  remove(path);
  sqlite3* const source = openReadOnly(argv[1]);
  sqlite3* copy;
  if (sqlite3_open(path, &copy)) stop(path, copy);
  if (sqlite3_exec(copy, "PRAGMA journal_mode = OFF", 0, 0, 0)) stop("no journal", copy);
  sqlite3_backup* const backup = sqlite3_backup_init(copy, "main", source, "main");
  if (!backup) stop("backup", copy);
  while (sqlite3_backup_step(backup, 256) == SQLITE_OK) continue;
  if (sqlite3_backup_finish(backup)) stop("backup", copy);
  sqlite3_close(copy);
  struct stat status;
  if (stat(path, &status)) return 1;
  printf("%jd bytes\n", (intmax_t)status.st_size);
  remove(path);
}
