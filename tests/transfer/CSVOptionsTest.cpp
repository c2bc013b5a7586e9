// SPDX-License-Identifier: Apache-2.0
#include "transfer/CSVOptions.hpp"

#include <gtest/gtest.h>

namespace tolva {
namespace {

TEST(CSVOptions, AreThoseOfACommaSeparatedFileWithAHeaderUnlessToldOtherwise) {
  EXPECT_EQ(CSVOptions(), (CSVOptions{44, true, CSVEncoding::utf8}));
}

TEST(CSVOptions, NameTheEncodings) {
  EXPECT_EQ(rawValue(CSVEncoding::utf8), "UTF-8");
  EXPECT_EQ(rawValue(CSVEncoding::latin1), "Latin-1");
}

}  // namespace
}  // namespace tolva
