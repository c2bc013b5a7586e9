// SPDX-License-Identifier: Apache-2.0
#include "platform/DoubleText.hpp"

#include <fmt/format.h>
#include <stdlib.h>

#include <charconv>
#include <cmath>
#include <system_error>

#include "platform/PlainLocale.hpp"

namespace tolva {
std::string doubleText(double value) {
  std::string text = jsonNumberText(value);
  if (std::isfinite(value) && text.find_first_of(".e") == std::string::npos) text += ".0";
  return text;
}

std::string jsonNumberText(double value) { return fmt::format("{}", value); }

std::optional<double> doubleFromText(std::string_view text) {
  // strtod would skip these in front of a number, and an empty text reads as 0.
  if (text.empty() || std::string_view("\0\t\n\v\f\r ", 7).find(text.front()) != text.npos) return std::nullopt;
  std::string const terminated(text);
  char* end = nullptr;
  double const value = strtod_l(terminated.c_str(), &end, PlainLocale::handle());
  if (end != terminated.c_str() + terminated.size()) return std::nullopt;
  return value;
}

std::optional<std::int64_t> integerFromText(std::string_view text) {
  if (text.starts_with('+')) {
    text.remove_prefix(1);
    if (text.starts_with('-')) return std::nullopt;
  }
  std::int64_t value = 0;
  auto const [end, error] = std::from_chars(text.data(), text.data() + text.size(), value);
  if (error != std::errc() || end != text.data() + text.size()) return std::nullopt;
  return value;
}

}  // namespace tolva
