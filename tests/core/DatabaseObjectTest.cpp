// SPDX-License-Identifier: Apache-2.0
#include "core/DatabaseObject.hpp"

#include <gtest/gtest.h>

#include <unordered_set>

namespace tolva {
namespace {

TEST(DatabaseObject, IsEqualAndHashedOverAllFields) {
  DatabaseObject const object{.name = "a", .kind = "table", .sql = "CREATE TABLE a(b)"};
  std::unordered_set<DatabaseObject> const set{object,
                                               object,
                                               {.name = "b", .kind = "table", .sql = "CREATE TABLE a(b)"},
                                               {.name = "a", .kind = "view", .sql = "CREATE TABLE a(b)"},
                                               {.name = "a", .kind = "table", .sql = ""},
                                               {.name = "table", .kind = "a", .sql = "CREATE TABLE a(b)"}};
  EXPECT_EQ(set.size(), 5);
  EXPECT_TRUE(set.contains(object));
}

}  // namespace
}  // namespace tolva
