// SPDX-License-Identifier: Apache-2.0
#include "platform/DoubleText.hpp"

#include <gtest/gtest.h>
#include <locale.h>
#include <stdlib.h>

#include <bit>
#include <clocale>
#include <cmath>
#include <limits>
#include <random>
#include <string>

#include "support/GermanLocale.hpp"

namespace tolva {
namespace {

using namespace std::string_view_literals;
using Limits = std::numeric_limits<double>;

struct GoldenText {
  double value;
  std::string_view text;
};

// These texts stand in databases and files that people have stored. They never change.
GoldenText const golden[] = {
    {0.0, "0.0"},
    {-0.0, "-0.0"},
    {1.0, "1.0"},
    {-1.0, "-1.0"},
    {5.0, "5.0"},
    {1.5, "1.5"},
    {0.1, "0.1"},
    {0.2, "0.2"},
    {0.30000000000000004, "0.30000000000000004"},
    {1.0 / 3.0, "0.3333333333333333"},
    {3.141592653589793, "3.141592653589793"},
    {100.0, "100.0"},
    {1000.0, "1000.0"},
    {100000.0, "100000.0"},
    {123456.789, "123456.789"},
    {1e6, "1000000.0"},
    {1e7, "10000000.0"},
    {4294967296.0, "4294967296.0"},
    {123456789012345.0, "123456789012345.0"},
    {1e15, "1000000000000000.0"},
    {1234567890123456.7, "1234567890123456.8"},
    {9007199254740991.0, "9007199254740991.0"},
    {9007199254740992.0, "9007199254740992.0"},
    {9007199254740994.0, "9007199254740994.0"},
    {9999999999999998.0, "9999999999999998.0"},
    {1e16, "1e+16"},
    {-1e16, "-1e+16"},
    {10000000000000002.0, "1.0000000000000002e+16"},
    {12345678901234567.0, "1.2345678901234568e+16"},
    {1e17, "1e+17"},
    {1e20, "1e+20"},
    {1e21, "1e+21"},
    {1e22, "1e+22"},
    {1e23, "1e+23"},
    {9223372036854775807.0, "9.223372036854776e+18"},
    {18446744073709551616.0, "1.8446744073709552e+19"},
    {1e99, "1e+99"},
    {1e100, "1e+100"},
    {1.5e300, "1.5e+300"},
    {0.01, "0.01"},
    {0.001, "0.001"},
    {0.0001, "0.0001"},
    {0.00012345, "0.00012345"},
    {0.00010000000000000002, "0.00010000000000000002"},
    {0.00009999999999999999, "9.999999999999999e-05"},
    {0.00001, "1e-05"},
    {-0.00001, "-1e-05"},
    {0.000012345, "1.2345e-05"},
    {1e-7, "1e-07"},
    {1e-10, "1e-10"},
    {1e-100, "1e-100"},
    {5e-324, "5e-324"},
    {2.2250738585072014e-308, "2.2250738585072014e-308"},
    {2.225073858507201e-308, "2.225073858507201e-308"},
    {1.7976931348623157e308, "1.7976931348623157e+308"},
    {-1.7976931348623157e308, "-1.7976931348623157e+308"},
    {Limits::infinity(), "inf"},
    {-Limits::infinity(), "-inf"},
    {Limits::quiet_NaN(), "nan"},
};

TEST(DoubleText, WritesTheGoldenTexts) {
  for (GoldenText const& expected : golden) EXPECT_EQ(doubleText(expected.value), expected.text);
}

TEST(DoubleText, LeavesThePointOfAWholeNumberOutInJSON) {
  for (GoldenText const& expected : golden) {
    if (!std::isfinite(expected.value)) continue;
    std::string_view text = expected.text;
    if (text.ends_with(".0")) text.remove_suffix(2);
    EXPECT_EQ(jsonNumberText(expected.value), text);
  }
}

/// Whether both are absent, or the same number to the sign of a zero, or both no number.
bool same(std::optional<double> left, std::optional<double> right) {
  if (!left || !right) return left == right;
  if (std::isnan(*left)) return std::isnan(*right);
  return std::bit_cast<std::uint64_t>(*left) == std::bit_cast<std::uint64_t>(*right);
}

TEST(DoubleText, ReadsBackWhatItWrites) {
  for (GoldenText const& expected : golden) EXPECT_TRUE(same(doubleFromText(expected.text), expected.value));
  std::mt19937_64 random(20261115);
  for (int round = 0; round < 500'000; ++round) {
    auto const value = std::bit_cast<double>(random());
    std::string const text = doubleText(value);
    ASSERT_TRUE(same(doubleFromText(text), value)) << text;
  }
}

struct NumberCase {
  std::string_view text;
  std::optional<double> value;
};

NumberCase const numbers[] = {
    {"0", 0.0},
    {"-0", -0.0},
    {"12", 12.0},
    {"+12", 12.0},
    {"-12.5", -12.5},
    {".5", 0.5},
    {"5.", 5.0},
    {"007", 7.0},
    {"1e3", 1000.0},
    {"1E+3", 1000.0},
    {"1.5e-3", 0.0015},
    {"0x10", 16.0},
    {"0X1.8p1", 3.0},
    {"-0x.8", -0.5},
    {"4.9e-324", 5e-324},
    {"1e-400", 0.0},
    {"-1e-400", -0.0},
    {"+1e-320", 1e-320},
    {"1e400", Limits::infinity()},
    {"-1e400", -Limits::infinity()},
    {"inf", Limits::infinity()},
    {"-Infinity", -Limits::infinity()},
    {"nan", Limits::quiet_NaN()},
    {"NaN(12)", Limits::quiet_NaN()},
    {"", {}},
    {"+", {}},
    {"-", {}},
    {".", {}},
    {"e5", {}},
    {"1e", {}},
    {"1e+", {}},
    {"0x", {}},
    {"0xg", {}},
    {"+-1", {}},
    {"-+1", {}},
    {"--.5", {}},
    {"+0x8", 8.0},
    {"- 1", {}},
    {"12x", {}},
    {"12 ", {}},
    {"12\n", {}},
    {"1 2", {}},
    {"1,5", {}},
    {"1_000", {}},
    {"1.2.3", {}},
    {"infinit", {}},
    {"nan(", {}},
    {"\u0661", {}},
    {"\u22121", {}},
    {" 1", {}},
    {"\t1", {}},
    {"\n1", {}},
    {"\v1", {}},
    {"\f1", {}},
    {"\r1", {}},
    {"\0"sv, {}},
    {"\0001"sv, {}},
    {"1\0"sv, {}},
    {"1\0002"sv, {}},
    {"\u00A01", {}},
};

void expectNumbers() {
  for (NumberCase const& number : numbers) {
    auto const value = doubleFromText(number.text);
    EXPECT_TRUE(same(value, number.value)) << number.text << " reads as " << (value ? doubleText(*value) : "nothing");
  }
}

TEST(DoubleText, ReadsTheWholeTextOrNothing) { expectNumbers(); }

/// Texts of the letters that numbers are made of are read as the C library reads them, bit for bit.
TEST(DoubleText, ReadsAsStrtodDoes) {
  locale_t const plain = newlocale(LC_ALL_MASK, "C", nullptr);
  std::mt19937_64 random(20261120);
  int read = 0;
  for (int round = 0; round < 500'000; ++round) {
    std::string text;
    for (auto length = random() % 12 + 1; length > 0; --length) text += "0123456789012345678901.-+eExa"[random() % 29];
    char* end = nullptr;
    std::optional<double> expected = strtod_l(text.c_str(), &end, plain);
    if (*end != 0) expected.reset();
    ASSERT_TRUE(same(doubleFromText(text), expected)) << text;
    read += expected.has_value();
  }
  freelocale(plain);
  EXPECT_GT(read, 10'000);
}

TEST(DoubleText, ReadsANumberOfAnyLength) {
  EXPECT_EQ(doubleFromText("0." + std::string(100'000, '0') + "1e100001"), 1.0);
  EXPECT_EQ(doubleFromText(std::string(100'000, '9')), Limits::infinity());
  EXPECT_EQ(doubleFromText(std::string(100'000, '0') + "x"), std::nullopt);
}

TEST(DoubleText, WritesAndReadsAPointUnderALocaleWithAComma) {
  GermanLocale const made;
  if (!made.isMade()) GTEST_SKIP() << "No German locale could be made: install the package locales.";
  std::string const before = std::setlocale(LC_NUMERIC, nullptr);
  ASSERT_TRUE(std::setlocale(LC_NUMERIC, GermanLocale::name));
  EXPECT_EQ(std::localeconv()->decimal_point, ","sv);
  expectNumbers();
  for (GoldenText const& expected : golden) {
    EXPECT_EQ(doubleText(expected.value), expected.text);
    EXPECT_TRUE(same(doubleFromText(expected.text), expected.value));
  }
  std::setlocale(LC_NUMERIC, before.c_str());
}

struct IntegerCase {
  std::string_view text;
  std::optional<std::int64_t> value;
};

IntegerCase const integers[] = {
    {"0", 0},
    {"-0", 0},
    {"+0", 0},
    {"12", 12},
    {"+12", 12},
    {"-12", -12},
    {"0012", 12},
    {"9223372036854775807", std::numeric_limits<std::int64_t>::max()},
    {"+9223372036854775807", std::numeric_limits<std::int64_t>::max()},
    {"-9223372036854775808", std::numeric_limits<std::int64_t>::min()},
    {"0000000000000000000000000000012", 12},
    {"9223372036854775808", {}},
    {"-9223372036854775809", {}},
    {"99999999999999999999999", {}},
    {"", {}},
    {"+", {}},
    {"-", {}},
    {"++1", {}},
    {"+-1", {}},
    {"-+1", {}},
    {"--1", {}},
    {" 1", {}},
    {"1 ", {}},
    {"+ 1", {}},
    {"12x", {}},
    {"1.0", {}},
    {"1e3", {}},
    {"0x10", {}},
    {"1\0"sv, {}},
    {"\u0661", {}},
};

TEST(DoubleText, ReadsAWholeIntegerOrNothing) {
  for (IntegerCase const& integer : integers) {
    SCOPED_TRACE(integer.text);
    EXPECT_EQ(integerFromText(integer.text), integer.value);
  }
}

}  // namespace
}  // namespace tolva
