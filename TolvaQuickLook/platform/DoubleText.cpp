// SPDX-License-Identifier: Apache-2.0
#include "platform/DoubleText.hpp"

#include <fmt/compile.h>
#include <stdlib.h>

#include <algorithm>
#include <array>
#include <charconv>
#include <cmath>
#include <system_error>

#include "platform/PlainLocale.hpp"

namespace tolva {
namespace {

bool isHexadecimal(std::string_view text) { return text.starts_with("0x") || text.starts_with("0X"); }

/// Whether the text can only be a number of the form that `std::from_chars` reads, which takes no memory.
bool beginsDecimal(std::string_view text) {
  return !text.empty() && ((text.front() >= '0' && text.front() <= '9') || text.front() == '.');
}

std::optional<double> doubleFromAnyText(std::string_view text) {
  // strtod would skip these in front of a number, and an empty text reads as 0.
  if (text.empty() || std::string_view("\0\t\n\v\f\r ", 7).find(text.front()) != text.npos) return std::nullopt;
  std::string const terminated(text);
  char* end = nullptr;
  double const value = strtod_l(terminated.c_str(), &end, PlainLocale::handle());
  if (end != terminated.c_str() + terminated.size()) return std::nullopt;
  return value;
}

}  // namespace

std::string doubleText(double value) {
  std::array<char, mostDoubleText> text;
  return std::string(text.data(), writeDoubleText(text.data(), value));
}

char* writeDoubleText(char* out, double value) {
  char* end = fmt::format_to(out, FMT_COMPILE("{}"), value);
  bool const isWhole = std::none_of(out, end, [](char c) { return c == '.' || c == 'e'; });
  if (isWhole && std::isfinite(value)) {
    *end++ = '.';
    *end++ = '0';
  }
  return end;
}

std::string jsonNumberText(double value) { return fmt::format("{}", value); }

std::optional<double> doubleFromText(std::string_view text) {
  std::string_view const unsignedText = text.substr(text.starts_with('+') || text.starts_with('-') ? 1 : 0);
  if (!isHexadecimal(unsignedText) && beginsDecimal(unsignedText)) {
    if (text.front() == '+') text.remove_prefix(1);
    double value = 0;
    auto const [end, error] = std::from_chars(text.data(), text.data() + text.size(), value);
    if (end != text.data() + text.size()) return std::nullopt;
    if (error == std::errc()) return value;  // of what is too large or too small it does not tell the value
  }
  return doubleFromAnyText(text);
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
