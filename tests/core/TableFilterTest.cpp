// SPDX-License-Identifier: Apache-2.0
#include "core/TableFilter.hpp"

#include <gtest/gtest.h>

namespace tolva {
namespace {

TEST(FilterOperator, IteratesInItsOrderWithItsLabels) {
  std::vector<std::pair<FilterOperator, std::string>> const expected{
      {FilterOperator::equals, "Equals"},     {FilterOperator::notEqual, "Not Equal"},
      {FilterOperator::contains, "Contains"}, {FilterOperator::starts, "Starts With"},
      {FilterOperator::ends, "Ends With"},    {FilterOperator::greater, "Greater Than"},
      {FilterOperator::less, "Less Than"},    {FilterOperator::between, "Between"},
      {FilterOperator::isNull, "Is NULL"},    {FilterOperator::notNull, "Is Not NULL"},
  };
  std::vector<std::pair<FilterOperator, std::string>> found;
  for (FilterOperator const operation : filterOperators) found.emplace_back(operation, label(operation));
  EXPECT_EQ(found, expected);
}

TEST(FilterOperator, IsFoundByItsLabelAlone) {
  for (FilterOperator const operation : filterOperators) EXPECT_EQ(filterOperator(label(operation)), operation);
  for (char const* const other : {"", "equals", "Is null", "Equals "}) EXPECT_FALSE(filterOperator(other)) << other;
}

TEST(TableFilter, HasAnIdOfItsOwnThatCountsInEquality) {
  TableFilter const one{.column = "a", .value = 1};
  TableFilter other{.column = "a", .value = 1};
  EXPECT_NE(one.id, UUID());
  EXPECT_NE(one, other);
  other.id = one.id;
  EXPECT_EQ(one, other);
  EXPECT_TRUE(one.second.isNull());
  other.second = 2;
  EXPECT_NE(one, other);
}

}  // namespace
}  // namespace tolva
