// SPDX-License-Identifier: Apache-2.0
// The floor of edit-1000: the same guarded UPDATEs in one transaction, each of the two prepared once and its bindings
// set anew for every row; the identity that comes back is read and a second step proves that no other row was changed.
#include <stdint.h>
#include <string.h>

#include "floor.h"
#include "measure.h"

enum { edited = 1000, roomForText = 64 };

struct Change {
  int64_t id, quantity;
  int noteIsNull, oldLength, newLength;
  char oldNote[roomForText], newNote[roomForText];
};

static struct Change changes[edited];

static void copyFile(char const* from, char const* to) {
  static char part[1 << 16];
  FILE* const in = fopen(from, "rb");
  FILE* const out = fopen(to, "wb");
  if (!in || !out) exit(1);
  for (size_t size; (size = fread(part, 1, sizeof part, in)) > 0;) {
    if (fwrite(part, 1, size, out) != size) exit(1);
  }
  if (fclose(in) || fclose(out)) exit(1);
}

static int readChanges(sqlite3* database) {
  sqlite3_stmt* const statement = prepare(database,
                                          "SELECT id, quantity, note FROM records WHERE id % ((SELECT max(id) FROM "
                                          "records) / 1000) = 0 ORDER BY id LIMIT 1000");
  int count = 0;
  for (; step(statement); ++count) {
    struct Change* const change = &changes[count];
    change->id = sqlite3_column_int64(statement, 0);
    change->quantity = sqlite3_column_int64(statement, 1);
    change->noteIsNull = sqlite3_column_type(statement, 2) == SQLITE_NULL;
    change->oldLength = sqlite3_column_bytes(statement, 2);
    if (!change->noteIsNull) memcpy(change->oldNote, sqlite3_column_text(statement, 2), (size_t)change->oldLength);
    change->newLength = snprintf(change->newNote, roomForText, "edited by a person at %d", count);
  }
  sqlite3_finalize(statement);
  return count;
}

static void run(sqlite3* database, char const* sql) {
  if (sqlite3_exec(database, sql, 0, 0, 0)) stop(sql, database);
}

int main(int argc, char** argv) {
  if (argc != 3) return 2;
  copyFile(argv[1], argv[2]);
  keepSecondThread();
  sqlite3* database = openReadOnly(argv[2]);
  int const count = readChanges(database);
  sqlite3_close(database);
  if (sqlite3_open_v2(argv[2], &database, SQLITE_OPEN_READWRITE | SQLITE_OPEN_FULLMUTEX, 0)) stop(argv[2], database);
  run(database, "PRAGMA foreign_keys = ON");

  long long quantities = 0, bytes = 0, identities = 0;
  struct timespec const began = timeNow();
  run(database, "BEGIN IMMEDIATE");
  sqlite3_stmt* const updates[] = {
      prepare(database,
              "UPDATE \"records\" SET \"quantity\" = ? WHERE \"id\" IS ? AND \"quantity\" IS ? RETURNING \"id\""),
      prepare(database, "UPDATE \"records\" SET \"note\" = ? WHERE \"id\" IS ? AND \"note\" IS ? RETURNING \"id\"")};
  for (int place = 0; place < count; ++place) {
    struct Change const* const change = &changes[place];
    sqlite3_stmt* const update = updates[place % 2];
    sqlite3_bind_int64(update, 2, change->id);
    if (place % 2 == 0) {
      sqlite3_bind_int64(update, 1, change->quantity + 1);
      sqlite3_bind_int64(update, 3, change->quantity);
      quantities += change->quantity + 1;
    } else {
      sqlite3_bind_text(update, 1, change->newNote, change->newLength, SQLITE_STATIC);
      if (change->noteIsNull)
        sqlite3_bind_null(update, 3);
      else
        sqlite3_bind_text(update, 3, change->oldNote, change->oldLength, SQLITE_STATIC);
      bytes += change->newLength;
    }
    if (!step(update)) stop("a row is stale", database);
    identities += sqlite3_column_int64(update, 0);
    if (step(update)) stop("two rows were changed", database);
    sqlite3_reset(update);
  }
  sqlite3_finalize(updates[0]);
  sqlite3_finalize(updates[1]);
  run(database, "COMMIT");
  char done[200];
  snprintf(done, sizeof done, "%d changes, quantities %lld, %lld bytes of notes, identities %lld", count, quantities,
           bytes, identities);
  report(began, done);
  sqlite3_close(database);
  remove(argv[2]);
}
