// SPDX-License-Identifier: Apache-2.0
#include "core/SQLIdentifier.hpp"

#include <gtest/gtest.h>

namespace tolva {
namespace {

TEST(SQLIdentifier, StandsBetweenDoubleQuotesWithThoseInsideDoubled) {
  EXPECT_EQ(quoteIdentifier("plain"), R"("plain")");
  EXPECT_EQ(quoteIdentifier(""), R"("")");
  EXPECT_EQ(quoteIdentifier(R"(a"b)"), R"("a""b")");
  EXPECT_EQ(quoteIdentifier(R"("")"), R"("""""")");
  EXPECT_EQ(quoteIdentifier("it's [odd] `name`\n"), "\"it's [odd] `name`\n\"");
}

}  // namespace
}  // namespace tolva
