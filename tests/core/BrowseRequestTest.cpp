// SPDX-License-Identifier: Apache-2.0
#include "core/BrowseRequest.hpp"

#include <gtest/gtest.h>

#include "core/RowPage.hpp"

namespace tolva {
namespace {

TEST(BrowseRequest, ShowsAllRowsUnsortedWhenItIsNew) {
  BrowseRequest const request;
  EXPECT_TRUE(request.filters.empty());
  EXPECT_EQ(request.search, "");
  EXPECT_EQ(request.sort, std::nullopt);
  EXPECT_EQ(request, BrowseRequest());
}

TEST(BrowseRequest, EqualsAnotherInAllItsParts) {
  TableFilter const filter{.column = "a"};
  BrowseRequest const request{.filters = {filter}, .search = "x", .sort = TableSort{.column = "a", .ascending = false}};
  BrowseRequest other = request;
  EXPECT_EQ(other, request);
  other.filters = {filter, filter};
  EXPECT_NE(other, request);
  other = request;
  other.search = "X";
  EXPECT_NE(other, request);
  other = request;
  other.sort->ascending = true;
  EXPECT_NE(other, request);
  other.sort.reset();
  EXPECT_NE(other, request);
}

TEST(TableSort, GoesUpUnlessItIsTold) {
  EXPECT_EQ((TableSort{.column = "a"}), (TableSort{.column = "a", .ascending = true}));
  EXPECT_NE((TableSort{.column = "a"}), (TableSort{.column = "b"}));
}

TEST(PageToken, EqualsAnotherByIdentityAndOffset) {
  EXPECT_EQ(PageToken(), (PageToken{.identity = {}, .offset = 0}));
  PageToken const token{.identity = {1}, .offset = 5};
  EXPECT_EQ(token, (PageToken{.identity = {1}, .offset = 5}));
  EXPECT_NE(token, (PageToken{.identity = {1.0}, .offset = 5}));
  EXPECT_NE(token, (PageToken{.identity = {1}, .offset = 6}));
}

}  // namespace
}  // namespace tolva
