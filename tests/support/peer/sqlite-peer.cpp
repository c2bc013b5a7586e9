// SPDX-License-Identifier: Apache-2.0
// Opens the database that is its argument and obeys lines on standard input until it ends or says "quit":
//   exec SQL   answered by "ok"
//   rows SQL   answered by "rows N" and then N bytes, the rows as text
// and either by "error CODE MESSAGE" when SQLite refuses.

#include <sqlite3.h>

#include <algorithm>
#include <iostream>
#include <string>

#include "core/DatabaseError.hpp"
#include "support/RowsAsText.hpp"

namespace {

std::string answerTo(std::string const& line, sqlite3* connection) {
  try {
    std::string const rows = tolva::rowsAsText(connection, line.substr(std::min<std::size_t>(5, line.size())));
    if (line.starts_with("exec ")) return "ok\n";
    if (line.starts_with("rows ")) return "rows " + std::to_string(rows.size()) + "\n" + rows;
    return "error 1 unknown command\n";
  } catch (tolva::DatabaseError const& error) {
    return "error " + std::to_string(error.code) + " " + error.detail + "\n";
  }
}

}  // namespace

int main(int count, char** arguments) {
  sqlite3* connection = nullptr;
  if (count != 2 || sqlite3_open_v2(arguments[1], &connection, SQLITE_OPEN_READWRITE, nullptr) != SQLITE_OK) return 1;
  std::string line;
  while (std::getline(std::cin, line) && line != "quit") std::cout << answerTo(line, connection) << std::flush;
  return sqlite3_close(connection) == SQLITE_OK ? 0 : 1;
}
