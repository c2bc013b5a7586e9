// SPDX-License-Identifier: Apache-2.0
// What the memory budget costs: the same work with a budget armed, with none armed, and with the budget's allocator
// absent, as it is in a program that had used SQLite before it used the library.
#include <sqlite3.h>

#include <chrono>
#include <cstdio>
#include <optional>
#include <string_view>

#include "ReadRecords.hpp"
#include "core/MemoryBudget.hpp"
#include "core/SQLiteLibrary.hpp"
#include "measure.h"

namespace {

constexpr char usage[] = "usage: memory-budget armed|unarmed|absent preview|rows FILE\n";

/// The statement of a preview, its values read as a preview reads them.
std::string countObjects(tolva::SQLiteConnection& connection) {
  auto statement = connection.prepare(
      "SELECT type, name FROM sqlite_schema WHERE name NOT GLOB ? ORDER BY name COLLATE NOCASE", {"sqlite_*"});
  tolva::HandleLock const held(connection);
  int objects = 0, tables = 0;
  for (; statement.step(); ++objects) {
    if (statement.value(0, /*full=*/false) == tolva::SQLiteValue("table")) ++tables;
  }
  return std::to_string(objects) + " objects, " + std::to_string(tables) + " of them tables";
}

}  // namespace

int main(int argc, char** argv) {
  std::string_view const state = argc == 4 ? argv[1] : "";
  std::string_view const work = argc == 4 ? argv[2] : "";
  if ((state != "armed" && state != "unarmed" && state != "absent") || (work != "preview" && work != "rows")) {
    std::fputs(usage, stderr);
    return 2;
  }
  keepSecondThread();
  if (state == "absent") sqlite3_initialize();
  if (tolva::SQLiteLibrary::enforcesMemoryBudgets() == (state == "absent")) {
    std::fputs("the budget's allocator is not where it should be\n", stderr);
    return 1;
  }
  auto const began = timeNow();
  std::optional<tolva::MemoryBudget> budget;
  if (state == "armed") budget.emplace(tolva::MemoryBudget::ordinary, tolva::uptime() + std::chrono::minutes(10));
  auto const connection = tolva::SQLiteConnection::open(argv[3], {});
  report(began, (work == "preview" ? countObjects(*connection) : readRecords(*connection)).c_str());
}
