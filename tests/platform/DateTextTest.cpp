// SPDX-License-Identifier: Apache-2.0
#include "platform/DateText.hpp"

#include <gtest/gtest.h>

#include <cstdlib>
#include <ctime>
#include <map>
#include <optional>
#include <random>
#include <thread>
#include <vector>

namespace tolva {
namespace {

using TimePoint = std::chrono::system_clock::time_point;

/// A moment by the clock of UTC.
constexpr TimePoint utc(int year, unsigned month, unsigned day, int hour, int minute, int second = 0) {
  std::chrono::year_month_day const date(std::chrono::year{year}, std::chrono::month{month}, std::chrono::day{day});
  return std::chrono::sys_days(date) + std::chrono::hours(hour) + std::chrono::minutes(minute) +
         std::chrono::seconds(second);
}

using Variables = std::map<std::string, std::string>;

/// The variables of locale and zone for a scope: those given are set, the others are not.
class Environment {
 public:
  explicit Environment(Variables const& given) {
    for (char const* const name : {"LC_ALL", "LC_TIME", "LANG", "TZ"}) {
      char const* const value = std::getenv(name);
      before_[name] = value ? std::optional<std::string>(value) : std::nullopt;
      auto const found = given.find(name);
      put(name, found == given.end() ? std::nullopt : std::optional(found->second));
    }
    tzset();
  }
  ~Environment() {
    for (auto const& [name, value] : before_) put(name, value);
    tzset();
  }
  Environment(Environment const&) = delete;
  Environment& operator=(Environment const&) = delete;

 private:
  static void put(std::string const& name, std::optional<std::string> const& value) {
    if (value) {
      setenv(name.c_str(), value->c_str(), 1);
    } else {
      unsetenv(name.c_str());
    }
  }

  std::map<std::string, std::optional<std::string>> before_;
};

struct DateCase {
  char const* says;
  TimePoint time;
  char const* locale;
  char const* zone;
  char const* text;
};

constexpr TimePoint evening = utc(2026, 11, 15, 21, 41);

DateCase const dates[] = {
    {"American order and twelve hours", evening, "en_US", "UTC", "11/15/2026, 9:41 PM"},
    {"the zone decides the day", evening, "en_US", "Asia/Tokyo", "11/16/2026, 6:41 AM"},
    {"winter time", evening, "en_US", "America/Los_Angeles", "11/15/2026, 1:41 PM"},
    {"summer time", utc(2026, 7, 4, 7, 5), "en_US", "America/Los_Angeles", "7/4/2026, 12:05 AM"},
    {"noon is 12 PM", utc(2026, 1, 2, 12, 0, 59), "en_US", "UTC", "1/2/2026, 12:00 PM"},
    {"a year of four digits in the past", utc(1984, 1, 24, 10, 9), "en_US", "UTC", "1/24/1984, 10:09 AM"},
    {"before 1970, one second to the minute", utc(1969, 12, 31, 23, 58, 59), "en_US", "UTC", "12/31/1969, 11:58 PM"},
    {"the locale of C", evening, "C", "UTC", "11/15/2026, 9:41 PM"},
    {"the locale of C with a character set", evening, "C.UTF-8", "UTC", "11/15/2026, 9:41 PM"},
    {"the locale of POSIX", evening, "POSIX", "UTC", "11/15/2026, 9:41 PM"},
    {"German, with a character set", evening, "de_DE.UTF-8", "Europe/Berlin", "15.11.2026, 22:41"},
    {"German, with a modifier", evening, "de_DE@euro", "Europe/Berlin", "15.11.2026, 22:41"},
    {"British", evening, "en_GB", "Europe/London", "15/11/2026, 21:41"},
    {"Swedish", evening, "sv_SE", "Europe/Stockholm", "2026-11-15 22:41"},
    {"Japanese", evening, "ja_JP", "Asia/Tokyo", "2026/11/16 6:41"},
    {"a calendar of its own", evening, "th_TH", "UTC", "15/11/2569 21:41"},
    {"a zone that does not exist is GMT", evening, "en_GB", "Nowhere/At_All", "15/11/2026, 21:41"},
    {"a locale that cannot be read", evening, "nonsensicallanguage", "Asia/Tokyo", "2026-11-15 21:41Z"},
};

TEST(DateText, FollowsLocaleAndZone) {
  for (DateCase const& date : dates) {
    SCOPED_TRACE(date.says);
    EXPECT_EQ(dateText(date.time, date.locale, date.zone), date.text);
    Environment const environment(Variables{{"LC_ALL", date.locale}, {"TZ", date.zone}});
    EXPECT_EQ(dateText(date.time), date.text);
  }
}

TEST(DateText, TakesTheFirstVariableThatSaysALocale) {
  struct {
    char const* says;
    Variables variables;
    char const* text;
  } const cases[] = {
      {"none", {}, "11/15/2026, 9:41 PM"},
      {"LANG alone", {{"LANG", "de_DE"}}, "15.11.2026, 21:41"},
      {"LC_TIME before LANG", {{"LC_TIME", "en_GB"}, {"LANG", "de_DE"}}, "15/11/2026, 21:41"},
      {"LC_ALL before both", {{"LC_ALL", "sv_SE"}, {"LC_TIME", "en_GB"}, {"LANG", "de_DE"}}, "2026-11-15 21:41"},
      {"an empty one says nothing", {{"LC_ALL", ""}, {"LC_TIME", ""}, {"LANG", "de_DE"}}, "15.11.2026, 21:41"},
      {"C is a choice", {{"LC_ALL", "C"}, {"LANG", "de_DE"}}, "11/15/2026, 9:41 PM"},
  };
  for (auto const& given : cases) {
    SCOPED_TRACE(given.says);
    Variables variables = given.variables;
    variables["TZ"] = "UTC";
    Environment const environment(variables);
    EXPECT_EQ(dateText(evening), given.text);
  }
}

TEST(DateText, AgreesWithICUInThePast) {
  std::mt19937_64 random(20261115);  // no time to come: ICU and the C library may know different laws
  for (char const* const zone : {"UTC", "America/New_York", "Europe/Berlin", "Asia/Kathmandu", "Australia/Lord_Howe"}) {
    Environment const environment(Variables{{"TZ", zone}});
    for (int round = 0; round < 200; ++round) {
      auto const seconds = static_cast<std::int64_t>(random() % 1'600'000'000);
      TimePoint const time{std::chrono::seconds(seconds)};
      ASSERT_EQ(dateText(time), dateText(time, "en_US", zone)) << zone << " at " << seconds;
    }
  }
}

TEST(DateText, HasATextForTheEndsOfTime) {
  for (char const* const locale : {"en_US", "de_DE", "fa_IR", "ja_JP@calendar=japanese"}) {
    Environment const environment(Variables{{"LC_ALL", locale}, {"TZ", "UTC"}});
    for (TimePoint const time : {TimePoint::min(), TimePoint::max()}) {
      EXPECT_EQ(dateText(time), dateText(time, locale, "UTC"));
      EXPECT_FALSE(dateText(time).empty());
    }
  }
  Environment const environment(Variables{{"TZ", "UTC"}});
  EXPECT_EQ(dateText(TimePoint::min()), "9/21/1677, 12:12 AM");
  EXPECT_EQ(dateText(TimePoint::max()), "4/11/2262, 11:47 PM");
}

TEST(DateText, ServesManyThreads) {
  Environment const environment(Variables{{"LC_ALL", "de_DE"}, {"TZ", "UTC"}});
  std::vector<std::string> texts(4);
  {
    std::vector<std::jthread> threads;
    for (std::string& text : texts) threads.emplace_back([&text] { text = dateText(evening); });
  }
  EXPECT_EQ(texts, std::vector<std::string>(4, "15.11.2026, 21:41"));
}

}  // namespace
}  // namespace tolva
