// SPDX-License-Identifier: Apache-2.0
#include "preview/PluginInspectorDate.hpp"

#include <gtest/gtest.h>

#include <cstdio>
#include <string>
#include <string_view>

namespace tolva {
namespace {

using namespace std::chrono_literals;
using namespace std::string_view_literals;

struct DateCase {
  char const* says;
  std::string_view text;
  bool exists;
};

DateCase const dates[] = {
    {"the first day", "1600-01-01", true},
    {"the day before it", "1599-12-31", false},
    {"the last day", "9999-12-31", true},
    {"year 0", "0000-01-01", false},
    {"29 February of a leap year", "2024-02-29", true},
    {"30 February", "2024-02-30", false},
    {"29 February of another year", "2023-02-29", false},
    {"29 February of a century", "1900-02-29", false},
    {"29 February of every fourth century", "2000-02-29", true},
    {"29 February of the first year", "1600-02-29", true},
    {"31 April", "2024-04-31", false},
    {"31 December", "2024-12-31", true},
    {"day 0", "2024-01-00", false},
    {"day 32", "2024-01-32", false},
    {"month 0", "2024-00-01", false},
    {"month 13", "2024-13-01", false},
    {"nothing", "", false},
    {"nine characters", "2024-01-1", false},
    {"eleven characters", "2024-01-011", false},
    {"a line end behind it", "2024-01-01\n", false},
    {"a NUL behind it", "2024-01-01\0"sv, false},
    {"a blank before it", " 2024-01-01", false},
    {"slashes", "2024/01/01", false},
    {"no hyphens", "2024010101", false},
    {"a sign", "+024-01-01", false},
    {"letters", "20x4-01-01", false},
    {"ten bytes with digits of another script", "20\u0662\u0664-01-0", false},
    {"a hyphen of two bytes", "2024\u00AD01-0", false},
};

TEST(PluginInspectorDate, ReadsExactlyTheDaysThatExist) {
  for (DateCase const& date : dates) {
    SCOPED_TRACE(date.says);
    EXPECT_EQ(PluginInspectorDate::parse(date.text).has_value(), date.exists);
  }
}

TEST(PluginInspectorDate, IsTheGregorianDay) {
  EXPECT_EQ(PluginInspectorDate::parse("1970-01-01"), std::chrono::sys_days());
  EXPECT_EQ(PluginInspectorDate::parse("2024-02-29"), std::chrono::sys_days(2024y / 2 / 29));
  EXPECT_EQ(PluginInspectorDate::parse("1600-01-01"), std::chrono::sys_days(std::chrono::days(-135'140)));
}

/// The calendar once more, counted day by day.
struct NaiveDate {
  int year;
  int month;
  int day;

  bool isLeapYear() const { return year % 4 == 0 && (year % 100 != 0 || year % 400 == 0); }
  int daysInMonth() const {
    if (month == 2) return isLeapYear() ? 29 : 28;
    return month == 4 || month == 6 || month == 9 || month == 11 ? 30 : 31;
  }
  void advance() {
    if (++day <= daysInMonth()) return;
    day = 1;
    if (++month <= 12) return;
    month = 1;
    ++year;
  }
  std::string text() const {
    char buffer[16];
    std::snprintf(buffer, sizeof buffer, "%04d-%02d-%02d", year, month, day);
    return buffer;
  }
};

/// The number of days from `date` to the end of `lastYear` that are not read and written as that day.
int faultsUntil(int lastYear, NaiveDate date) {
  int faults = 0;
  auto expected = *PluginInspectorDate::parse(date.text());
  for (; date.year <= lastYear; date.advance(), expected += std::chrono::days(1)) {
    std::string const text = date.text();
    if (PluginInspectorDate::parse(text) != expected || PluginInspectorDate::string(expected) != text) ++faults;
  }
  return faults;
}

TEST(PluginInspectorDate, CountsEveryDayOfACycleOfItsCalendar) {
  EXPECT_EQ(faultsUntil(2000, {1600, 1, 1}), 0);
  EXPECT_EQ(faultsUntil(9999, {9990, 1, 1}), 0);
}

TEST(PluginInspectorDate, WritesFourDigitsOfTheYearAndTwoOfTheRest) {
  EXPECT_EQ(PluginInspectorDate::string(std::chrono::sys_days(999y / 3 / 4)), "0999-03-04");
}

}  // namespace
}  // namespace tolva
