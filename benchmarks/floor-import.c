// SPDX-License-Identifier: Apache-2.0
// The floor of import-new and import-existing: two passes over the file or one, fields told by where they lie, one
// statement, one transaction with a savepoint for each 500 rows, and every text bound where it stands. It knows no
// quotes, looks for no invalid UTF-8 and takes any integer of at most 18 digits for one that reads back as it is.
#include <fcntl.h>
#include <stdint.h>
#include <string.h>
#include <unistd.h>

#include "floor.h"
#include "measure.h"

enum { chunk = 65536, columns = 8, batch = 500 };

typedef enum { integer, real, text } Type;

typedef struct {
  char const* bytes;
  int size;
} Field;

typedef struct {
  int file;
  size_t begin, end;
  char buffer[2 * chunk + 1];
} Reader;

static Reader first, second;
static Field fields[columns];

static void openFile(Reader* reader, char const* path) {
  reader->file = open(path, O_RDONLY);
  reader->begin = reader->end = 0;
  if (reader->file < 0) exit(1);
}

/// The next row's fields, which hold until the next call. A file that has others than eight is refused.
static int readRow(Reader* reader) {
  char* line;
  while (!(line = memchr(reader->buffer + reader->begin, '\n', reader->end - reader->begin))) {
    memmove(reader->buffer, reader->buffer + reader->begin, reader->end - reader->begin);
    reader->end -= reader->begin;
    reader->begin = 0;
    if (reader->end > chunk) exit(1);
    ssize_t const got = read(reader->file, reader->buffer + reader->end, chunk);
    if (got <= 0) return 0;
    reader->end += (size_t)got;
  }
  char const* at = reader->buffer + reader->begin;
  for (int column = 0; column < columns; ++column) {
    char const* const comma = column == columns - 1 ? line : memchr(at, ',', (size_t)(line - at));
    if (!comma) exit(1);
    fields[column] = (Field){at, (int)(comma - at)};
    at = comma + 1;
  }
  reader->begin = (size_t)(at - reader->buffer);
  return 1;
}

static int isInteger(Field field, int64_t* value) {
  int const sign = field.size > 0 && field.bytes[0] == '-';
  if (field.size == sign || field.size > 18) return 0;
  *value = 0;
  for (int at = sign; at < field.size; ++at) {
    if (field.bytes[at] < '0' || field.bytes[at] > '9') return 0;
    *value = *value * 10 + (field.bytes[at] - '0');
  }
  if (sign) *value = -*value;
  return 1;
}

static int isReal(Field field, double* value) {
  if (field.size == 0) return 0;
  char* end;
  *value = strtod(field.bytes, &end);
  return end == field.bytes + field.size;
}

static void inferTypes(char const* path, Type* types) {
  int64_t whole;
  double number;
  memset(types, 0, columns * sizeof *types);
  openFile(&second, path);
  for (readRow(&second); readRow(&second);) {
    for (int column = 0; column < columns; ++column) {
      if (types[column] == text || fields[column].size == 0 || isInteger(fields[column], &whole)) continue;
      types[column] = isReal(fields[column], &number) ? real : text;
    }
  }
  close(second.file);
}

static int bindField(sqlite3_stmt* statement, int column, Type type) {
  Field const field = fields[column];
  int64_t whole;
  double number;
  if (type != text && isInteger(field, &whole)) return sqlite3_bind_int64(statement, column + 1, whole);
  if (type != text && isReal(field, &number)) return sqlite3_bind_double(statement, column + 1, number);
  return sqlite3_bind_text(statement, column + 1, field.bytes, field.size, SQLITE_STATIC);
}

static void run(sqlite3* database, char const* sql) {
  if (sqlite3_exec(database, sql, 0, 0, 0)) stop(sql, database);
}

static char const table[] =
    "CREATE TABLE t(id INTEGER, quantity INTEGER, price REAL, code TEXT, note TEXT, day TEXT, description TEXT, digest "
    "TEXT)";

int main(int argc, char** argv) {
  if (argc != 4) return 2;
  int const fresh = strcmp(argv[1], "new") == 0;
  char path[4096];
  snprintf(path, sizeof path, "%s/floor-import.db", argv[3]);
  remove(path);
  keepSecondThread();
  sqlite3* database;
  if (sqlite3_open_v2(path, &database, SQLITE_OPEN_READWRITE | SQLITE_OPEN_CREATE | SQLITE_OPEN_FULLMUTEX, 0))
    stop(path, database);
  run(database, "PRAGMA user_version = 1");
  run(database, "PRAGMA foreign_keys = ON");
  Type types[columns] = {integer, integer, real, text, text, text, text, text};
  if (!fresh) run(database, table);

  long long rows = 0;
  openFile(&first, argv[2]);
  readRow(&first);
  if (fresh) inferTypes(argv[2], types);
  run(database, "BEGIN IMMEDIATE");
  if (fresh) run(database, table);
  sqlite3_stmt* const insert = prepare(database, "INSERT INTO t VALUES (?,?,?,?,?,?,?,?)");
  run(database, "SAVEPOINT csv_batch");
  sqlite3_mutex_enter(sqlite3_db_mutex(database));
  while (readRow(&first)) {
    sqlite3_reset(insert);
    for (int column = 0; column < columns; ++column) {
      if (bindField(insert, column, types[column])) stop("bind", database);
    }
    step(insert);
    if (++rows % batch == 0) {
      run(database, "RELEASE csv_batch");
      run(database, "SAVEPOINT csv_batch");
    }
  }
  sqlite3_mutex_leave(sqlite3_db_mutex(database));
  sqlite3_finalize(insert);
  run(database, "RELEASE csv_batch");
  run(database, "COMMIT");
  sqlite3_close(database);
  printf("{\"rows\":%lld}\n", rows);
  remove(path);
  return 0;
}
