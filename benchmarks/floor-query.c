// SPDX-License-Identifier: Apache-2.0
// The floor of the query questions: each row of the result written as JSON into a spool without syncs through one
// prepared statement, and a page of at most 500 rows read back out of that. The texts of the benchmarks' data need no
// escapes, so none are looked for.
#include <stdint.h>
#include <string.h>

#include "floor.h"
#include "measure.h"

enum { pageRows = 500, roomForRow = 4096 };

static void run(sqlite3* database, char const* sql) {
  if (sqlite3_exec(database, sql, 0, 0, 0)) stop(sql, database);
}

static long rows;
static uint64_t integers;
static long long bytes;

static sqlite3* openSpool(char const* path) {
  sqlite3* spool;
  remove(path);
  if (sqlite3_open(path, &spool)) stop(path, spool);
  run(spool, "PRAGMA synchronous = OFF");
  run(spool, "PRAGMA journal_mode = MEMORY");
  run(spool, "CREATE TABLE result (position INTEGER PRIMARY KEY, payload BLOB NOT NULL)");
  run(spool,
      "CREATE TABLE cell_preview(position INTEGER,col INTEGER,type TEXT,total INTEGER,bytes BLOB,PRIMARY "
      "KEY(position,col))");
  return spool;
}

static char* put(char* to, char const* text, size_t length) {
  memcpy(to, text, length);
  return to + length;
}

#define PUT(to, literal) put(to, literal, sizeof(literal) - 1)

static char* putWhole(char* to, int64_t value) {
  char digits[24];
  char* digit = digits + sizeof digits;
  uint64_t left = value < 0 ? 0 - (uint64_t)value : (uint64_t)value;
  do *--digit = (char)('0' + left % 10);
  while (left /= 10);
  if (value < 0) *--digit = '-';
  return put(to, digit, (size_t)(digits + sizeof digits - digit));
}

static char* putValue(char* to, sqlite3_stmt* row, int column) {
  switch (sqlite3_column_type(row, column)) {
    case SQLITE_INTEGER:
      return PUT(putWhole(PUT(to, "{\"integer\":{\"_0\":"), sqlite3_column_int64(row, column)), "}}");
    case SQLITE_FLOAT:
      to = PUT(to, "{\"real\":{\"_0\":");
      to += sprintf(to, "%.17g", sqlite3_column_double(row, column));
      return PUT(to, "}}");
    case SQLITE_TEXT: {
      char const* const text = (char const*)sqlite3_column_text(row, column);
      to = PUT(to, "{\"text\":{\"_0\":\"");
      return PUT(put(to, text, (size_t)sqlite3_column_bytes(row, column)), "\"}}");
    }
    default:
      return PUT(to, "{\"null\":{}}");
  }
}

/// Copies at most `most` rows from position `first` on; all of them where `most` is 0. Whether the end was seen.
static int copyRows(sqlite3_stmt* result, sqlite3* spool, int64_t first, int64_t most) {
  static char payload[roomForRow];
  sqlite3_stmt* const insert = prepare(spool, "INSERT INTO result VALUES (?, ?)");
  int ended = 0;
  run(spool, "BEGIN IMMEDIATE");
  for (int64_t position = first; most == 0 || position < first + most; ++position) {
    ended = !step(result);
    if (ended) break;
    char* end = PUT(payload, "[");
    for (int column = 0; column < sqlite3_column_count(result); ++column) {
      if (column > 0) *end++ = ',';
      end = putValue(end, result, column);
    }
    *end++ = ']';
    sqlite3_bind_int64(insert, 1, position);
    sqlite3_bind_blob(insert, 2, payload, (int)(end - payload), SQLITE_STATIC);
    step(insert);
    sqlite3_reset(insert);
  }
  sqlite3_finalize(insert);
  run(spool, "COMMIT");
  return ended;
}

/// Reads what a page shows, far enough to tell what it held.
static void readRow(char const* at, char const* end) {
  while (at < end) {
    char const* const frame = memchr(at, ':', (size_t)(end - at));
    if (!frame) break;
    char const* const value = frame + 7;  // behind {"_0":
    if (!memcmp(frame - 9, "\"integer\"", 9)) {
      integers += (uint64_t)strtoll(value, 0, 10);
    } else if (frame - at >= 6 && !memcmp(frame - 6, "\"text\"", 6)) {
      char const* const close = memchr(value + 1, '"', (size_t)(end - value - 1));
      bytes += close - value - 1;
      at = close;
    }
    at = memchr(at > frame ? at : frame, '}', (size_t)(end - (at > frame ? at : frame)));
    at += 2;
  }
}

static long readPage(sqlite3* spool, int64_t first) {
  sqlite3_stmt* const page =
      prepare(spool, "SELECT payload FROM result WHERE position >= ? AND position < ? ORDER BY position");
  sqlite3_bind_int64(page, 1, first);
  sqlite3_bind_int64(page, 2, first + pageRows);
  long count = 0;
  for (; step(page); ++count) {
    static char copy[roomForRow + 1];
    size_t const length = (size_t)sqlite3_column_bytes(page, 0);
    memcpy(copy, sqlite3_column_blob(page, 0), length);
    copy[length] = 0;
    readRow(copy, copy + length);
  }
  sqlite3_finalize(page);
  rows += count;
  return count;
}

int main(int argc, char** argv) {
  if (argc != 4) return 2;
  int const first = !strcmp(argv[1], "first"), spools = !strcmp(argv[1], "spool");
  char path[4096];
  snprintf(path, sizeof path, "%s/floor-spool.sqlite", argv[3]);
  keepSecondThread();
  sqlite3* database;
  if (sqlite3_open_v2(argv[2], &database,
                      (spools ? SQLITE_OPEN_READWRITE : SQLITE_OPEN_READONLY) | SQLITE_OPEN_FULLMUTEX, 0))
    stop(argv[2], database);
  struct timespec began = timeNow();
  sqlite3* spool = 0;
  if (first) {
    for (int round = 0; round < 25; ++round) {
      if (round == 5) {
        rows = 0, integers = 0, bytes = 0;
        began = timeNow();
      }
      sqlite3_stmt* const result = prepare(database, "SELECT id, quantity, price, name, note FROM records");
      spool = openSpool(path);
      copyRows(result, spool, 0, pageRows);
      readPage(spool, 0);
      sqlite3_finalize(result);
      sqlite3_close(spool);
    }
  } else if (spools) {
    run(database, "CREATE TEMP TABLE x(id, quantity, name)");
    sqlite3_stmt* const result = prepare(database, "INSERT INTO x SELECT id, quantity, name FROM records RETURNING *");
    spool = openSpool(path);
    copyRows(result, spool, 0, 0);
    readPage(spool, 0);
    sqlite3_finalize(result);
    sqlite3_close(spool);
  } else {
    sqlite3_stmt* const result = prepare(
        database,
        "SELECT id, d.column1, quantity, name FROM records, (VALUES (0),(1),(2),(3),(4),(5),(6),(7),(8),(9)) AS d");
    spool = openSpool(path);
    int ended = 0;
    do {
      ended = copyRows(result, spool, rows, pageRows);
    } while (readPage(spool, rows) > 0 && !ended);
    sqlite3_finalize(result);
    sqlite3_close(spool);
  }
  char done[200];
  snprintf(done, sizeof done, "%ld rows, integers %llu, %lld bytes of text", rows, (unsigned long long)integers, bytes);
  report(began, done);
  sqlite3_close(database);
  remove(path);
}
