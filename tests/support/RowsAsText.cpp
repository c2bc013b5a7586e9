// SPDX-License-Identifier: Apache-2.0
#include "support/RowsAsText.hpp"

#include <sqlite3.h>

#include <memory>

#include "core/DatabaseError.hpp"

namespace tolva {
namespace {

struct Finalize {
  void operator()(sqlite3_stmt* statement) const { sqlite3_finalize(statement); }
};
using Statement = std::unique_ptr<sqlite3_stmt, Finalize>;

struct Close {
  void operator()(sqlite3* connection) const { sqlite3_close(connection); }
};
using Connection = std::unique_ptr<sqlite3, Close>;

[[noreturn]] void fail(sqlite3* connection) {
  throw DatabaseError(sqlite3_errmsg(connection), sqlite3_extended_errcode(connection));
}

Connection open(std::filesystem::path const& path) {
  sqlite3* opened = nullptr;
  int const code = sqlite3_open_v2(path.c_str(), &opened, SQLITE_OPEN_READWRITE, nullptr);
  Connection connection(opened);
  if (code != SQLITE_OK) fail(opened);
  return connection;
}

std::string valueAsText(sqlite3_stmt* statement, int column) {
  if (sqlite3_column_type(statement, column) == SQLITE_NULL) return "NULL";
  bool const blob = sqlite3_column_type(statement, column) == SQLITE_BLOB;
  auto const* const text = static_cast<char const*>(
      blob ? sqlite3_column_blob(statement, column) : static_cast<void const*>(sqlite3_column_text(statement, column)));
  std::string const bytes(text ? text : "", static_cast<std::size_t>(sqlite3_column_bytes(statement, column)));
  if (!blob) return bytes;
  std::string hexadecimal = "x'";
  for (char const byte : bytes)
    for (int const shift : {4, 0}) hexadecimal += "0123456789abcdef"[static_cast<unsigned char>(byte) >> shift & 15];
  return hexadecimal + "'";
}

}  // namespace

std::string rowsAsText(sqlite3* connection, std::string const& sql) {
  std::string rows;
  char const* rest = sql.c_str();
  while (*rest != '\0') {
    sqlite3_stmt* prepared = nullptr;
    if (sqlite3_prepare_v2(connection, rest, -1, &prepared, &rest) != SQLITE_OK) fail(connection);
    Statement const statement(prepared);
    if (!statement) continue;  // white space or a comment
    int code = SQLITE_ROW;
    while ((code = sqlite3_step(prepared)) == SQLITE_ROW) {
      if (!rows.empty()) rows += '\n';
      for (int column = 0; column < sqlite3_column_count(prepared); ++column)
        rows += (column > 0 ? "|" : "") + valueAsText(prepared, column);
    }
    if (code != SQLITE_DONE) fail(connection);
  }
  return rows;
}

std::string rowsAsText(std::filesystem::path const& database, std::string const& sql) {
  return rowsAsText(open(std::filesystem::absolute(database)).get(), sql);
}

}  // namespace tolva
