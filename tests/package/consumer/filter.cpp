// SPDX-License-Identifier: Apache-2.0
// How many rows of a table have a text in a column: `filter FILE TABLE COLUMN TEXT`. Uses what is compiled into the
// library where a record of a public header is made.
#include <algorithm>
#include <iostream>
#include <tolva/core/DatabaseReader.hpp>

int main(int count, char** arguments) {
  if (count != 5) return 2;
  tolva::DatabaseReader reader;
  auto const objects = reader.open(arguments[1], {});
  auto const table = std::ranges::find(objects, arguments[2], &tolva::DatabaseObject::name);
  if (table == objects.end()) return 1;
  tolva::TableFilter filter;
  filter.column = arguments[3];
  filter.operation = tolva::FilterOperator::contains;
  filter.value = arguments[4];
  if (tolva::UUID::parse(filter.id.text()) != filter.id) return 1;
  tolva::BrowseRequest request;
  request.filters.push_back(filter);
  std::cout << reader.count(reader.schema(*table), request) << '\n';
}
