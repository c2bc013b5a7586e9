// SPDX-License-Identifier: Apache-2.0
#include <gtest/gtest.h>

#include <limits>

#include "core/SQLiteValue.hpp"
#include "platform/JSONCodec.hpp"
#include "platform/JSONReader.hpp"
#include "support/JSONFailure.hpp"

namespace tolva {
namespace {

SQLiteValue decoded(std::string_view text) { return decodeJSON<SQLiteValue>(readJSON(text)); }

std::string failureOf(std::string_view text) {
  return jsonFailureOf([&] { decoded(text); });
}

struct FormCase {
  SQLiteValue value;
  std::string_view json;
};

FormCase const forms[] = {
    {SQLiteValue::null(), R"({"null":{}})"},
    {SQLiteValue::integer(5), R"({"integer":{"_0":5}})"},
    {SQLiteValue::integer(std::numeric_limits<std::int64_t>::min()), R"({"integer":{"_0":-9223372036854775808}})"},
    {SQLiteValue::real(0.1), R"({"real":{"_0":0.1}})"},
    {SQLiteValue::real(5), R"({"real":{"_0":5}})"},
    {SQLiteValue::text("x"), R"({"text":{"_0":"x"}})"},
    {SQLiteValue::text("a/\n\u00e9"), "{\"text\":{\"_0\":\"a\\/\\n\u00e9\"}}"},
    {SQLiteValue::text(std::string("a\0b", 3)), R"({"text":{"_0":"a\u0000b"}})"},
    {SQLiteValue::text(""), R"({"text":{"_0":""}})"},
    {SQLiteValue::blob({}), R"({"blob":{"_0":""}})"},
    {SQLiteValue::blob({0xFF, 0xFF, 0xFF, 0x00}), R"({"blob":{"_0":"\/\/\/\/AA=="}})"},
    {SQLiteValue::largeText(65'537), R"({"largeText":{"_0":65537}})"},
    {SQLiteValue::largeBlob(1'048'576), R"({"largeBlob":{"_0":1048576}})"},
};

TEST(SQLiteValueCoding, WritesOneKeyNamedAfterTheCase) {
  for (FormCase const& form : forms) {
    SCOPED_TRACE(form.json);
    EXPECT_EQ(encodeJSON(form.value), form.json);
  }
}

TEST(SQLiteValueCoding, ReadsEachCaseBackMarkersIncluded) {
  for (FormCase const& form : forms) {
    SCOPED_TRACE(form.json);
    EXPECT_EQ(decoded(form.json), form.value);
  }
}

TEST(SQLiteValueCoding, CodesARowAsAList) {
  std::vector<SQLiteValue> const row{1, "a", SQLiteValue::null()};
  constexpr std::string_view text = R"([{"integer":{"_0":1}},{"text":{"_0":"a"}},{"null":{}}])";
  EXPECT_EQ(encodeJSON(row), text);
  EXPECT_EQ(decodeJSON<std::vector<SQLiteValue>>(readJSON(text)), row);
}

TEST(SQLiteValueCoding, RefusesARecordWithoutExactlyOneKnownKey) {
  for (std::string_view const text :
       {"{}", R"({"number":{"_0":5}})", R"({"Integer":{"_0":5}})", R"({"integer":{"_0":5},"null":{}})",
        R"({"text":{"_0":"a"},"blob":{"_0":""},"real":{"_0":1}})"}) {
    SCOPED_TRACE(text);
    EXPECT_EQ(failureOf(text), "Invalid number of keys found, expected one.");
  }
}

TEST(SQLiteValueCoding, CountsAnUnknownKeyAsNone) {
  EXPECT_EQ(decoded(R"({"kind":"number","integer":{"_0":5,"_1":6}})"), SQLiteValue::integer(5));
  EXPECT_EQ(decoded(R"({"null":{"_0":5}})"), SQLiteValue::null());
}

struct MismatchCase {
  std::string_view text;
  std::string_view message;
};

MismatchCase const mismatches[] = {
    {"5", "The JSON value is not a record."},
    {R"(["integer"])", "The JSON value is not a record."},
    {R"({"integer":5})", "The value of \"integer\" is not a record."},
    {R"({"integer":null})", "The value of \"integer\" is not a record."},
    {R"({"null":null})", "The value of \"null\" is not a record."},
    {R"({"integer":{}})", "The key \"_0\" is missing."},
    {R"({"integer":{"_0":0.5}})", "The value of \"_0\" is not a whole number of at most 64 bits."},
    {R"({"integer":{"_0":9223372036854775808}})", "The value of \"_0\" is not a whole number of at most 64 bits."},
    {R"({"real":{"_0":"Infinity"}})", "The value of \"_0\" is not a number of double precision."},
    {R"({"text":{"_0":null}})", "The value of \"_0\" is not a text."},
    {R"({"blob":{"_0":"A"}})", "The value of \"_0\" is not a base64 text."},
    {R"({"largeBlob":{"_0":"5"}})", "The value of \"_0\" is not a whole number of at most 64 bits."},
};

TEST(SQLiteValueCoding, RefusesAPayloadOfAnotherType) {
  for (MismatchCase const& mismatch : mismatches) {
    SCOPED_TRACE(mismatch.text);
    EXPECT_EQ(failureOf(mismatch.text), mismatch.message);
  }
}

TEST(SQLiteValueCoding, WritesNoRealThatIsNotFinite) {
  constexpr auto infinity = std::numeric_limits<double>::infinity();
  for (double const real : {infinity, -infinity, std::numeric_limits<double>::quiet_NaN()})
    EXPECT_THROW(encodeJSON(SQLiteValue::real(real)), JSONError) << real;
}

}  // namespace
}  // namespace tolva
