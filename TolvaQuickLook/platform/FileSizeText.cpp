// SPDX-License-Identifier: Apache-2.0
#include "platform/FileSizeText.hpp"

#include <fmt/format.h>

#include <string_view>

namespace tolva {
namespace {

struct Unit {
  std::string_view name;
  std::uint64_t size;
  std::uint64_t fractions;  // the parts into which one unit may be split: 10 for one decimal
};

constexpr Unit units[] = {
    {"KB", 1'000, 1},
    {"MB", 1'000'000, 10},
    {"GB", 1'000'000'000, 100},
    {"TB", 1'000'000'000'000, 100},
    {"PB", 1'000'000'000'000'000, 100},
    {"EB", 1'000'000'000'000'000'000, 100},  // 64 bits end at 18 of these
};

std::uint64_t dividedHalfToEven(std::uint64_t value, std::uint64_t divisor) {
  std::uint64_t const quotient = value / divisor;
  std::uint64_t const doubled = value % divisor * 2;
  return quotient + (doubled > divisor || (doubled == divisor && quotient % 2 == 1));
}

std::string magnitudeText(std::uint64_t bytes) {
  if (bytes == 0) return "Zero KB";
  if (bytes == 1) return "1 byte";
  if (bytes < 1000) return fmt::format("{} bytes", bytes);
  Unit const* unit = units;
  std::uint64_t parts = dividedHalfToEven(bytes, unit->size / unit->fractions);
  while (parts >= 1000 * unit->fractions) {
    ++unit;
    parts = dividedHalfToEven(bytes, unit->size / unit->fractions);
  }
  std::string number = fmt::format("{}", parts / unit->fractions);
  if (std::uint64_t const hundredths = parts % unit->fractions * (100 / unit->fractions)) {
    number += fmt::format(".{:02}", hundredths);
    if (number.back() == '0') number.pop_back();
  }
  return fmt::format("{} {}", number, unit->name);
}

}  // namespace

std::string fileSizeText(std::int64_t bytes) {
  if (bytes >= 0) return magnitudeText(static_cast<std::uint64_t>(bytes));
  return fmt::format("-{}", magnitudeText(-static_cast<std::uint64_t>(bytes)));
}

}  // namespace tolva
