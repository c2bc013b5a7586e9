// SPDX-License-Identifier: Apache-2.0
#include "platform/DateText.hpp"

#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <cstdlib>
#include <ctime>
#include <memory>
#include <optional>
#include <string_view>

#include "platform/DateLibrary.hpp"

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

/// The canonical form of a locale's name; nothing for one that ICU would crash on.
std::optional<std::string> canonicalLocale(DateLibrary const& icu, std::string const& name) {
  char canonical[ULOC_FULLNAME_CAPACITY];
  char language[ULOC_LANG_CAPACITY];
  UErrorCode status = U_ZERO_ERROR;
  icu.canonicalize(name.c_str(), canonical, sizeof canonical, &status);
  if (U_FAILURE(status) || status == U_STRING_NOT_TERMINATED_WARNING) return std::nullopt;
  icu.language(canonical, language, sizeof language, &status);
  if (U_FAILURE(status) || status == U_STRING_NOT_TERMINATED_WARNING) return std::nullopt;
  return canonical;
}

/// The pattern that CLDR prefers for a numeric date and a short time.
std::u16string patternOf(DateLibrary const& icu, std::string const& locale) {
  constexpr std::u16string_view skeleton = u"yMdjm";
  UErrorCode status = U_ZERO_ERROR;
  std::unique_ptr<void*, decltype(icu.closePatterns)> const patterns(icu.openPatterns(locale.c_str(), &status),
                                                                     icu.closePatterns);
  if (U_FAILURE(status)) return {};
  std::array<char16_t, 128> pattern;
  auto const length = icu.bestPattern(patterns.get(), skeleton.data(), static_cast<int>(skeleton.size()),
                                      pattern.data(), static_cast<int>(pattern.size()), &status);
  return U_FAILURE(status) ? std::u16string() : std::u16string(pattern.data(), static_cast<std::size_t>(length));
}

std::string formatted(DateLibrary const& icu, TimePoint time, std::string const& locale, std::string const& zoneName) {
  std::u16string const pattern = patternOf(icu, locale);
  if (pattern.empty()) return {};
  std::u16string const zone(zoneName.begin(), zoneName.end());
  UErrorCode status = U_ZERO_ERROR;
  std::unique_ptr<void*, decltype(icu.closeFormat)> const format(
      icu.openFormat(UDAT_PATTERN, UDAT_PATTERN, locale.c_str(), zone.data(), static_cast<int>(zone.size()),
                     pattern.data(), static_cast<int>(pattern.size()), &status),
      icu.closeFormat);
  auto const milliseconds = std::chrono::floor<std::chrono::milliseconds>(time.time_since_epoch()).count();
  std::array<char16_t, 256> text;
  std::array<char, 3 * text.size()> encoded;
  auto const length = icu.format(format.get(), static_cast<UDate>(milliseconds), text.data(),
                                 static_cast<int>(text.size()), nullptr, &status);
  std::ranges::replace(text, u'\u202F', u' ');
  icu.toUTF8(encoded.data(), static_cast<int>(encoded.size()), nullptr, text.data(), length, &status);
  return U_FAILURE(status) ? std::string() : std::string(encoded.data());
}

/// The zone is a name or an offset as "GMT+05:45".
std::string localizedText(TimePoint time, std::string const& localeName, std::string const& zone) {
  DateLibrary const* const icu = DateLibrary::shared();
  std::optional<std::string> const locale = icu ? canonicalLocale(*icu, localeName) : std::nullopt;
  std::string const text = locale ? formatted(*icu, time, *locale, zone) : std::string();
  return text.empty() ? plainText(time) : text;
}

/// The offset of local time from UTC, to the second as old zones had it.
std::string offsetZone(long seconds) {
  long const size = std::labs(seconds);
  return fmt::format("GMT{}{:02}:{:02}:{:02}", seconds < 0 ? '-' : '+', size / 3600, size / 60 % 60, size % 60);
}

}  // namespace

std::string dateText(TimePoint time) {
  std::time_t const seconds = std::chrono::floor<std::chrono::seconds>(time.time_since_epoch()).count();
  std::tm local{};
  if (!localtime_r(&seconds, &local)) return plainText(time);
  std::string const locale = environmentLocale();
  if (readsLikeAmerican(locale)) return americanText(local);
  return localizedText(time, locale, offsetZone(local.tm_gmtoff));
}

std::string dateText(TimePoint time, std::string const& locale, std::string const& zone) {
  return localizedText(time, readsLikeAmerican(locale) ? "en_US" : locale, zone);
}

}  // namespace tolva
