// SPDX-License-Identifier: Apache-2.0
#include "core/RowSelection.hpp"

#include <gtest/gtest.h>

#include <limits>
#include <random>
#include <set>
#include <stdexcept>

namespace tolva {
namespace {

using Ranges = std::vector<RowSelection::Range>;

TEST(RowSelection, KeepsRangesApartAndJoinsThoseThatTouch) {
  struct SelectionCase {
    char const* says;
    RowSelection selection;
    Ranges ranges;
    std::int64_t count;
  };
  SelectionCase const selections[] = {
      {"nothing", {}, {}, 0},
      {"an empty range", {{5, 5}}, {}, 0},
      {"a reversed range", {{5, 3}}, {}, 0},
      {"one position", {{7, 8}}, {{7, 8}}, 1},
      {"apart", {{7, 8}, {0, 2}}, {{0, 2}, {7, 8}}, 3},
      {"side by side", {{2, 4}, {0, 2}, {4, 5}}, {{0, 5}}, 5},
      {"within another", {{0, 10}, {3, 5}}, {{0, 10}}, 10},
      {"over several", {{1, 2}, {4, 5}, {8, 9}, {2, 7}}, {{1, 7}, {8, 9}}, 7},
      {"twice the same", {{3, 4}, {3, 4}}, {{3, 4}}, 1},
      {"everything",
       {{0, 1}, {0, std::numeric_limits<std::int64_t>::max()}},
       {{0, std::numeric_limits<std::int64_t>::max()}},
       std::numeric_limits<std::int64_t>::max()},
  };
  for (SelectionCase const& each : selections) {
    SCOPED_TRACE(each.says);
    EXPECT_EQ(each.selection.ranges(), each.ranges);
    EXPECT_EQ(each.selection.count(), each.count);
  }
}

TEST(RowSelection, RefusesANegativePosition) {
  RowSelection selection;
  EXPECT_THROW(selection.insert(-1), std::out_of_range);
  EXPECT_THROW(selection.insert({-5, 5}), std::out_of_range);
  EXPECT_EQ(selection, RowSelection());
}

TEST(RowSelection, RefusesThePositionThatNoRangeEndsBehind) {
  RowSelection selection;
  EXPECT_THROW(selection.insert(std::numeric_limits<std::int64_t>::max()), std::out_of_range);
  EXPECT_EQ(selection, RowSelection());
  selection.insert(std::numeric_limits<std::int64_t>::max() - 1);
  EXPECT_EQ(selection.count(), 1);
}

TEST(RowSelection, HoldsThePositionsOfASet) {
  std::mt19937 random(1);
  for (int round = 0; round < 200; ++round) {
    RowSelection selection;
    std::set<std::int64_t> model;
    for (int insertion = 0; insertion < 20; ++insertion) {
      auto const first = static_cast<std::int64_t>(random() % 60);
      auto const end = first + static_cast<std::int64_t>(random() % 6);
      selection.insert({first, end});
      for (std::int64_t position = first; position < end; ++position) model.insert(position);
    }
    std::set<std::int64_t> held;
    std::int64_t before = -1;
    for (RowSelection::Range const& range : selection.ranges()) {
      EXPECT_GT(range.first, before);
      before = range.end;
      for (std::int64_t position = range.first; position < range.end; ++position) held.insert(position);
    }
    EXPECT_EQ(held, model);
    EXPECT_EQ(selection.count(), static_cast<std::int64_t>(model.size()));
  }
}

}  // namespace
}  // namespace tolva
