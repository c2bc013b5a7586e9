// SPDX-License-Identifier: Apache-2.0
#include "platform/JSONCodec.hpp"

#include <gtest/gtest.h>

#include <bit>
#include <limits>
#include <random>

#include "platform/JSONReader.hpp"
#include "support/JSONFailure.hpp"

namespace tolva {

/// A tagged value as the system has them: one key named after the case.
class Shape {
 public:
  static Shape circle(double radius) { return Shape(radius, "circle"); }
  static Shape square(double side) { return Shape(side, "square"); }

  void encode(JSONWriter& out) const {
    out.beginObject();
    out.key(kind_);
    out.value(size_);
    out.endObject();
  }

  static Shape decode(JSONValue const& coded) {
    if (auto const* const radius = coded.member("circle")) return circle(decodeJSON<double>(*radius));
    if (auto const* const side = coded.member("square")) return square(decodeJSON<double>(*side));
    throw JSONError("No shape.");
  }

  bool operator==(Shape const&) const = default;

 private:
  Shape(double size, std::string_view kind) : size_(size), kind_(kind) {}

  double size_;
  std::string_view kind_;
};

struct Inner {
  std::string name;
  std::optional<std::string> note;
  bool operator==(Inner const&) const = default;
};
BOOST_DESCRIBE_STRUCT(Inner, (), (name, note))

struct Outer {
  bool flag = false;
  std::int32_t count = 0;
  double ratio = 0;
  std::string title;
  Bytes data;
  UUID id;
  std::chrono::system_clock::time_point made;
  std::vector<Inner> items;
  std::map<std::string, std::int64_t> totals;
  std::optional<Inner> extra;
  std::vector<Shape> shapes;
  bool operator==(Outer const&) const = default;
};
BOOST_DESCRIBE_STRUCT(Outer, (), (flag, count, ratio, title, data, id, made, items, totals, extra, shapes))

struct Empty {
  bool operator==(Empty const&) const = default;
};
BOOST_DESCRIBE_STRUCT(Empty, (), ())

namespace {

using TimePoint = std::chrono::system_clock::time_point;
using namespace std::chrono_literals;

template <class T>
T decoded(std::string_view text) {
  return decodeJSON<T>(readJSON(text));
}

template <class T>
std::string failureOf(std::string_view text) {
  return jsonFailureOf([&] { decoded<T>(text); });
}

Outer const outer{
    .flag = true,
    .count = -3,
    .ratio = 0.25,
    .title = "a/b",
    .data = {0xFF, 0xFF, 0xFF},
    .id = *UUID::parse("01234567-89ab-cdef-fedc-ba9876543210"),
    .made = std::chrono::sys_days(std::chrono::year(2001) / 1 / 2) + 500ms,
    .items = {{.name = "x", .note = "n"}, {.name = "y", .note = {}}},
    .totals = {{"b", 2}, {"a", 1}},
    .extra = Inner{.name = "e", .note = {}},
    .shapes = {Shape::circle(1), Shape::square(2.5)},
};

constexpr std::string_view outerText =
    R"({"flag":true,"count":-3,"ratio":0.25,"title":"a\/b","data":"\/\/\/\/",)"
    R"("id":"01234567-89AB-CDEF-FEDC-BA9876543210","made":86400.5,"items":[{"name":"x","note":"n"},{"name":"y"}],)"
    R"("totals":{"a":1,"b":2},"extra":{"name":"e"},"shapes":[{"circle":1},{"square":2.5}]})";

TEST(JSONCodec, WritesTheFieldsOfARecordInTheirOrder) {
  EXPECT_EQ(encodeJSON(outer), outerText);
  EXPECT_EQ(encodeJSON(Empty()), "{}");
}

TEST(JSONCodec, ReadsARecordBack) {
  EXPECT_EQ(decoded<Outer>(outerText), outer);
  EXPECT_EQ(decoded<Empty>(R"({"a":1})"), Empty());
}

TEST(JSONCodec, LeavesAnEmptyOptionalFieldOut) {
  EXPECT_EQ(encodeJSON(Inner{.name = "x", .note = {}}), R"({"name":"x"})");
  EXPECT_EQ(encodeJSON(Inner{.name = "x", .note = ""}), R"({"name":"x","note":""})");
}

TEST(JSONCodec, ReadsAnAbsentOrNullOptionalAsEmpty) {
  EXPECT_EQ(decoded<Inner>(R"({"name":"x"})"), (Inner{.name = "x", .note = {}}));
  EXPECT_EQ(decoded<Inner>(R"({"note":null,"name":"x"})"), (Inner{.name = "x", .note = {}}));
}

TEST(JSONCodec, IgnoresUnknownKeysAndTheOrderOfMembers) {
  EXPECT_EQ(decoded<Inner>(R"({"later":[1],"note":"n","Name":"z","name":"x"})"), (Inner{.name = "x", .note = "n"}));
}

TEST(JSONCodec, KeepsEmptyPlacesInAList) {
  std::vector<std::optional<bool>> const places{true, {}, false};
  EXPECT_EQ(encodeJSON(places), "[true,null,false]");
  EXPECT_EQ(decoded<std::vector<std::optional<bool>>>("[true,null,false]"), places);
}

TEST(JSONCodec, SortsKeysThroughTheTree) {
  EXPECT_EQ(writeJSON(readJSON(encodeJSON(Inner{.name = "x", .note = "n"})), {.sortedKeys = true}),
            R"({"name":"x","note":"n"})");
  EXPECT_EQ(writeJSON(readJSON(encodeJSON(outer)), {.sortedKeys = true}).substr(0, 27),
            R"({"count":-3,"data":"\/\/\/\)");
}

TEST(JSONCodec, NamesTheKeyThatIsMissing) {
  EXPECT_EQ(failureOf<Inner>("{}"), "The key \"name\" is missing.");
  EXPECT_EQ(failureOf<std::vector<Inner>>(R"([{"name":"x"},{"note":"n"}])"), "The key \"name\" is missing.");
}

TEST(JSONCodec, NamesTheKeyWhoseValueDoesNotFit) {
  EXPECT_EQ(failureOf<Inner>(R"({"name":1})"), "The value of \"name\" is not a text.");
  EXPECT_EQ(failureOf<Inner>(R"({"name":null})"), "The value of \"name\" is not a text.");
  EXPECT_EQ(failureOf<Inner>(R"({"name":"x","note":[]})"), "The value of \"note\" is not a text.");
  EXPECT_EQ((failureOf<std::map<std::string, bool>>(R"({"a":true,"b":1})")),
            "The value of \"b\" is not a truth value.");
  EXPECT_EQ(failureOf<Inner>("[]"), "The JSON value is not a record.");
  EXPECT_EQ(failureOf<std::vector<Inner>>("[1]"), "The JSON value is not a record.");
}

TEST(JSONCodec, RefusesValuesOfAnotherType) {
  EXPECT_EQ(failureOf<bool>("1"), "The JSON value is not a truth value.");
  EXPECT_EQ(failureOf<std::int64_t>("true"), "The JSON value is not a whole number of at most 64 bits.");
  EXPECT_EQ(failureOf<std::int64_t>(R"("1")"), "The JSON value is not a whole number of at most 64 bits.");
  EXPECT_EQ(failureOf<std::int64_t>("0.5"), "The JSON value is not a whole number of at most 64 bits.");
  EXPECT_EQ(failureOf<double>(R"("1")"), "The JSON value is not a number of double precision.");
  EXPECT_EQ(failureOf<double>("1e400"), "The JSON value is not a number of double precision.");
  EXPECT_EQ(failureOf<std::string>("1"), "The JSON value is not a text.");
  EXPECT_EQ(failureOf<Bytes>("[1]"), "The JSON value is not a base64 text.");
  EXPECT_EQ(failureOf<Bytes>(R"("Zg")"), "The JSON value is not a base64 text.");
  EXPECT_EQ(failureOf<UUID>(R"("0123")"), "The JSON value is not a UUID.");
  EXPECT_EQ(failureOf<UUID>("1"), "The JSON value is not a UUID.");
  EXPECT_EQ(failureOf<TimePoint>(R"("2001-01-01")"), "The JSON value is not a date.");
  EXPECT_EQ(failureOf<std::vector<bool>>("{}"), "The JSON value is not a list.");
  EXPECT_EQ((failureOf<std::map<std::string, bool>>("[]")), "The JSON value is not a record.");
}

TEST(JSONCodec, ReadsWholeNumbersInTheRangeOfTheirType) {
  EXPECT_EQ(decoded<std::int32_t>("-2147483648"), std::numeric_limits<std::int32_t>::min());
  EXPECT_EQ(decoded<std::int32_t>("2147483647.0"), std::numeric_limits<std::int32_t>::max());
  EXPECT_EQ(decoded<std::uint8_t>("2.55e2"), 255);
  EXPECT_EQ(decoded<std::int64_t>("-9223372036854775808"), std::numeric_limits<std::int64_t>::min());
  EXPECT_EQ(failureOf<std::int32_t>("2147483648"), "The JSON value is not a whole number in its range.");
  EXPECT_EQ(failureOf<std::int32_t>("-2147483649"), "The JSON value is not a whole number in its range.");
  EXPECT_EQ(failureOf<std::uint8_t>("256"), "The JSON value is not a whole number in its range.");
  EXPECT_EQ(failureOf<std::uint8_t>("-1"), "The JSON value is not a whole number in its range.");
  EXPECT_EQ(failureOf<std::int64_t>("9223372036854775808"), "The JSON value is not a whole number of at most 64 bits.");
}

TEST(JSONCodec, ReadsAWholeLiteralAsADouble) {
  EXPECT_EQ(encodeJSON(5.0), "5");
  EXPECT_EQ(decoded<double>("5"), 5.0);
  EXPECT_EQ(decoded<double>("18446744073709551616"), 18446744073709551616.0);
}

TEST(JSONCodec, WritesNoDoubleThatIsNotFinite) {
  EXPECT_THROW(encodeJSON(std::numeric_limits<double>::infinity()), JSONError);
}

TEST(JSONCodec, LetsATypeBringItsOwnForm) {
  EXPECT_EQ(encodeJSON(Shape::square(2)), R"({"square":2})");
  EXPECT_EQ(decoded<Shape>(R"({"circle":1.5})"), Shape::circle(1.5));
  EXPECT_EQ(failureOf<Shape>("{}"), "No shape.");
  EXPECT_EQ(failureOf<Shape>(R"({"circle":"wide"})"), "The JSON value is not a number of double precision.");
}

struct DateCase {
  std::string_view says;
  TimePoint date;
  std::string_view json;
};

constexpr TimePoint day(int year, unsigned month, unsigned number) {
  return std::chrono::sys_days(std::chrono::year(year) / std::chrono::month(month) / std::chrono::day(number));
}

DateCase const dates[] = {
    {"the epoch", day(2001, 1, 1), "0"},
    {"the epoch of POSIX", day(1970, 1, 1), "-978307200"},
    {"before the epoch with a fraction", day(2001, 1, 1) - 250ms, "-0.25"},
    {"a nanosecond", day(2001, 1, 1) + 1ns, "1e-09"},
    {"a leap day", day(2024, 2, 29) + 12h, "730900800"},
    {"an evening with microseconds", day(2026, 11, 15) + 21h + 21min + 30s + 123456us, "816470490.123456"},
};

TEST(JSONCodec, WritesDatesAsSecondsSinceTheYear2001) {
  for (DateCase const& one : dates) {
    SCOPED_TRACE(one.says);
    EXPECT_EQ(encodeJSON(one.date), one.json);
    EXPECT_LT(std::chrono::abs(decoded<TimePoint>(one.json) - one.date), 100ns);
  }
}

TEST(JSONCodec, WritesADateThatItReadWithTheSameDigits) {
  std::mt19937_64 random(3);
  std::uniform_real_distribution<double> years(1e8, 3e9);
  for (int i = 0; i < 100'000; ++i) {
    double const seconds = i % 2 ? years(random) : -years(random);
    auto const text = encodeJSON(seconds);
    ASSERT_EQ(encodeJSON(decoded<TimePoint>(text)), text);
  }
}

TEST(JSONCodec, RefusesADateBeyondTheClock) {
  EXPECT_EQ(failureOf<TimePoint>("1e300"), "The JSON value is not a date.");
  EXPECT_EQ(failureOf<TimePoint>("-1e300"), "The JSON value is not a date.");
  EXPECT_EQ(failureOf<TimePoint>("9e9"), "The JSON value is not a date.");
  EXPECT_EQ(failureOf<TimePoint>("-9.3e9"), "The JSON value is not a date.");
  EXPECT_NO_THROW(decoded<TimePoint>("8.2e9"));
  EXPECT_NO_THROW(decoded<TimePoint>("-9.2e9"));
}

}  // namespace
}  // namespace tolva
