// SPDX-License-Identifier: Apache-2.0
#include "platform/JSONValue.hpp"

#include <gtest/gtest.h>

#include <limits>

#include "platform/JSONError.hpp"

namespace tolva {
namespace {

using Kind = JSONValue::Kind;

JSONValue const everyKind[] = {
    JSONValue::null(),
    JSONValue::boolean(false),
    JSONValue::number("0"),
    JSONValue::string("null"),
    JSONValue::array({JSONValue::boolean(true)}),
    JSONValue::object({{"a", {}}}),
};

TEST(JSONValue, AnswersOnlyForItsOwnKind) {
  for (JSONValue const& value : everyKind) {
    SCOPED_TRACE(static_cast<int>(value.kind()));
    EXPECT_EQ(value.isNull(), value.kind() == Kind::null);
    EXPECT_EQ(value.asBoolean() != nullptr, value.kind() == Kind::boolean);
    EXPECT_EQ(value.asNumber() != nullptr, value.kind() == Kind::number);
    EXPECT_EQ(value.asString() != nullptr, value.kind() == Kind::string);
    EXPECT_EQ(value.asArray() != nullptr, value.kind() == Kind::array);
    EXPECT_EQ(value.asObject() != nullptr, value.kind() == Kind::object);
    EXPECT_EQ(value.asInteger().has_value(), value.kind() == Kind::number);
    EXPECT_EQ(value.asDouble().has_value(), value.kind() == Kind::number);
    EXPECT_EQ(value.member("a") != nullptr, value.kind() == Kind::object);
  }
}

TEST(JSONValue, KindsFollowWhatWasMade) {
  Kind const kinds[] = {Kind::null, Kind::boolean, Kind::number, Kind::string, Kind::array, Kind::object};
  for (std::size_t i = 0; i < std::size(kinds); ++i) EXPECT_EQ(everyKind[i].kind(), kinds[i]) << i;
  EXPECT_EQ(JSONValue(), JSONValue::null());
}

constexpr auto lowest = std::numeric_limits<std::int64_t>::min();
constexpr auto highest = std::numeric_limits<std::int64_t>::max();

struct WholeCase {
  std::string literal;
  std::optional<std::int64_t> value;
};

WholeCase const wholeNumbers[] = {
    {"0", 0},
    {"-0", 0},
    {"-0.0", 0},
    {"0e0", 0},
    {"0.000e999999999999", 0},
    {"5", 5},
    {"5.0", 5},
    {"-5.000", -5},
    {"1e2", 100},
    {"1E+2", 100},
    {"0.5e1", 5},
    {"0.05e2", 5},
    {"1200e-2", 12},
    {"12.50e1", 125},
    {"1e18", 1'000'000'000'000'000'000},
    {"9007199254740993", 9007199254740993},
    {"9007199254740993.0", 9007199254740993},
    {"9223372036854775807", highest},
    {"9223372036854775807.0", highest},
    {"9.223372036854775807e18", highest},
    {"-9223372036854775808", lowest},
    {"-9223372036854775808.0", lowest},
    {"9223372036854775808", {}},
    {"9223372036854775808.0", {}},
    {"-9223372036854775809", {}},
    {"-9223372036854775809.0", {}},
    {"18446744073709551616", {}},
    {"1e19", {}},
    {"1e400", {}},
    {"1e99999999999999999999", {}},
    {"0.5", {}},
    {"-0.1", {}},
    {"1e-1", {}},
    {"12e-2", {}},
    {"1e-400", {}},
};

TEST(JSONValue, ReadsAWholeNumberHoweverItIsWritten) {
  for (WholeCase const& number : wholeNumbers) {
    SCOPED_TRACE(number.literal);
    EXPECT_EQ(JSONValue::number(number.literal).asInteger(), number.value);
  }
}

struct RealCase {
  std::string literal;
  std::optional<double> value;
};

RealCase const realNumbers[] = {
    {"0", 0.0},
    {"5", 5.0},
    {"0.1", 0.1},
    {"1e2", 100.0},
    {"-1.5E-3", -0.0015},
    {"9007199254740993", 9007199254740992.0},
    {"18446744073709551616", 18446744073709551616.0},
    {"1.7976931348623157e308", std::numeric_limits<double>::max()},
    {"5e-324", std::numeric_limits<double>::denorm_min()},
    {"1e-400", 0.0},
    {"1e400", {}},
    {"-1e400", {}},
};

TEST(JSONValue, ReadsTheNearestDoubleButNeverInfinity) {
  for (RealCase const& number : realNumbers) {
    SCOPED_TRACE(number.literal);
    EXPECT_EQ(JSONValue::number(number.literal).asDouble(), number.value);
  }
}

TEST(JSONValue, MakesNumbersWithTheirShortestLiteral) {
  EXPECT_EQ(JSONValue::integer(lowest), JSONValue::number("-9223372036854775808"));
  EXPECT_EQ(JSONValue::real(5), JSONValue::number("5"));
  EXPECT_EQ(JSONValue::real(0.1), JSONValue::number("0.1"));
}

TEST(JSONValue, MakesNoNumberThatIsNotFinite) {
  EXPECT_THROW(JSONValue::real(std::numeric_limits<double>::infinity()), JSONError);
  EXPECT_THROW(JSONValue::real(std::numeric_limits<double>::quiet_NaN()), JSONError);
}

TEST(JSONValue, FindsAMemberByItsExactName) {
  auto const object = JSONValue::object({{"a", JSONValue::integer(1)}, {"", JSONValue::integer(2)}});
  ASSERT_TRUE(object.member("a"));
  EXPECT_EQ(*object.member("a"), JSONValue::integer(1));
  ASSERT_TRUE(object.member(""));
  EXPECT_EQ(*object.member(""), JSONValue::integer(2));
  EXPECT_EQ(object.member("A"), nullptr);
}

TEST(JSONValue, EqualsByLiteralAndOrder) {
  auto const one = JSONValue::integer(1);
  auto const two = JSONValue::integer(2);
  EXPECT_EQ(JSONValue::array({one, two}), JSONValue::array({one, two}));
  EXPECT_NE(JSONValue::array({one, two}), JSONValue::array({two, one}));
  EXPECT_EQ(JSONValue::object({{"a", one}, {"b", two}}), JSONValue::object({{"a", one}, {"b", two}}));
  EXPECT_NE(JSONValue::object({{"a", one}, {"b", two}}), JSONValue::object({{"b", two}, {"a", one}}));
  EXPECT_NE(one, JSONValue::number("1.0"));
  EXPECT_NE(one, JSONValue::string("1"));
  EXPECT_NE(JSONValue::null(), JSONValue::boolean(false));
}

}  // namespace
}  // namespace tolva
