// SPDX-License-Identifier: Apache-2.0
// The floor of read-rows: every value of every row copied out of SQLite into one tagged record a value, the records and
// the buffer behind their texts used again for the next row. Nothing is allocated and no text is checked. The loop is
// the cheapest that the library offers on a connection opened as ours are: the connection's lock is held all the
// time, and values are read through their handles. The plain loop over the column functions takes half as long again.
#include <stdint.h>
#include <string.h>

#include "floor.h"
#include "measure.h"

enum { columns = 8, roomForTexts = 65536 };

struct Value {
  int type;
  union {
    int64_t integer;
    double real;
    struct {
      char* bytes;
      int length;
    } text;
  };
};

static char texts[roomForTexts];

static void copyRow(sqlite3_stmt* statement, struct Value* row) {
  char* free = texts;
  for (int column = 0; column < columns; ++column) {
    sqlite3_value* const from = sqlite3_column_value(statement, column);
    struct Value* const to = &row[column];
    to->type = sqlite3_value_type(from);
    if (to->type == SQLITE_INTEGER) {
      to->integer = sqlite3_value_int64(from);
    } else if (to->type == SQLITE_FLOAT) {
      to->real = sqlite3_value_double(from);
    } else if (to->type == SQLITE_TEXT) {
      to->text.length = sqlite3_value_bytes(from);
      to->text.bytes = memcpy(free, sqlite3_value_text(from), (size_t)to->text.length);
      free += to->text.length;
    }
  }
}

int main(int argc, char** argv) {
  if (argc != 2) return 2;
  keepSecondThread();
  sqlite3* const database = openReadOnly(argv[1]);
  sqlite3_stmt* const statement = prepare(database, "SELECT * FROM records");
  if (sqlite3_column_count(statement) != columns) stop("a table of 8 columns is needed", database);

  static struct Value row[columns];
  long rows = 0;
  int64_t integers = 0, bytes = 0, nulls = 0;
  double reals = 0;
  struct timespec const began = timeNow();
  sqlite3_mutex_enter(sqlite3_db_mutex(database));
  for (; step(statement); ++rows) {
    copyRow(statement, row);
    for (int column = 0; column < columns; ++column) {
      if (row[column].type == SQLITE_INTEGER) integers ^= row[column].integer;
      if (row[column].type == SQLITE_FLOAT) reals += row[column].real;
      if (row[column].type == SQLITE_TEXT) bytes += row[column].text.length;
      if (row[column].type == SQLITE_NULL) ++nulls;
    }
  }
  sqlite3_mutex_leave(sqlite3_db_mutex(database));
  char done[200];
  snprintf(done, sizeof done, "%ld rows of %d columns, %lld bytes of text, %lld NULLs, integers %lld, reals %.17g",
           rows, columns, (long long)bytes, (long long)nulls, (long long)integers, reals);
  report(began, done);
  sqlite3_finalize(statement);
  sqlite3_close(database);
}
