// SPDX-License-Identifier: Apache-2.0
#include "platform/JoinedText.hpp"

#include <gtest/gtest.h>

#include <vector>

namespace tolva {
namespace {

std::string commas(std::vector<std::string> const& parts) { return joined(parts, ", "); }

TEST(JoinedText, HasASeparatorBetweenAnyTwoParts) {
  EXPECT_EQ(commas({}), "");
  EXPECT_EQ(commas({"a"}), "a");
  EXPECT_EQ(commas({"a", "b", "a"}), "a, b, a");
}

TEST(JoinedText, KeepsPartsThatAreEmpty) {
  EXPECT_EQ(commas({"", ""}), ", ");
  EXPECT_EQ(commas({"", "b", ""}), ", b, ");
}

}  // namespace
}  // namespace tolva
