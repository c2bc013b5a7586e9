// SPDX-License-Identifier: Apache-2.0
#include "snapshots/DifferenceSummary.hpp"

#include <gtest/gtest.h>

#include <vector>

namespace tolva {
namespace {

TableDifference entry(char const* kind, char const* status, std::int64_t inserted = 0, std::int64_t updated = 0,
                      std::int64_t deleted = 0) {
  return {.name = "x", .kind = kind, .status = status, .inserted = inserted, .updated = updated, .deleted = deleted};
}

struct SummaryCase {
  char const* says;
  std::vector<TableDifference> differences;
  std::vector<std::int64_t> numbers;  // in the order of the fields
};

TEST(DifferenceSummary, CountsEachEntryWhereItBelongs) {
  SummaryCase const cases[] = {
      {"nothing", {}, {0, 0, 0, 0, 0, 0, 0}},
      {"a compared table without differences has not changed", {entry("table", "Compared")}, {1, 0, 0, 0, 0, 0, 0}},
      {"one kind of difference is a change", {entry("table", "Compared", 1, 0, 0)}, {1, 1, 0, 0, 1, 0, 0}},
      {"updates are", {entry("table", "Compared", 0, 2, 0)}, {1, 1, 0, 0, 0, 2, 0}},
      {"deletions are", {entry("table", "Compared", 0, 0, 3)}, {1, 1, 0, 0, 0, 0, 3}},
      {"a table that was not compared is excluded", {entry("table", "Not compared")}, {0, 0, 1, 0, 0, 0, 0}},
      {"an added table is excluded and a change of the schema", {entry("table", "Added")}, {0, 0, 1, 1, 0, 0, 0}},
      {"a removed one too", {entry("table", "Removed")}, {0, 0, 1, 1, 0, 0, 0}},
      {"and a redefined one", {entry("table", "Schema changed")}, {0, 0, 1, 1, 0, 0, 0}},
      {"what is no table is not excluded", {entry("view", "Schema changed")}, {0, 0, 0, 1, 0, 0, 0}},
      {"numbers of what was not compared do not count",
       {entry("table", "Not compared", 5, 5, 5)},
       {0, 0, 1, 0, 0, 0, 0}},
      {"the numbers of all tables are added up",
       {entry("table", "Compared", 1, 2, 3), entry("table", "Compared", 10, 20, 30), entry("index", "Added"),
        entry("table", "Compared")},
       {3, 2, 0, 1, 11, 22, 33}},
  };
  for (SummaryCase const& each : cases) {
    DifferenceSummary const summary(each.differences);
    std::vector<std::int64_t> const numbers{summary.comparedTables, summary.changedTables, summary.excludedTables,
                                            summary.schemaChanges,  summary.inserted,      summary.updated,
                                            summary.deleted};
    EXPECT_EQ(numbers, each.numbers) << each.says;
  }
  EXPECT_EQ(DifferenceSummary(), DifferenceSummary(std::vector<TableDifference>{}));
}

}  // namespace
}  // namespace tolva
