// SPDX-License-Identifier: Apache-2.0
// The floor of the questions about pages: the statement of a page prepared, bound and stepped once for each page, every
// value copied into one tagged record a value. The page is kept until it is whole, so each row has memory of its own,
// and each text that is longer than a record. No text is checked. The connection's lock is held and values are read
// through their handles, as in the floor of read-rows.
#include <stdint.h>
#include <string.h>

#include "floor.h"
#include "measure.h"

enum { columns = 8, rowsOfPage = 500, roomForText = 16 };

struct Value {
  int type;
  union {
    int64_t integer;
    double real;
    struct {
      char* bytes;
      int length;
      char room[roomForText];
    } text;
  };
};

static struct Value* copyRow(sqlite3_stmt* statement) {
  struct Value* const row = malloc((columns + 1) * sizeof *row);
  for (int column = 0; column <= columns; ++column) {  // the identity stands behind the columns
    sqlite3_value* const from = sqlite3_column_value(statement, column);
    struct Value* const to = &row[column];
    to->type = sqlite3_value_type(from);
    if (to->type == SQLITE_INTEGER) {
      to->integer = sqlite3_value_int64(from);
    } else if (to->type == SQLITE_FLOAT) {
      to->real = sqlite3_value_double(from);
    } else if (to->type == SQLITE_TEXT) {
      to->text.length = sqlite3_value_bytes(from);
      to->text.bytes = to->text.length < roomForText ? to->text.room : malloc((size_t)to->text.length);
      memcpy(to->text.bytes, sqlite3_value_text(from), (size_t)to->text.length);
    }
  }
  return row;
}

static void freeRow(struct Value* row) {
  for (int column = 0; column <= columns; ++column) {
    if (row[column].type == SQLITE_TEXT && row[column].text.length >= roomForText) free(row[column].text.bytes);
  }
  free(row);
}

struct Done {
  long rows;
  uint64_t integers;  // their sum
  long long bytes;
};

static void readPage(sqlite3* database, char const* sql, int64_t key, char const* search, struct Done* done) {
  struct Value* rows[rowsOfPage];
  int count = 0;
  sqlite3_stmt* const statement = prepare(database, sql);
  int parameter = 0;
  for (int term = 0; search && term < 3; ++term) sqlite3_bind_text(statement, ++parameter, search, -1, SQLITE_STATIC);
  if (key >= 0) sqlite3_bind_int64(statement, ++parameter, key);
  sqlite3_bind_int64(statement, ++parameter, rowsOfPage);
  sqlite3_mutex_enter(sqlite3_db_mutex(database));
  while (step(statement)) rows[count++] = copyRow(statement);
  sqlite3_mutex_leave(sqlite3_db_mutex(database));
  sqlite3_finalize(statement);

  done->rows += count;
  for (int index = 0; index < count; ++index) {
    struct Value* const row = rows[index];
    for (int column = 0; column < columns; ++column) {
      if (row[column].type == SQLITE_INTEGER) done->integers += (uint64_t)row[column].integer;
      if (row[column].type == SQLITE_TEXT) done->bytes += row[column].text.length;
    }
    freeRow(row);
  }
}

#define SELECTED \
  "SELECT \"id\",\"quantity\",\"reference\",\"price\",\"ratio\",\"code\",\"name\",\"note\",\"id\" FROM \"records\""
#define FOUND(column) "instr(lower(CAST(\"" column "\" AS TEXT)), lower(?)) > 0"

int main(int argc, char** argv) {
  if (argc != 4) return 2;
  int const searches = strcmp(argv[1], "search") == 0;
  long long const key = atoll(argv[3]);
  keepSecondThread();
  sqlite3* const database = openReadOnly(argv[2]);
  sqlite3_finalize(prepare(database, "SELECT 1 FROM records"));
  struct Done done = {0};
  char const* const sql =
      searches ? SELECTED " WHERE (" FOUND("code") " OR " FOUND("name") " OR " FOUND("note") ") ORDER BY \"id\" LIMIT ?"
               : SELECTED " WHERE \"id\" > ? ORDER BY \"id\" LIMIT ?";
  struct timespec began = timeNow();
  for (int page = 0; page < (searches ? 1 : 40); ++page) {
    if (page == 20) began = timeNow();  // the first half only warms up
    readPage(database, sql, searches ? -1 : key, searches ? "NoSuchWord" : 0, &done);
  }
  char text[200];
  snprintf(text, sizeof text, "%ld rows, integers %llu, %lld bytes of text", done.rows,
           (unsigned long long)done.integers, done.bytes);
  report(began, text);
  sqlite3_close(database);
}
