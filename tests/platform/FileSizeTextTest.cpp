// SPDX-License-Identifier: Apache-2.0
#include "platform/FileSizeText.hpp"

#include <gtest/gtest.h>

#include <limits>
#include <string_view>

namespace tolva {
namespace {

struct SizeCase {
  char const* says;
  std::int64_t bytes;
  std::string_view text;
};

SizeCase const sizes[] = {
    {"nothing is counted in the smallest unit of files", 0, "Zero KB"},
    {"one byte", 1, "1 byte"},
    {"more than one", 2, "2 bytes"},
    {"the last size in bytes", 999, "999 bytes"},
    {"the first in KB", 1'000, "1 KB"},
    {"KB have no decimals", 1'499, "1 KB"},
    {"half goes to the even neighbour above", 1'500, "2 KB"},
    {"half goes to the even neighbour below", 2'500, "2 KB"},
    {"more than half goes up", 2'501, "3 KB"},
    {"a usual file", 184'320, "184 KB"},
    {"the last half that stays in KB", 998'500, "998 KB"},
    {"the last size in KB", 999'499, "999 KB"},
    {"what rounds to 1000 KB is 1 MB", 999'500, "1 MB"},
    {"a whole MB", 1'000'000, "1 MB"},
    {"MB have one decimal: half to even below", 1'050'000, "1 MB"},
    {"one more is above half", 1'050'001, "1.1 MB"},
    {"half to even above", 1'150'000, "1.2 MB"},
    {"a decimal", 1'500'000, "1.5 MB"},
    {"the last half that stays in MB", 999'850'000, "999.8 MB"},
    {"the last size in MB", 999'949'999, "999.9 MB"},
    {"what rounds to 1000 MB is 1 GB", 999'950'000, "1 GB"},
    {"a whole GB", 1'000'000'000, "1 GB"},
    {"GB have two decimals: half to even below", 1'005'000'000, "1 GB"},
    {"one more is above half", 1'005'000'001, "1.01 GB"},
    {"half to even above", 1'015'000'000, "1.02 GB"},
    {"two decimals", 1'234'567'890, "1.23 GB"},
    {"a trailing zero goes", 1'500'000'000, "1.5 GB"},
    {"a leading zero stays", 2'040'000'000, "2.04 GB"},
    {"the last size in GB", 999'994'999'999, "999.99 GB"},
    {"what rounds to 1000 GB is 1 TB", 999'995'000'000, "1 TB"},
    {"TB", 1'230'000'000'000, "1.23 TB"},
    {"the last size in TB", 999'994'999'999'999, "999.99 TB"},
    {"what rounds to 1000 TB is 1 PB", 999'995'000'000'000, "1 PB"},
    {"PB", 45'600'000'000'000'000, "45.6 PB"},
    {"the last size in PB", 999'994'999'999'999'999, "999.99 PB"},
    {"what rounds to 1000 PB is 1 EB", 999'995'000'000'000'000, "1 EB"},
    {"the largest size", std::numeric_limits<std::int64_t>::max(), "9.22 EB"},
    {"a negative byte", -1, "-1 byte"},
    {"negative bytes", -999, "-999 bytes"},
    {"a negative size", -1'500, "-2 KB"},
    {"the smallest size", std::numeric_limits<std::int64_t>::min(), "-9.22 EB"},
};

TEST(FileSizeText, ChoosesTheUnitAndRoundsHalfToEven) {
  for (SizeCase const& size : sizes) {
    SCOPED_TRACE(size.says);
    EXPECT_EQ(fileSizeText(size.bytes), size.text);
  }
}

}  // namespace
}  // namespace tolva
