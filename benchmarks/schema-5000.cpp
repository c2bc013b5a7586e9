// SPDX-License-Identifier: Apache-2.0
// What it takes to learn the schema of 500 tables, spread evenly over all of a file. The file is open by then, so its
// own schema has been parsed.
#include <cstdio>

#include "core/DatabaseReader.hpp"
#include "measure.h"

int main(int argc, char** argv) {
  if (argc != 2) return 2;
  constexpr std::size_t asked = 500;
  keepSecondThread();
  tolva::DatabaseReader reader;
  auto const objects = reader.open(argv[1], {});
  if (objects.size() < asked) {
    std::fputs("500 tables are needed\n", stderr);
    return 1;
  }
  std::size_t tables = 0, columns = 0, withoutRowID = 0, keyedByRowID = 0;
  auto const began = timeNow();
  for (std::size_t table = 0; table < asked; ++table) {
    auto const schema = reader.schema(objects[table * (objects.size() / asked)]);
    ++tables;
    columns += schema.columns.size();
    withoutRowID += schema.withoutRowID;
    keyedByRowID += !schema.withoutRowID && schema.identity.front() == "id";
  }
  char done[200];
  std::snprintf(done, sizeof done, "%zu tables of %zu: %zu columns, %zu without rowid, %zu with the rowid as key",
                tables, objects.size(), columns, withoutRowID, keyedByRowID);
  report(began, done);
}
