// SPDX-License-Identifier: Apache-2.0
// Any bytes as a short text, and as one that comes close to a date, a time or a number: what is said of it is what a
// second, naive implementation says.

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <optional>
#include <string>
#include <string_view>

#include "fuzz/Expect.hpp"
#include "platform/Expression.hpp"
#include "preview/CellInterpretation.hpp"
#include "preview/PluginInspectorDate.hpp"

namespace tolva {
namespace {

bool matches(Expression const& expression, std::string_view text) {
  // The expressions know digits of all scripts and let a line end follow; the readers behind them know neither.
  for (char const c : text) {
    if (c == '\n' || c == '\r' || c == '\v' || c == '\f' || static_cast<unsigned char>(c) >= 0x80 || c == 0)
      return false;
  }
  return expression.found(text);
}

int numberAt(std::string const& text, std::size_t at, std::size_t count) {
  return std::atoi(text.substr(at, count).c_str());
}

bool isDate(std::string const& text) {
  static Expression const form("^[0-9]{4}-[0-9]{2}-[0-9]{2}$");
  if (!matches(form, text)) return false;
  int const year = numberAt(text, 0, 4);
  int const month = numberAt(text, 5, 2);
  int const day = numberAt(text, 8, 2);
  static constexpr int lengths[] = {31, 28, 31, 30, 31, 30, 31, 31, 30, 31, 30, 31};
  if (year < 1600 || month < 1 || month > 12 || day < 1) return false;
  bool const leap = (year % 4 == 0 && year % 100 != 0) || year % 400 == 0;
  return day <= lengths[month - 1] + (month == 2 && leap ? 1 : 0);
}

std::string format(std::int64_t milliseconds, bool fraction) {
  std::int64_t const part = ((milliseconds % 1000) + 1000) % 1000;
  std::time_t const seconds = (milliseconds - part) / 1000;
  std::tm parts{};
  gmtime_r(&seconds, &parts);
  char text[64];
  std::snprintf(text, sizeof text, "%04d-%02d-%02dT%02d:%02d:%02d", parts.tm_year + 1900, parts.tm_mon + 1,
                parts.tm_mday, parts.tm_hour, parts.tm_min, parts.tm_sec);
  std::string result = text;
  if (fraction) {
    std::snprintf(text, sizeof text, ".%03d", static_cast<int>(part));
    result += text;
  }
  return result + "Z";
}

std::optional<std::string> timestamp(std::string const& text) {
  static Expression const form(R"(^\d{4}-\d{2}-\d{2}T(?:[01][0-9]|2[0-3]):[0-5][0-9]:[0-5][0-9])"
                               R"((\.\d{1,9})?(Z|[+-](?:0[0-9]|1[0-4]):[0-5][0-9])$)");
  if (!matches(form, text) || !isDate(text.substr(0, 10))) return {};
  std::tm parts{};
  parts.tm_year = numberAt(text, 0, 4) - 1900;
  parts.tm_mon = numberAt(text, 5, 2) - 1;
  parts.tm_mday = numberAt(text, 8, 2);
  parts.tm_hour = numberAt(text, 11, 2);
  parts.tm_min = numberAt(text, 14, 2);
  parts.tm_sec = numberAt(text, 17, 2);
  std::int64_t milliseconds = std::int64_t{timegm(&parts)} * 1000;
  bool const fraction = text[19] == '.';
  if (fraction) milliseconds += numberAt(text.substr(20, text.find_first_of("Z+-", 20) - 20) + "00", 0, 3);
  if (text.back() != 'Z') {
    auto const zone = text.size() - 6;
    int const minutes = 60 * numberAt(text, zone + 1, 2) + numberAt(text, zone + 4, 2);
    milliseconds -= (text[zone] == '-' ? -1 : 1) * std::int64_t{minutes} * 60'000;
  }
  return "ISO timestamp interpreted in UTC\n" + format(milliseconds, fraction);
}

std::optional<std::string> number(std::string const& text) {
  static Expression const form("^-?(0|[1-9][0-9]{0,14})$");
  if (!matches(form, text)) return {};
  double const value = std::strtod(text.c_str(), nullptr);
  std::string result;
  auto const add = [&](char const* unit, double seconds, double milliseconds) {
    if (seconds < -62'135'596'800.0 || seconds > 253'402'300'799.0) return;
    result += std::string(result.empty() ? "" : "\n") + "As Unix " + unit + ": " +
              format(static_cast<std::int64_t>(milliseconds), true);
  };
  add("seconds", value, value * 1000);
  add("milliseconds", value / 1000.0, value);
  if (result.empty()) return {};
  return "Numeric interpretation — units are unknown; neither is assumed.\n" + result;
}

std::optional<std::string> naive(std::string const& text) {
  static Expression const uuid("^[0-9a-fA-F]{8}-[0-9a-fA-F]{4}-[0-9a-fA-F]{4}-[0-9a-fA-F]{4}-[0-9a-fA-F]{12}$");
  if (text.size() > 128) return {};
  if (matches(uuid, text)) {
    std::string lower = "UUID\n";
    for (char const c : text) lower += c >= 'A' && c <= 'F' ? static_cast<char>(c + 32) : c;
    return lower;
  }
  if (isDate(text)) return "Calendar date (no time zone)\n" + text;
  if (auto const time = timestamp(text)) return time;
  return number(text);
}

void check(std::string const& text) {
  expect(CellInterpretation::describe(text) == naive(text), "a text is read as the naive implementation reads it");
  auto const date = PluginInspectorDate::parse(text);
  expect(date.has_value() == isDate(text), "a date is one that the naive calendar has");
  if (date) expect(PluginInspectorDate::string(*date) == text, "a date is written as it was read");
}

/// A timestamp whose fields are often just right and sometimes one too many.
std::string nearTimestamp(std::uint8_t const* data) {
  char text[80];
  std::snprintf(text, sizeof text, "%04d-%02d-%02dT%02d:%02d:%02d", 1590 + 33 * data[0] + data[1] % 40, data[2] % 14,
                data[3] % 33, data[4] % 25, data[5] % 61, data[6] % 61);
  std::string result = text;
  if (data[7] % 2) result += "." + std::to_string(data[8] * 3'921'569ULL).substr(0, data[7] % 11);
  if (data[9] % 3 == 0) return result + "Z";
  std::snprintf(text, sizeof text, "%c%02d:%02d", data[9] % 3 == 1 ? '+' : '-', data[10] % 16, data[11] % 61);
  return result + text;
}

}  // namespace
}  // namespace tolva

extern "C" int LLVMFuzzerTestOneInput(std::uint8_t const* data, std::size_t size) {
  std::string const text(data, data + size);
  tolva::check(text);
  std::string near;
  for (char const c : text) near += "0123456789-:TZ.+"[static_cast<unsigned char>(c) % 16];
  tolva::check(near);
  tolva::check(near.substr(0, 10));
  if (size >= 12) {
    std::string const timestamp = tolva::nearTimestamp(data);
    tolva::check(timestamp);
    tolva::check(timestamp.substr(0, 10));
  }
  return 0;
}
