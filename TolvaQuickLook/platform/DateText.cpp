// SPDX-License-Identifier: Apache-2.0
#include "platform/DateText.hpp"

#include <fmt/format.h>
#include <unicode/dtptngen.h>
#include <unicode/simpletz.h>
#include <unicode/smpdtfmt.h>

#include <cstdlib>
#include <ctime>
#include <memory>
#include <string_view>

namespace tolva {
namespace {

using TimePoint = std::chrono::system_clock::time_point;

std::string environmentLocale() {
  for (char const* const name : {"LC_ALL", "LC_TIME", "LANG"}) {
    char const* const locale = std::getenv(name);
    if (locale && *locale) return locale;
  }
  return "C";
}

bool readsLikeAmerican(std::string_view locale) {
  std::string_view const name = locale.substr(0, locale.find('.'));  // without the character set
  return name == "en_US" || name == "C" || name == "POSIX";
}

/// "M/d/y, h:mm a", as ICU says it in en_US. ICU needs a millisecond to arrive there, half of the time that a short
/// command takes in all, and most servers and containers have no other locale.
std::string americanText(std::tm const& local) {
  int const hour = local.tm_hour % 12 == 0 ? 12 : local.tm_hour % 12;
  return fmt::format("{}/{}/{}, {}:{:02} {}", local.tm_mon + 1, local.tm_mday, local.tm_year + 1900, hour, local.tm_min,
                     local.tm_hour < 12 ? "AM" : "PM");
}

std::string plainText(TimePoint time) {
  auto const day = std::chrono::floor<std::chrono::days>(time);
  std::chrono::year_month_day const date(day);
  std::chrono::hh_mm_ss const clock(std::chrono::floor<std::chrono::minutes>(time - day));
  return fmt::format("{:04}-{:02}-{:02} {:02}:{:02}Z", static_cast<int>(date.year()),
                     static_cast<unsigned>(date.month()), static_cast<unsigned>(date.day()), clock.hours().count(),
                     clock.minutes().count());
}

std::string localizedText(TimePoint time, std::string const& localeName, std::unique_ptr<icu::TimeZone> zone) {
  auto const locale = icu::Locale::createCanonical(localeName.c_str());
  if (locale.isBogus()) return plainText(time);  // ICU 72 crashes on it
  UErrorCode status = U_ZERO_ERROR;
  std::unique_ptr<icu::DateTimePatternGenerator> const patterns(
      icu::DateTimePatternGenerator::createInstance(locale, status));
  if (U_FAILURE(status)) return plainText(time);
  icu::SimpleDateFormat format(patterns->getBestPattern(u"yMdjm", status), locale, status);
  if (U_FAILURE(status)) return plainText(time);
  format.adoptTimeZone(zone.release());
  auto const milliseconds = std::chrono::floor<std::chrono::milliseconds>(time.time_since_epoch()).count();
  icu::UnicodeString text;
  format.format(static_cast<UDate>(milliseconds), text);
  text.findAndReplace(u"\u202F", u" ");
  std::string encoded;
  return text.toUTF8String(encoded);
}

}  // namespace

std::string dateText(TimePoint time) {
  std::time_t const seconds = std::chrono::floor<std::chrono::seconds>(time.time_since_epoch()).count();
  std::tm local{};
  if (!localtime_r(&seconds, &local)) return plainText(time);
  std::string const locale = environmentLocale();
  if (readsLikeAmerican(locale)) return americanText(local);
  auto const offset = static_cast<std::int32_t>(local.tm_gmtoff * 1000);
  return localizedText(time, locale, std::make_unique<icu::SimpleTimeZone>(offset, icu::UnicodeString()));
}

std::string dateText(TimePoint time, std::string const& locale, std::string const& zone) {
  auto const id = icu::UnicodeString::fromUTF8(zone);
  return localizedText(time, readsLikeAmerican(locale) ? "en_US" : locale,
                       std::unique_ptr<icu::TimeZone>(icu::TimeZone::createTimeZone(id)));
}

}  // namespace tolva
