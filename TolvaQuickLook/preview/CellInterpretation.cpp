// SPDX-License-Identifier: Apache-2.0
#include "preview/CellInterpretation.hpp"

#include <fmt/format.h>

#include <algorithm>
#include <chrono>
#include <cstddef>
#include <cstdint>

#include "platform/ASCIICase.hpp"
#include "platform/DoubleText.hpp"
#include "platform/UUID.hpp"
#include "preview/PluginInspectorDate.hpp"

namespace tolva {
namespace {

using namespace std::chrono_literals;
using Milliseconds = std::chrono::sys_time<std::chrono::milliseconds>;

/// Longer than every form that is read below: it spares a long text the search, and changes no answer.
constexpr std::size_t mostBytes = 128;

bool isDigit(char c) { return c >= '0' && c <= '9'; }

/// The number of ASCII digits at the front; digits of other scripts are none.
std::size_t digitCount(std::string_view text) {
  return static_cast<std::size_t>(std::ranges::find_if_not(text, isDigit) - text.begin());
}

/// The number that two digits at the front spell, up to `most`.
std::optional<int> twoDigits(std::string_view text, int most) {
  if (digitCount(text.substr(0, 2)) != 2) return {};
  int const number = 10 * (text[0] - '0') + (text[1] - '0');
  return number <= most ? std::optional(number) : std::nullopt;
}

/// ISO 8601 in UTC, as in "2024-02-29T12:00:00.000Z".
std::string timestamp(Milliseconds time, bool fraction) {
  auto const day = std::chrono::floor<std::chrono::days>(time);
  std::chrono::year_month_day const date(day);
  std::chrono::hh_mm_ss const clock(time - day);
  return fmt::format("{:04d}-{:02d}-{:02d}T{:02d}:{:02d}:{:02d}{}Z", static_cast<int>(date.year()),
                     static_cast<unsigned>(date.month()), static_cast<unsigned>(date.day()), clock.hours().count(),
                     clock.minutes().count(), clock.seconds().count(),
                     fraction ? fmt::format(".{:03d}", clock.subseconds().count()) : "");
}

std::optional<std::string> describeUUID(std::string_view text) {
  auto const uuid = UUID::parse(text);
  if (!uuid) return {};
  return "UUID\n" + lowerASCII(uuid->text());
}

std::optional<std::string> describeDate(std::string_view text) {
  if (!PluginInspectorDate::parse(text)) return {};
  return "Calendar date (no time zone)\n" + std::string(text);
}

/// Takes the time of day, "T12:00:00", off the front.
std::optional<std::chrono::seconds> takeClock(std::string_view& text) {
  if (text.size() < 9 || text[0] != 'T' || text[3] != ':' || text[6] != ':') return {};
  auto const hours = twoDigits(text.substr(1), 23);
  auto const minutes = twoDigits(text.substr(4), 59);
  auto const seconds = twoDigits(text.substr(7), 59);
  if (!hours || !minutes || !seconds) return {};
  text.remove_prefix(9);
  return *hours * 1h + *minutes * 1min + *seconds * 1s;
}

/// Takes a fraction of a second, of one to nine digits behind a point, off the front. What is below a millisecond is
/// dropped.
std::optional<std::chrono::milliseconds> takeFraction(std::string_view& text) {
  auto const count = digitCount(text.substr(1));
  if (count < 1 || count > 9) return {};
  std::string digits(text.substr(1, std::min<std::size_t>(count, 3)));
  digits.resize(3, '0');
  text.remove_prefix(1 + count);
  return *integerFromText(digits) * 1ms;
}

/// How far east of UTC the zone is that `text` names, up to 14:59.
std::optional<std::chrono::minutes> zoneOffset(std::string_view text) {
  if (text == "Z") return 0min;
  if (text.size() != 6 || (text[0] != '+' && text[0] != '-') || text[3] != ':') return {};
  auto const hours = twoDigits(text.substr(1), 14);
  auto const minutes = twoDigits(text.substr(4), 59);
  if (!hours || !minutes) return {};
  return (text[0] == '-' ? -1 : 1) * (*hours * 1h + *minutes * 1min);
}

std::optional<std::string> describeTimestamp(std::string_view text) {
  auto const day = PluginInspectorDate::parse(text.substr(0, 10));
  if (!day) return {};
  text.remove_prefix(10);
  auto const clock = takeClock(text);
  if (!clock) return {};
  bool const hasFraction = text.starts_with('.');
  auto const fraction = hasFraction ? takeFraction(text) : 0ms;
  auto const offset = zoneOffset(text);
  if (!fraction || !offset) return {};
  return "ISO timestamp interpreted in UTC\n" + timestamp(*day + *clock + *fraction - *offset, hasFraction);
}

/// A number in the form "0", "-12", "345": at most 15 digits, which a double holds exactly, and no zero in front.
std::optional<std::int64_t> plainInteger(std::string_view text) {
  auto const digits = text.substr(text.starts_with('-') ? 1 : 0);
  if (digits.empty() || digits.size() > 15 || digitCount(digits) != digits.size()) return {};
  if (digits.front() == '0' && digits.size() > 1) return {};
  return integerFromText(text);
}

/// A line for a time between the years 1 and 9999.
void addReading(std::string& lines, std::string_view label, std::chrono::milliseconds since1970) {
  constexpr std::chrono::milliseconds first = -62'135'596'800s;
  constexpr std::chrono::milliseconds last = 253'402'300'799s;
  if (since1970 < first || since1970 > last) return;
  if (!lines.empty()) lines += '\n';
  lines += label;
  lines += timestamp(Milliseconds(since1970), /*fraction=*/true);
}

std::optional<std::string> describeNumber(std::string_view text) {
  auto const number = plainInteger(text);
  if (!number) return {};
  std::string lines;
  addReading(lines, "As Unix seconds: ", std::chrono::seconds(*number));
  addReading(lines, "As Unix milliseconds: ", std::chrono::milliseconds(*number));
  if (lines.empty()) return {};
  return "Numeric interpretation — units are unknown; neither is assumed.\n" + lines;
}

}  // namespace

std::optional<std::string> CellInterpretation::describe(std::string_view text) {
  if (text.size() > mostBytes) return {};
  for (auto* const reading : {describeUUID, describeDate, describeTimestamp, describeNumber}) {
    if (auto described = reading(text)) return described;
  }
  return {};
}

}  // namespace tolva
