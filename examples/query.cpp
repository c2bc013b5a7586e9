// SPDX-License-Identifier: Apache-2.0
#include <algorithm>
#include <exception>
#include <iostream>
#include <tolva/core/QueryExecutor.hpp>
#include <tolva/core/QuerySafety.hpp>

#include "TerminalText.hpp"

namespace {

/// One line of cells, a tab between them.
void print(std::vector<std::string> const& cells) {
  for (std::string const& cell : cells) std::cout << (&cell == cells.data() ? "" : "\t") << terminalText(cell);
  std::cout << '\n';
}

void print(std::vector<std::vector<tolva::SQLiteValue>> const& rows) {
  for (std::vector<tolva::SQLiteValue> const& row : rows) {
    std::vector<std::string> cells(row.size());
    std::ranges::transform(row, cells.begin(), &tolva::SQLiteValue::display);
    print(cells);
  }
}

/// Runs a script and prints its result page by page, of which no more than one is in memory.
void query(tolva::QueryExecutor& executor, std::string const& sql, std::filesystem::path const& backups) {
  tolva::QueryPage page = executor.start(sql, backups, std::stop_token());
  if (!page.columns.empty()) print(page.columns);
  std::int64_t shown = 0;
  for (;; page = executor.page(shown, std::stop_token())) {
    print(page.rows);
    shown += std::ssize(page.rows);
    if (page.finished) break;
  }
  std::cout << shown << " rows, " << page.affected << " changed\n";
}

/// A script that drops or changes rows asks first; an answer that does not begin with "y" leaves all as it is.
bool confirmed(std::string const& sql) {
  if (!tolva::QuerySafety::needsConfirmation(sql)) return true;
  std::cout << "This can change or drop what is in the database. Go on? " << std::flush;
  std::string answer;
  std::getline(std::cin, answer);
  return answer.starts_with('y');
}

}  // namespace

int main(int count, char** arguments) try {
  if (count != 3) throw tolva::DatabaseError("usage: query FILE SQL");
  std::filesystem::path const file = arguments[1];
  if (!confirmed(arguments[2])) return 0;
  tolva::QueryExecutor executor;
  executor.open(file, /*readOnly=*/false);
  query(executor, arguments[2], file.string() + "-backups");
} catch (tolva::DatabaseError const& error) {
  std::cerr << terminalText(error.errorDescription()) << '\n';
  return 1;
} catch (std::exception const& error) {  // the system's own, of files and folders
  std::cerr << terminalText(error.what()) << '\n';
  return 1;
}
