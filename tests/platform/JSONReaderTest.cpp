// SPDX-License-Identifier: Apache-2.0
#include "platform/JSONReader.hpp"

#include <gtest/gtest.h>

#include <ctime>
#include <filesystem>
#include <string>
#include <vector>

#include "platform/JSONWriter.hpp"
#include "support/Corpora.hpp"
#include "support/JSONFailure.hpp"
#include "support/Repeated.hpp"
#include "support/Sanitizer.hpp"

namespace tolva {
namespace {

std::string failureOf(std::string_view text) {
  return jsonFailureOf([&] { readJSON(text); });
}

struct GoodCase {
  std::string_view says;
  std::string_view text;
  JSONValue value;
};

GoodCase const good[] = {
    {"null alone", "null", JSONValue::null()},
    {"true alone", "true", JSONValue::boolean(true)},
    {"false alone", "false", JSONValue::boolean(false)},
    {"a number alone", "1", JSONValue::number("1")},
    {"a string alone", R"("a")", JSONValue::string("a")},
    {"an empty string", R"("")", JSONValue::string("")},
    {"an empty array", "[]", JSONValue::array({})},
    {"an empty object", "{}", JSONValue::object({})},
    {"an empty name", R"({"":[]})", JSONValue::object({{"", JSONValue::array({})}})},
    {"white space around", " \t\r\n1 \t\r\n", JSONValue::number("1")},
    {"white space within", " [ 1 , 2 ] ", JSONValue::array({JSONValue::number("1"), JSONValue::number("2")})},
    {"members in their order", R"({"b":1,"a":2})",
     JSONValue::object({{"b", JSONValue::number("1")}, {"a", JSONValue::number("2")}})},
    {"short escapes", R"("\"\\\/\b\f\n\r\t")", JSONValue::string("\"\\/\b\f\n\r\t")},
    {"an escaped NUL", R"("a\u0000b")", JSONValue::string(std::string("a\0b", 3))},
    {"an escaped pair of surrogates", R"("\ud83d\uDE00")", JSONValue::string("\U0001F600")},
    {"escapes in a name", R"({"\u0061\n":1})", JSONValue::object({{"a\n", JSONValue::number("1")}})},
    {"UTF-8 of every length", "\"a\u00e9\u20ac\U0001F600\"", JSONValue::string("a\u00e9\u20ac\U0001F600")},
    {"a delete character", "\"\x7f\"", JSONValue::string("\x7f")},
    {"a byte order mark in a string", "\"\xEF\xBB\xBF\"", JSONValue::string("\xEF\xBB\xBF")},
};

TEST(JSONReader, ReadsEachKindOfValue) {
  for (GoodCase const& one : good) {
    SCOPED_TRACE(one.says);
    EXPECT_EQ(readJSON(one.text), one.value);
  }
}

TEST(JSONReader, KeepsTheTextOfEachNumber) {
  for (std::string const literal : {"0",
                                    "-0",
                                    "0.0",
                                    "-0.0",
                                    "5.0",
                                    "1.50",
                                    "1e2",
                                    "1E2",
                                    "1e+2",
                                    "1E-2",
                                    "1.0e05",
                                    "9223372036854775807",
                                    "-9223372036854775808",
                                    "9223372036854775808",
                                    "18446744073709551615",
                                    "18446744073709551616",
                                    "1e400",
                                    "-1e400",
                                    "1e-400",
                                    "0.1000000000000000055511151231257827",
                                    "123456789012345678901234567890.5e-10"}) {
    SCOPED_TRACE(literal);
    EXPECT_EQ(readJSON(literal), JSONValue::number(literal));
    EXPECT_EQ(readJSON("[" + literal + " ,1]"), JSONValue::array({JSONValue::number(literal), JSONValue::number("1")}));
  }
}

TEST(JSONReader, KeepsTheTextOfALongNumber) {
  auto const literal = "1" + repeated("0123456789", 10'000) + "." + repeated("0123456789", 10'000);
  EXPECT_EQ(readJSON(literal), JSONValue::number(literal));
}

TEST(JSONReader, ReadsStringsLongerThanAnyBuffer) {
  auto const text = repeated("\u00e9a\\u0062", 100'000);
  auto const value = repeated("\u00e9ab", 100'000);
  EXPECT_EQ(readJSON("{\"" + text + "\":\"" + text + "\"}"), JSONValue::object({{value, JSONValue::string(value)}}));
}

struct MalformedCase {
  std::string_view says;
  std::string text;
};

MalformedCase const malformed[] = {
    {"nothing", ""},
    {"only white space", " \n"},
    {"only a NUL", std::string(1, '\0')},
    {"not a number", "NaN"},
    {"infinity", "Infinity"},
    {"negative infinity", "-Infinity"},
    {"a word", "nul"},
    {"a word in capitals", "True"},
    {"a block comment", "/* a */1"},
    {"a line comment", "1 // a"},
    {"a leading zero", "01"},
    {"a leading zero behind a sign", "-01"},
    {"no digit behind the point", "5."},
    {"no digit before the point", ".5"},
    {"a plus sign", "+1"},
    {"a sign alone", "-"},
    {"no digit in the exponent", "1e"},
    {"a hexadecimal number", "0x10"},
    {"a comma at the end of an array", "[1,]"},
    {"a comma at the beginning of an array", "[,1]"},
    {"two commas", "[1,,2]"},
    {"a comma at the end of an object", R"({"a":1,})"},
    {"no comma", "[1 2]"},
    {"no colon", R"({"a" 1})"},
    {"no value", R"({"a":})"},
    {"a name without quotes", "{a:1}"},
    {"a number as a name", "{1:1}"},
    {"single quotes", "'a'"},
    {"a raw line feed in a string", "\"a\nb\""},
    {"a raw tab in a string", "\"a\tb\""},
    {"a raw NUL in a string", std::string("\"a\0b\"", 5)},
    {"a raw control character in a string", "\"\x1f\""},
    {"a raw control character in a name", "{\"\x01\":1}"},
    {"an unknown escape", R"("\x41")"},
    {"an escaped single quote", R"("\'")"},
    {"an escape with too few digits", R"("\u12")"},
    {"an escape with a foreign digit", R"("\u12G4")"},
    {"a first surrogate alone", R"("\ud800")"},
    {"a first surrogate before a letter", R"("\ud800a")"},
    {"a first surrogate before another escape", R"("\ud800\n")"},
    {"two first surrogates", R"("\ud800\ud800")"},
    {"a second surrogate alone", R"("\udc00")"},
    {"a lone surrogate in a name", R"({"\udc00":1})"},
    {"a continuation byte alone", "\"\x80\""},
    {"an unfinished sequence", "\"\xE2\x82\""},
    {"an overlong slash", "\"\xC0\xAF\""},
    {"an overlong NUL", "\"\xC0\x80\""},
    {"an encoded surrogate", "\"\xED\xA0\x80\""},
    {"a code point beyond the last", "\"\xF4\x90\x80\x80\""},
    {"a byte that UTF-8 never has", "\"\xFF\""},
    {"invalid UTF-8 in a name", "{\"\xFF\":1}"},
    {"a byte order mark", "\xEF\xBB\xBF[]"},
    {"a byte order mark behind", "[]\xEF\xBB\xBF"},
    {"UTF-16", std::string("[\0]\0", 4)},
    {"a no-break space", "\xC2\xA0[]"},
    {"a form feed", "\f[]"},
    {"two values", "1 2"},
    {"two arrays", "[][]"},
    {"a letter behind", "{}a"},
    {"a comma behind", "[],"},
    {"a bracket behind", "[]]"},
    {"a NUL behind", std::string("[]\0", 3)},
    {"a NUL behind a number", std::string("1\0", 2)},
    {"an unfinished string", "\"a"},
    {"an unfinished escape", "\"\\"},
    {"an unfinished array", "[1"},
    {"an unfinished object", R"({"a":1)"},
    {"a bracket that does not match", "[1}"},
    {"a closing bracket alone", "]"},
};

TEST(JSONReader, RefusesEveryOtherText) {
  for (MalformedCase const& one : malformed) {
    SCOPED_TRACE(one.says);
    EXPECT_THROW(readJSON(one.text), JSONError);
  }
}

TEST(JSONReader, SaysWhereReadingStopped) {
  EXPECT_EQ(failureOf("[1,x]"), "Invalid JSON at byte 3: syntax error.");
  EXPECT_EQ(failureOf("[1] x"), "Invalid JSON at byte 4: extra data.");
  EXPECT_EQ(failureOf("[1"), "Invalid JSON at byte 2: incomplete JSON.");
}

TEST(JSONReader, ReadsNoTextThatEndsEarlyOrGoesOn) {
  std::string const text = R"({"a":[1,true,null,"b\u00e9"],"c":{"d":-1.5e3}})";
  EXPECT_NO_THROW(readJSON(text));
  for (std::size_t length = 0; length < text.size(); ++length)
    EXPECT_THROW(readJSON(std::string_view(text).substr(0, length)), JSONError) << length;
  EXPECT_THROW(readJSON(text + "}"), JSONError);
}

struct Level {
  std::string_view open;
  std::string_view close;

  std::string nested(std::size_t depth) const { return repeated(open, depth) + "1" + repeated(close, depth); }
};

Level const levels[] = {{"[", "]"}, {R"({"a":)", "}"}};

TEST(JSONReader, ReadsFiveHundredTwelveLevelsAndNoMore) {
  for (Level const& level : levels) {
    SCOPED_TRACE(level.open);
    EXPECT_EQ(writeJSON(readJSON(level.nested(512))), level.nested(512));
    EXPECT_THROW(readJSON(level.nested(513)), JSONError);
  }
  EXPECT_THROW(readJSON(repeated("[", 100'000)), JSONError);
}

TEST(JSONReader, CountsLevelsAndNotContainers) { EXPECT_NO_THROW(readJSON("[" + repeated("[[]],", 10'000) + "[]]")); }

TEST(JSONReader, LetsTheLastOfEqualNamesWinAtThePlaceOfTheFirst) {
  EXPECT_EQ(writeJSON(readJSON(R"({"a":1,"b":2,"a":3})")), R"({"a":3,"b":2})");
  EXPECT_EQ(writeJSON(readJSON(R"({"a":1,"\u0061":{"a":1,"a":2}})")), R"({"a":{"a":2}})");
  EXPECT_EQ(writeJSON(readJSON(R"([{"a":1},{"a":2}])")), R"([{"a":1},{"a":2}])");
}

TEST(JSONReader, LetsTheLastOfEqualNamesWinInALargeObject) {
  std::string text = "{";
  std::string expected = "{";
  for (int i = 0; i < 200; ++i) text += "\"" + std::to_string(i % 100) + "\":" + std::to_string(i) + ",";
  for (int i = 0; i < 100; ++i) expected += "\"" + std::to_string(i) + "\":" + std::to_string(i + 100) + ",";
  text.back() = expected.back() = '}';
  EXPECT_EQ(writeJSON(readJSON(text)), expected);
}

TEST(JSONReader, FindsEqualNamesAmongVeryManyInTime) {
  std::string text = "{";
  for (int i = 0; i < 200'000; ++i) text += "\"" + std::to_string(i) + "\":0,";
  text.back() = '}';
  std::clock_t const begun = std::clock();  // processor time: what else the machine does must not matter
  EXPECT_EQ(writeJSON(readJSON(text)), text);
  EXPECT_LT(std::clock() - begun,
            (sanitized ? 120 : 10) * CLOCKS_PER_SEC);  // a search of all names before it for each takes minutes
}

/// The files of the public JSON test suite whose names begin with `prefix`: "y_" to be read, "n_" to be refused, "i_"
/// as each reader likes.
std::vector<std::filesystem::path> suiteFiles(std::string_view prefix) {
  auto files = corpusFiles("json-jsontestsuite", ".json");
  std::erase_if(files, [&](auto const& file) { return !file.filename().string().starts_with(prefix); });
  return files;
}

TEST(JSONReader, ReadsWhatThePublicSuiteCallsGood) {
  TOLVA_NEEDS_CORPORA();
  auto const files = suiteFiles("y_");
  ASSERT_FALSE(files.empty());
  for (auto const& file : files) {
    SCOPED_TRACE(file);
    auto const value = readJSON(contents(file));
    EXPECT_EQ(readJSON(writeJSON(value)), value);
  }
}

TEST(JSONReader, RefusesWhatThePublicSuiteCallsBad) {
  TOLVA_NEEDS_CORPORA();
  auto const files = suiteFiles("n_");
  ASSERT_FALSE(files.empty());
  for (auto const& file : files) {
    SCOPED_TRACE(file);
    EXPECT_THROW(readJSON(contents(file)), JSONError);
  }
}

/// Those of the doubtful files that are read. All others hold invalid UTF-8, a lone surrogate, a byte order mark or
/// another encoding, or an exponent of more than 31 bits.
constexpr std::string_view doubtfulButRead[] = {
    "i_number_double_huge_neg_exp.json",  "i_number_neg_int_huge_exp.json",  "i_number_pos_double_huge_exp.json",
    "i_number_real_neg_overflow.json",    "i_number_real_pos_overflow.json", "i_number_real_underflow.json",
    "i_number_too_big_neg_int.json",      "i_number_too_big_pos_int.json",   "i_number_very_big_negative_int.json",
    "i_structure_500_nested_arrays.json",
};

TEST(JSONReader, DecidesTheDoubtfulCasesOfThePublicSuite) {
  TOLVA_NEEDS_CORPORA();
  std::vector<std::string> read;
  for (auto const& file : suiteFiles("i_")) {
    if (failureOf(contents(file)) == "(nothing failed)") read.push_back(file.filename());
  }
  EXPECT_EQ(read, std::vector<std::string>(std::begin(doubtfulButRead), std::end(doubtfulButRead)));
}

}  // namespace
}  // namespace tolva
