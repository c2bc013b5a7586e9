// SPDX-License-Identifier: Apache-2.0
#include "transfer/ColumnTypeInference.hpp"

#include <gtest/gtest.h>
#include <locale.h>

#include <algorithm>
#include <cctype>
#include <cerrno>
#include <cmath>
#include <cstdlib>
#include <optional>
#include <random>
#include <string>

#include "platform/Expression.hpp"
#include "support/Failure.hpp"

namespace tolva {
namespace {

using namespace std::string_view_literals;
using Fields = std::vector<std::string>;

/// The type of one column with these fields.
std::string typeOf(Fields const& fields) {
  ColumnTypeInference inference(1);
  for (std::string const& field : fields) {
    std::string_view const row[] = {field};
    inference.add(row);
  }
  return std::string(rawValue(inference.types().front()));
}

struct ColumnCase {
  char const* says;
  Fields fields;
  char const* type;
};

ColumnCase const columns[] = {
    {"no row", {}, "TEXT"},
    {"empty fields alone", {"", ""}, "INTEGER"},
    {"an integer", {"7"}, "INTEGER"},
    {"zero", {"0"}, "INTEGER"},
    {"a negative integer", {"-7"}, "INTEGER"},
    {"an empty field among integers", {"1", "", "2"}, "INTEGER"},
    {"an empty field before a decimal", {"", "1.5"}, "REAL"},
    {"leading zeros", {"007"}, "TEXT"},
    {"leading zeros behind an integer", {"7", "007"}, "TEXT"},
    {"a plus sign", {"+7"}, "TEXT"},
    {"a negative zero", {"-0"}, "TEXT"},
    {"a negative integer with leading zeros", {"-07"}, "TEXT"},
    {"two zeros", {"00"}, "TEXT"},
    {"a decimal", {"1.5"}, "REAL"},
    {"a negative decimal", {"-1.5"}, "REAL"},
    {"a decimal below one", {"0.5"}, "REAL"},
    {"a negative one", {"-0.5"}, "REAL"},
    {"a negative zero with a point", {"-0.0"}, "REAL"},
    {"a decimal with zeros at its end", {"1.500"}, "REAL"},
    {"an integer behind a decimal", {"1.5", "2"}, "REAL"},
    {"a decimal behind an integer", {"2", "1.5"}, "REAL"},
    {"a decimal with leading zeros", {"00.5"}, "TEXT"},
    {"a negative one with leading zeros", {"-00.5"}, "TEXT"},
    {"a decimal with a plus sign", {"+1.5"}, "TEXT"},
    {"no digit before the point", {".5"}, "TEXT"},
    {"none behind it", {"5."}, "TEXT"},
    {"a point alone", {"."}, "TEXT"},
    {"two points", {"1.2.3"}, "TEXT"},
    {"an exponent", {"1e5"}, "TEXT"},
    {"a decimal with an exponent", {"1.5e3"}, "TEXT"},
    {"a hexadecimal number", {"0x10"}, "TEXT"},
    {"a hexadecimal float", {"0x1.8p1"}, "TEXT"},
    {"infinity", {"inf"}, "TEXT"},
    {"no number", {"nan"}, "TEXT"},
    {"a decimal comma", {"1,5"}, "TEXT"},
    {"a lone sign", {"-"}, "TEXT"},
    {"a blank before a number", {" 7"}, "TEXT"},
    {"a blank behind it", {"7 "}, "TEXT"},
    {"a blank alone", {" "}, "TEXT"},
    {"a line end behind a decimal", {"1.5\n"}, "TEXT"},
    {"a NUL behind an integer", {std::string("7\0", 2)}, "TEXT"},
    {"digits of another script", {"\u0661"}, "TEXT"},
    {"a byte order mark before an integer", {"\uFEFF7"}, "TEXT"},
    {"a text before numbers", {"a", "1", "1.5"}, "TEXT"},
    {"the greatest integer", {"9223372036854775807"}, "INTEGER"},
    {"one more", {"9223372036854775808"}, "TEXT"},
    {"the least integer", {"-9223372036854775808"}, "INTEGER"},
    {"one less", {"-9223372036854775809"}, "TEXT"},
    {"the last integer before 2^53, then a decimal", {"9007199254740991", "1.5"}, "REAL"},
    {"2^53, then a decimal", {"9007199254740992", "1.5"}, "TEXT"},
    {"2^53 and one, then a decimal", {"9007199254740993", "1.5"}, "TEXT"},
    {"a decimal, then the last integer before 2^53", {"1.5", "9007199254740991"}, "REAL"},
    {"a decimal, then 2^53", {"1.5", "9007199254740992"}, "TEXT"},
    {"the last integer behind -2^53, then a decimal", {"-9007199254740991", "1.5"}, "REAL"},
    {"-2^53, then a decimal", {"-9007199254740992", "1.5"}, "TEXT"},
    {"a decimal, then -2^53", {"1.5", "-9007199254740992"}, "TEXT"},
    {"wide integers alone", {"9007199254740993", "1"}, "INTEGER"},
    {"a wide integer long before a decimal", {"9007199254740993", "1", "", "2", "1.5"}, "TEXT"},
    {"the longest whole part of a double", {"1" + std::string(308, '0') + ".0"}, "REAL"},
    {"one digit more", {"1" + std::string(309, '0') + ".0"}, "TEXT"},
    {"the greatest first digit", {"2" + std::string(308, '0') + ".0"}, "TEXT"},
    {"any number of digits behind the point", {"0." + std::string(100'000, '1')}, "REAL"},
};

TEST(ColumnTypeInference, FindsTheTypeThatKeepsEveryField) {
  for (ColumnCase const& column : columns) {
    SCOPED_TRACE(column.says);
    EXPECT_EQ(typeOf(column.fields), column.type);
  }
}

TEST(ColumnTypeInference, JudgesEachColumnForItself) {
  ColumnTypeInference inference(3);
  for (Fields const& fields : {Fields{"1", "2", "3"}, Fields{"1", "2.5", "x"}}) {
    inference.add(std::vector<std::string_view>(fields.begin(), fields.end()));
  }
  EXPECT_EQ(inference.types(),
            (std::vector<InferredType>{InferredType::integer, InferredType::real, InferredType::text}));
}

TEST(ColumnTypeInference, RefusesARowOfAnotherLength) {
  DatabaseError const refusal("CSV row has an unexpected number of fields.");
  std::string_view const row[] = {"1", "2", "3"};
  for (std::size_t length : {std::size_t{1}, std::size_t{3}}) {
    ColumnTypeInference inference(2);
    EXPECT_EQ(failureOf([&] { inference.add(std::span(row, length)); }), refusal) << length;
  }
}

// Against other ways to say the same ------------------------------------------------------------------

/// A field of the letters that numbers are made of.
std::string randomField(std::mt19937_64& random) {
  static char const* const wide[] = {"9007199254740991",  "9007199254740992",    "-9007199254740991",
                                     "-9007199254740992", "9223372036854775807", "-9223372036854775808"};
  static std::string const odd[] = {"9223372036854775808",
                                    "-9223372036854775809",
                                    "99999999999999999999",
                                    "9007199254740993.5",
                                    "0x10",
                                    "0x1.8p1",
                                    "inf",
                                    "-infinity",
                                    "nan",
                                    "1e999",
                                    "1" + std::string(309, '0') + ".0",
                                    "\u0661\u0662",
                                    "\u0661.5",
                                    "\uFF11"};
  if (random() % 8 == 0) return wide[random() % std::size(wide)];
  if (random() % 16 == 0) return odd[random() % std::size(odd)];
  std::string field;
  for (auto length = random() % 6; length > 0; --length) field += "0012345679..-+e\n "[random() % 17];
  return field;
}

TEST(ColumnTypeInference, TakesForADecimalWhatTheExpressionDoes) {
  Expression const expression("^-?(0|[1-9][0-9]*)\\.[0-9]+$");
  std::mt19937_64 random(20261120);
  int decimals = 0;
  for (int round = 0; round < 200'000; ++round) {
    std::string const text = randomField(random);
    bool const lineEnd = text.ends_with('\n');  // behind which the expression looks the other way
    ASSERT_EQ(isPlainDecimal(text), !lineEnd && expression.found(text)) << text;
    decimals += isPlainDecimal(text);
  }
  EXPECT_GT(decimals, 2'000);
}

/// The field as C reads it, if it is a signed 64-bit integer from its first letter to its last.
std::optional<long long> integerOfC(std::string const& field) {
  bool const sign = field.starts_with('-') || field.starts_with('+');
  if (field.size() == sign || !std::isdigit(static_cast<unsigned char>(field[sign]))) return std::nullopt;
  char* end = nullptr;
  errno = 0;
  long long const value = std::strtoll(field.c_str(), &end, 10);
  if (errno != 0 || end != field.c_str() + field.size()) return std::nullopt;
  return value;
}

/// The same for a floating-point number.
std::optional<double> numberOfC(std::string const& field) {
  char* end = nullptr;
  static locale_t const c = ::newlocale(LC_ALL_MASK, "C", nullptr);  // the test runs under any
  double const value = ::strtod_l(field.c_str(), &end, c);
  if (field.empty() || end != field.c_str() + field.size()) return std::nullopt;
  return value;
}

/// The type of a column the long way: step by step, with a decision of its own at each.
std::string typeStepByStep(Fields const& fields) {
  static Expression const decimal("^-?(0|[1-9][0-9]*)\\.[0-9]+$");
  std::string type = fields.empty() ? "TEXT" : "INTEGER";
  bool wide = false;
  for (std::string const& field : fields) {
    if (type == "TEXT" || field.empty()) continue;
    auto const number = numberOfC(field);
    if (auto const integer = integerOfC(field)) {
      if (std::to_string(*integer) != field) type = "TEXT";
      if (type != "TEXT" && !(*integer > -9007199254740992 && *integer < 9007199254740992)) {
        wide = true;
        if (type == "REAL") type = "TEXT";
      }
    } else if (number && std::isfinite(*number) && field.find('.') != field.npos &&
               (field.front() != '0' || field.starts_with("0.")) && decimal.found(field)) {
      type = wide ? "TEXT" : "REAL";
    } else {
      type = "TEXT";
    }
  }
  return type;
}

TEST(ColumnTypeInference, AgreesWithTheStepsOneByOne) {
  std::mt19937_64 random(20261121);
  int counts[3] = {};
  for (int round = 0; round < 100'000; ++round) {
    Fields fields(random() % 4);
    for (std::string& field : fields) field = randomField(random);
    std::string const type = typeOf(fields);
    ASSERT_EQ(type, typeStepByStep(fields)) << testing::PrintToString(fields);
    ++counts[type == "TEXT" ? 0 : type == "REAL" ? 1 : 2];
  }
  EXPECT_GT(*std::ranges::min_element(counts), 1'000);
}

}  // namespace
}  // namespace tolva
