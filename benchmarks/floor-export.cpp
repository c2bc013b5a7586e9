// SPDX-License-Identifier: Apache-2.0
// The floor of export: the same bytes as ours, by one loop under the connection's lock, each value from where SQLite
// holds it into one buffer of 64 KiB, flushed at the end. It knows the table: 8 columns with plain names, no blob, and
// no value that fills the buffer. In C++ because C has no shortest text of a double.
#include <fcntl.h>
#include <unistd.h>

#include <charconv>
#include <cmath>
#include <cstdint>
#include <cstring>
#include <string>

#include "floor.h"
#include "measure.h"

namespace {

constexpr int columns = 8;
constexpr std::size_t capacity = 65536, mostRow = 4096;

char buffer[capacity];
char* out = buffer;
int file;
std::uintmax_t written;

void flush() {
  for (char const* from = buffer; from < out;) {
    ssize_t const wrote = write(file, from, static_cast<std::size_t>(out - from));
    if (wrote <= 0) exit(1);
    from += wrote;
  }
  written += static_cast<std::size_t>(out - buffer);
  out = buffer;
}

void put(std::string const& text) {
  out = static_cast<char*>(std::memcpy(out, text.data(), text.size())) + text.size();
}

void putReal(double value) {
  double const size = std::fabs(value);
  bool const isFixed = size == 0 || (size >= 1e-4 && size < 1e16);
  char const* const begin = out;
  out = std::to_chars(out, out + 32, value, isFixed ? std::chars_format::fixed : std::chars_format::scientific).ptr;
  if (isFixed && !std::memchr(begin, '.', static_cast<std::size_t>(out - begin))) *out++ = '.', *out++ = '0';
}

void putQuotedTwice(char const* text, char const* end) {
  while (char const* const quote =
             static_cast<char const*>(std::memchr(text, '"', static_cast<std::size_t>(end - text)))) {
    out = static_cast<char*>(std::memcpy(out, text, static_cast<std::size_t>(quote + 1 - text))) + (quote + 1 - text);
    *out++ = '"';
    text = quote + 1;
  }
  out = static_cast<char*>(std::memcpy(out, text, static_cast<std::size_t>(end - text))) + (end - text);
}

void putEscaped(char const* text, char const* end) {
  for (; text < end; ++text) {
    auto const byte = static_cast<unsigned char>(*text);
    if (byte < 32) {
      out += std::snprintf(out, 7, "\\u%04x", static_cast<unsigned>(byte));
    } else {
      if (byte == '"' || byte == '\\') *out++ = '\\';
      *out++ = *text;
    }
  }
}

void putHex(char const* text, char const* end) {
  for (; text < end; ++text) {
    *out++ = "0123456789ABCDEF"[static_cast<unsigned char>(*text) >> 4];
    *out++ = "0123456789ABCDEF"[*text & 15];
  }
}

void putText(char format, char const* text, int size) {
  put(format == 's' ? "CAST(X'" : "\"");
  if (format == 'c') putQuotedTwice(text, text + size);
  if (format == 'j') putEscaped(text, text + size);
  if (format == 's') putHex(text, text + size);
  put(format == 's' ? "' AS TEXT)" : "\"");
}

void putValue(char format, sqlite3_value* value) {
  switch (sqlite3_value_type(value)) {
    case SQLITE_INTEGER:
      out = std::to_chars(out, out + 32, sqlite3_value_int64(value)).ptr;
      return;
    case SQLITE_FLOAT:
      return putReal(sqlite3_value_double(value));
    case SQLITE_TEXT: {
      auto const* const text = reinterpret_cast<char const*>(sqlite3_value_text(value));
      return putText(format, text, sqlite3_value_bytes(value));
    }
    default:
      if (format != 'c') put("null");
  }
}

}  // namespace

int main(int argc, char** argv) {
  if (argc != 4) return 2;
  keepSecondThread();
  char const format = argv[1][0];
  sqlite3* const database = openReadOnly(argv[2]);
  sqlite3_stmt* const schema = prepare(database, "SELECT sql FROM sqlite_schema WHERE name = 'records'");
  if (!step(schema)) return 1;
  std::string const create = reinterpret_cast<char const*>(sqlite3_column_text(schema, 0));
  sqlite3_finalize(schema);
  sqlite3_stmt* const rows = prepare(database, "SELECT * FROM records");
  if (sqlite3_column_count(rows) != columns) stop("a table of 8 columns is needed", database);
  file = open(argv[3], O_WRONLY | O_CREAT | O_TRUNC, 0666);
  if (file < 0) return 1;

  std::string names, before[columns];
  for (int column = 0; column < columns; ++column) {
    std::string const name = sqlite3_column_name(rows, column);
    std::string const comma = column == 0 ? "" : ",";
    names += comma + (format == 's' ? "\"" + name + "\"" : name);
    before[column] = comma + (format == 'j' ? "\"" + name + "\":" : "");
  }
  std::string const row = format == 's' ? "INSERT INTO \"records\" (" + names + ") VALUES (" : format == 'j' ? "{" : "";
  std::string const afterRow = format == 's' ? ");\n" : format == 'j' ? "}" : "\r\n";
  put(format == 's' ? create + ";\n" : format == 'j' ? "[\n" : names + "\r\n");
  long count = 0;
  sqlite3_mutex_enter(sqlite3_db_mutex(database));
  for (; step(rows); ++count) {
    if (out > buffer + capacity - mostRow) flush();
    if (format == 'j' && count > 0) put(",\n");
    put(row);
    for (int column = 0; column < columns; ++column) {
      put(before[column]);
      putValue(format, sqlite3_column_value(rows, column));
    }
    put(afterRow);
  }
  sqlite3_mutex_leave(sqlite3_db_mutex(database));
  if (format == 'j') put("\n]\n");
  flush();
  if (fsync(file) != 0 || close(file) != 0) return 1;
  std::printf("%ld rows, %ju bytes\n", count, written);
  sqlite3_finalize(rows);
  sqlite3_close(database);
}
