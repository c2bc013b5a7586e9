// SPDX-License-Identifier: Apache-2.0
#include "preview/CellInterpretation.hpp"

#include <gtest/gtest.h>

#include <chrono>
#include <optional>
#include <sstream>
#include <string>
#include <string_view>

#include "platform/UTF8.hpp"
#include "support/Corpora.hpp"
#include "support/ProcessorTime.hpp"

namespace tolva {
namespace {

using namespace std::string_view_literals;

struct ReadingCase {
  char const* says;
  std::string_view text;
  std::optional<std::string> described;
};

std::string const uuid = "UUID\n0123abcd-ef01-2345-6789-abcdefabcdef";

ReadingCase const uuids[] = {
    {"lower case", "0123abcd-ef01-2345-6789-abcdefabcdef", uuid},
    {"upper case", "0123ABCD-EF01-2345-6789-ABCDEFABCDEF", uuid},
    {"mixed case", "0123ABcd-EF01-2345-6789-abcDEFABCDEF", uuid},
    {"digits alone are no number", "00000000-0000-0000-0000-000000000000",
     "UUID\n00000000-0000-0000-0000-000000000000"},
    {"braces", "{0123abcd-ef01-2345-6789-abcdefabcdef}", {}},
    {"no hyphens", "0123abcdef0123456789abcdefabcdef", {}},
    {"hyphens elsewhere", "0123abcde-f01-2345-6789-abcdefabcdef", {}},
    {"a letter beyond f", "0123abcg-ef01-2345-6789-abcdefabcdef", {}},
    {"a digit too many", "0123abcd-ef01-2345-6789-abcdefabcdef0", {}},
    {"a digit too few", "0123abcd-ef01-2345-6789-abcdefabcde", {}},
    {"a line end behind it", "0123abcd-ef01-2345-6789-abcdefabcdef\n", {}},
    {"a blank before it", " 0123abcd-ef01-2345-6789-abcdefabcdef", {}},
};

ReadingCase const dates[] = {
    {"a date", "2024-02-29", "Calendar date (no time zone)\n2024-02-29"},
    {"the earliest", "1600-01-01", "Calendar date (no time zone)\n1600-01-01"},
    {"one before it", "1599-12-31", {}},
    {"no such day", "2024-02-30", {}},
    {"a line end behind it", "2024-02-29\n", {}},
};

std::string iso(std::string const& text) { return "ISO timestamp interpreted in UTC\n" + text; }

ReadingCase const timestamps[] = {
    {"in UTC", "2024-02-29T12:34:56Z", iso("2024-02-29T12:34:56Z")},
    {"east of it", "2024-03-01T00:30:00+01:00", iso("2024-02-29T23:30:00Z")},
    {"west of it", "2024-02-29T23:30:00-01:00", iso("2024-03-01T00:30:00Z")},
    {"half an hour east", "2024-01-01T00:00:00+05:30", iso("2023-12-31T18:30:00Z")},
    {"the largest offset", "2024-01-01T00:00:00+14:59", iso("2023-12-31T09:01:00Z")},
    {"an offset beyond it", "2024-01-01T00:00:00+15:00", {}},
    {"60 minutes of an offset", "2024-01-01T00:00:00+01:60", {}},
    {"an offset of nothing, to the west", "2024-01-01T00:00:00-00:00", iso("2024-01-01T00:00:00Z")},
    {"a fraction keeps three digits", "2024-01-01T00:00:00.5Z", iso("2024-01-01T00:00:00.500Z")},
    {"more are cut", "2024-01-01T00:00:00.123999999Z", iso("2024-01-01T00:00:00.123Z")},
    {"all nines are not carried", "2024-12-31T23:59:59.9999Z", iso("2024-12-31T23:59:59.999Z")},
    {"a fraction before 1970", "1969-12-31T23:59:59.250Z", iso("1969-12-31T23:59:59.250Z")},
    {"a fraction of nothing", "2024-01-01T00:00:00.0+00:00", iso("2024-01-01T00:00:00.000Z")},
    {"ten digits of a fraction", "2024-01-01T00:00:00.1234567890Z", {}},
    {"no digit of a fraction", "2024-01-01T00:00:00.Z", {}},
    {"a comma", "2024-01-01T00:00:00,5Z", {}},
    {"the last second of a day", "2024-01-01T23:59:59Z", iso("2024-01-01T23:59:59Z")},
    {"hour 24", "2024-01-01T24:00:00Z", {}},
    {"minute 60", "2024-01-01T00:60:00Z", {}},
    {"a leap second", "2016-12-31T23:59:60Z", {}},
    {"a day that does not exist", "2024-02-30T00:00:00Z", {}},
    {"31 February", "2024-02-31T00:00:00Z", {}},
    {"a year before 1600", "1599-12-31T00:00:00Z", {}},
    {"the offset leads before 1600", "1600-01-01T00:00:00+14:59", iso("1599-12-31T09:01:00Z")},
    {"the offset leads beyond 9999", "9999-12-31T23:59:59-14:59", iso("10000-01-01T14:58:59Z")},
    {"no zone", "2024-01-01T00:00:00", {}},
    {"a zone in lower case", "2024-01-01T00:00:00z", {}},
    {"a zone without a colon", "2024-01-01T00:00:00+0100", {}},
    {"a zone without minutes", "2024-01-01T00:00:00+01", {}},
    {"a blank for the T", "2024-01-01 00:00:00Z", {}},
    {"a lower-case t", "2024-01-01t00:00:00Z", {}},
    {"no seconds", "2024-01-01T00:00Z", {}},
    {"a line end behind it", "2024-01-01T00:00:00Z\n", {}},
    {"something behind the zone", "2024-01-01T00:00:00ZZ", {}},
    {"Arabic digits of a year", "\u0662\u0660\u0662\u0664-01-01T00:00:00Z", {}},
    {"Arabic digits of a fraction", "2024-01-01T00:00:00.\u0665Z", {}},
    {"cut off in the clock", "2024-01-01T00:00:0", {}},
    {"nothing but a T", "2024-01-01T", {}},
};

std::string number(std::string const& lines) {
  return "Numeric interpretation — units are unknown; neither is assumed.\n" + lines;
}

ReadingCase const numbers[] = {
    {"zero", "0", number("As Unix seconds: 1970-01-01T00:00:00.000Z\nAs Unix milliseconds: 1970-01-01T00:00:00.000Z")},
    {"minus zero", "-0",
     number("As Unix seconds: 1970-01-01T00:00:00.000Z\nAs Unix milliseconds: 1970-01-01T00:00:00.000Z")},
    {"minus one", "-1",
     number("As Unix seconds: 1969-12-31T23:59:59.000Z\nAs Unix milliseconds: 1969-12-31T23:59:59.999Z")},
    {"ten digits", "1700000000",
     number("As Unix seconds: 2023-11-14T22:13:20.000Z\nAs Unix milliseconds: 1970-01-20T16:13:20.000Z")},
    {"thirteen digits are milliseconds alone", "1700000000123",
     number("As Unix milliseconds: 2023-11-14T22:13:20.123Z")},
    {"the last second of 9999", "253402300799",
     number("As Unix seconds: 9999-12-31T23:59:59.000Z\nAs Unix milliseconds: 1978-01-11T21:31:40.799Z")},
    {"one beyond", "253402300800", number("As Unix milliseconds: 1978-01-11T21:31:40.800Z")},
    {"the first second of year 1", "-62135596800",
     number("As Unix seconds: 0001-01-01T00:00:00.000Z\nAs Unix milliseconds: 1968-01-12T20:06:43.200Z")},
    {"one before", "-62135596801", number("As Unix milliseconds: 1968-01-12T20:06:43.199Z")},
    {"the last millisecond", "253402300799000", number("As Unix milliseconds: 9999-12-31T23:59:59.000Z")},
    {"one beyond in milliseconds", "253402300799001", {}},
    {"the first millisecond", "-62135596800000", number("As Unix milliseconds: 0001-01-01T00:00:00.000Z")},
    {"one before in milliseconds", "-62135596800001", {}},
    {"the largest number of 15 digits has no reading", "999999999999999", {}},
    {"nor has the smallest", "-999999999999999", {}},
    {"16 digits", "1000000000000000", {}},
    {"16 digits with zeros in front", "-0000000000000001", {}},
    {"a leading zero", "007", {}},
    {"two zeros", "00", {}},
    {"minus and a leading zero", "-07", {}},
    {"a plus sign", "+1", {}},
    {"two signs", "--1", {}},
    {"a sign alone", "-", {}},
    {"nothing", "", {}},
    {"an exponent", "1e3", {}},
    {"a point", "1.5", {}},
    {"hexadecimal", "0x10", {}},
    {"a blank before it", " 1", {}},
    {"a blank behind it", "1 ", {}},
    {"a line end behind it", "1\n", {}},
    {"a NUL behind it", "1\0"sv, {}},
    {"Arabic digits", "\u0661\u0662", {}},
    {"a text", "hello", {}},
};

void check(auto const& cases) {
  for (ReadingCase const& one : cases) {
    SCOPED_TRACE(one.says);
    EXPECT_EQ(CellInterpretation::describe(one.text), one.described);
  }
}

TEST(CellInterpretation, ReadsUUIDsInLowerCase) { check(uuids); }
TEST(CellInterpretation, ReadsCalendarDatesThatExist) { check(dates); }
TEST(CellInterpretation, ReadsTimestampsInUTC) { check(timestamps); }
TEST(CellInterpretation, ShowsBothUnitsOfANumber) { check(numbers); }

TEST(CellInterpretation, LeavesTextsOfOver128BytesAlone) {
  EXPECT_EQ(CellInterpretation::describe(std::string(129, '1')), std::nullopt);
  // No reading has a form so long: only the time tells that the digits of this fraction were not counted.
  std::string const text = "2024-01-01T00:00:00." + std::string(64 << 20, '1');
  auto const before = processorTime();
  EXPECT_EQ(CellInterpretation::describe(text), std::nullopt);
  EXPECT_LT(processorTime() - before, std::chrono::milliseconds(1));
}

TEST(CellInterpretation, SaysNothingOfNaughtyStringsButNumbers) {
  TOLVA_NEEDS_CORPORA();
  std::istringstream lines(contents(corpusFile("naughty-strings/blns.txt")));
  std::string described;
  for (std::string line; std::getline(lines, line);) {
    auto const reading = CellInterpretation::describe(line);
    if (!reading) continue;
    EXPECT_TRUE(isValidUTF8(*reading)) << line;
    described += line + "\n";
  }
  EXPECT_EQ(described, "0\n1\n-1\n-0\n");
}

}  // namespace
}  // namespace tolva
