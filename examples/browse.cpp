// SPDX-License-Identifier: Apache-2.0
#include <algorithm>
#include <exception>
#include <iostream>
#include <tolva/core/DatabaseReader.hpp>

#include "TerminalText.hpp"

namespace {

/// One line of cells, a tab between them.
void print(std::vector<std::string> const& cells) {
  for (std::string const& cell : cells) std::cout << (&cell == cells.data() ? "" : "\t") << terminalText(cell);
  std::cout << '\n';
}

/// The rows of a table or view, page by page, and how many there are.
void browse(tolva::DatabaseReader& reader, tolva::TableSchema const& schema, tolva::BrowseRequest const& request) {
  std::vector<std::string> cells(schema.columns.size());
  std::ranges::transform(schema.columns, cells.begin(), &tolva::DatabaseColumn::name);
  print(cells);
  tolva::RowPage page = reader.page(schema, request, {}, std::stop_token());
  for (; page.next; page = reader.page(schema, request, page.next, std::stop_token())) {
    for (tolva::DatabaseRow const& row : page.rows) {
      std::ranges::transform(row.values, cells.begin(), &tolva::SQLiteValue::display);
      print(cells);
    }
  }
  std::cout << reader.count(schema, request) << " rows\n";
}

}  // namespace

int main(int count, char** arguments) try {
  if (count != 3 && count != 4) throw tolva::DatabaseError("usage: browse FILE TABLE [SEARCH]");
  tolva::DatabaseReader reader;
  std::vector<tolva::DatabaseObject> const objects = reader.open(arguments[1], std::stop_token());
  auto const table = std::ranges::find(objects, arguments[2], &tolva::DatabaseObject::name);
  if (table == objects.end()) throw tolva::DatabaseError(std::string("There is no table ") + arguments[2]);
  browse(reader, reader.schema(*table), {.search = count == 4 ? arguments[3] : ""});
} catch (tolva::DatabaseError const& error) {
  std::cerr << terminalText(error.errorDescription()) << '\n';
  return 1;
} catch (std::exception const& error) {  // the system's own, of files and folders
  std::cerr << terminalText(error.what()) << '\n';
  return 1;
}
