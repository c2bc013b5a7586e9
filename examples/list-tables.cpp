// SPDX-License-Identifier: Apache-2.0
#include <iostream>
#include <tolva/core/DatabaseReader.hpp>

int main(int count, char** arguments) try {
  if (count != 2) throw tolva::DatabaseError("usage: list-tables FILE");
  tolva::DatabaseReader reader;
  for (tolva::DatabaseObject const& object : reader.open(arguments[1], std::stop_token())) {
    std::cout << object.kind << ' ' << object.name << '\n';
    for (tolva::DatabaseColumn const& column : reader.schema(object).columns) {
      std::cout << "  " << column.name << ' ' << column.type << (column.required ? " NOT NULL" : "") << '\n';
    }
  }
} catch (tolva::DatabaseError const& error) {
  std::cerr << error.errorDescription() << '\n';
  return 1;
}
