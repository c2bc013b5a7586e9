// SPDX-License-Identifier: Apache-2.0
#include "platform/JSONWriter.hpp"

#include <gtest/gtest.h>

#include <bit>
#include <cmath>
#include <functional>
#include <limits>
#include <random>

#include "platform/Bytes.hpp"
#include "platform/JSONReader.hpp"

namespace tolva {
namespace {

/// What `write` leaves in an empty text.
std::string written(std::function<void(JSONWriter&)> const& write) {
  std::string text;
  JSONWriter out(text);
  write(out);
  return text;
}

std::string writtenValue(auto const& value) {
  return written([&](JSONWriter& out) { out.value(value); });
}

struct StringCase {
  std::string_view says;
  std::string text;
  std::string json;
};

StringCase const strings[] = {
    {"nothing", "", R"("")"},
    {"plain text", "plain text", R"("plain text")"},
    {"a quotation mark", "a\"b", R"("a\"b")"},
    {"a backslash", "a\\b", R"("a\\b")"},
    {"a slash", "a/b", R"("a\/b")"},
    {"the named control characters", "\b\f\n\r\t", R"("\b\f\n\r\t")"},
    {"NUL", std::string(1, '\0'), R"("\u0000")"},
    {"the first and the last of each row of control characters", "\x01\x0e\x0f\x10\x1a\x1f",
     R"("\u0001\u000e\u000f\u0010\u001a\u001f")"},
    {"a vertical tab", "\v", R"("\u000b")"},
    {"delete", "\x7f", "\"\x7f\""},
    {"characters that other languages escape", "<>&'`", R"("<>&'`")"},
    {"UTF-8 of every length", "\u00e9\u20ac\U0001F600", "\"\u00e9\u20ac\U0001F600\""},
    {"line separators", "\u2028\u2029\u0085", "\"\u2028\u2029\u0085\""},
    {"a byte order mark", "\uFEFF", "\"\uFEFF\""},
    {"an escape at each end", "/a/", R"("\/a\/")"},
    {"escapes side by side", "a//\n\nb", R"("a\/\/\n\nb")"},
};

TEST(JSONWriter, WritesEachStringInItsOnlyForm) {
  for (StringCase const& one : strings) {
    SCOPED_TRACE(one.says);
    EXPECT_EQ(writtenValue(one.text), one.json);
    EXPECT_EQ(writeJSON(JSONValue::string(one.text)), one.json);
    EXPECT_EQ(written([&](JSONWriter& out) { out.key(one.text); }), one.json + ":");
  }
}

TEST(JSONWriter, EscapesNoOtherByteInAnyPlace) {
  for (int byte = 0; byte < 256; ++byte) {
    for (std::size_t before = 0; before < 20; ++before) {
      auto const text = std::string(before, 'x') + static_cast<char>(byte) + "yz";
      bool const escaped = byte < 0x20 || byte == '"' || byte == '\\' || byte == '/';
      auto const json = writtenValue(text);
      EXPECT_EQ(json == "\"" + text + "\"", !escaped) << byte << " behind " << before;
      if (byte < 0x80) {
        EXPECT_EQ(readJSON(json), JSONValue::string(text)) << byte << " behind " << before;
      }
    }
  }
}

struct RealCase {
  double value;
  std::string_view json;
};

RealCase const reals[] = {
    {0.0, "0"},
    {-0.0, "-0"},
    {5.0, "5"},
    {-1.5, "-1.5"},
    {0.1, "0.1"},
    {1.0 / 3, "0.3333333333333333"},
    {1e-4, "0.0001"},
    {1e-5, "1e-05"},
    {1e15, "1000000000000000"},
    {1e16, "1e+16"},
    {123456789012345680.0, "1.2345678901234568e+17"},
    {9007199254740992.0, "9007199254740992"},
    {1e100, "1e+100"},
    {1.7976931348623157e308, "1.7976931348623157e+308"},
    {2.2250738585072014e-308, "2.2250738585072014e-308"},
    {5e-324, "5e-324"},
};

TEST(JSONWriter, WritesTheShortestTextOfADouble) {
  for (RealCase const& real : reals) {
    SCOPED_TRACE(real.json);
    EXPECT_EQ(writtenValue(real.value), real.json);
  }
}

TEST(JSONWriter, RefusesADoubleThatIsNotFinite) {
  constexpr auto infinity = std::numeric_limits<double>::infinity();
  for (double const real : {infinity, -infinity, std::numeric_limits<double>::quiet_NaN()}) {
    std::string text = "[";
    JSONWriter out(text);
    EXPECT_THROW(out.value(real), JSONError);
    EXPECT_EQ(text, "[");
  }
}

TEST(JSONWriter, WritesADoubleThatReadsBackWithTheSameBits) {
  std::mt19937_64 random(7);
  std::uniform_real_distribution<double> nearby(-1000, 1000);
  for (int i = 0; i < 100'000; ++i) {
    double const value = i % 2 ? std::bit_cast<double>(random()) : nearby(random);
    if (!std::isfinite(value)) continue;
    auto const read = readJSON(writtenValue(value)).asDouble();
    ASSERT_TRUE(read);
    ASSERT_EQ(std::bit_cast<std::uint64_t>(*read), std::bit_cast<std::uint64_t>(value)) << value;
  }
}

TEST(JSONWriter, WritesTheOtherPlainValues) {
  EXPECT_EQ(written([](JSONWriter& out) { out.null(); }), "null");
  EXPECT_EQ(writtenValue(true), "true");
  EXPECT_EQ(writtenValue(false), "false");
  EXPECT_EQ(writtenValue(0), "0");
  EXPECT_EQ(writtenValue(std::uint8_t{255}), "255");
  EXPECT_EQ(writtenValue(std::numeric_limits<std::int64_t>::min()), "-9223372036854775808");
  EXPECT_EQ(writtenValue(std::numeric_limits<std::int64_t>::max()), "9223372036854775807");
  EXPECT_EQ(writtenValue(std::numeric_limits<std::uint64_t>::max()), "18446744073709551615");
  EXPECT_EQ(writtenValue("literal"), R"("literal")");
}

TEST(JSONWriter, WritesBytesAsBase64InWhichASlashIsEscapedToo) {
  EXPECT_EQ(writtenValue(Bytes{}), R"("")");
  EXPECT_EQ(writtenValue(Bytes{'f', 'o'}), R"("Zm8=")");
  EXPECT_EQ(writtenValue(Bytes{0xFF, 0xFF, 0xFF}), R"("\/\/\/\/")");
}

TEST(JSONWriter, SeparatesWhatStandsInOneContainer) {
  EXPECT_EQ(written([](JSONWriter& out) {
              out.beginObject();
              out.key("empty");
              out.beginArray();
              out.endArray();
              out.key("z");
              out.beginArray();
              out.value(1);
              out.beginArray();
              out.value("two");
              out.null();
              out.endArray();
              out.beginObject();
              out.endObject();
              out.beginObject();
              out.key("a");
              out.value(false);
              out.endObject();
              out.value(2.5);
              out.endArray();
              out.key("b");
              out.null();
              out.endObject();
            }),
            R"({"empty":[],"z":[1,["two",null],{},{"a":false},2.5],"b":null})");
}

TEST(JSONWriter, AppendsToWhatTheTextHolds) {
  std::string text = "1\n";
  JSONWriter(text).value(2);
  EXPECT_EQ(text, "1\n2");
}

std::string_view constexpr sample =
    R"( {"b":[1.0,1E2,{"d":null,"c":[]},{}],"a/":true,"":"x","\u00e9":-0,"aa":"\u0001"} )";

TEST(JSONWriter, WritesATreeCompactInItsOwnOrderAndWithItsOwnNumbers) {
  EXPECT_EQ(writeJSON(readJSON(sample)),
            R"({"b":[1.0,1E2,{"d":null,"c":[]},{}],"a\/":true,"":"x","é":-0,"aa":"\u0001"})");
}

TEST(JSONWriter, SortsKeysByTheirBytesOnAllLevels) {
  EXPECT_EQ(writeJSON(readJSON(sample), {.sortedKeys = true}),
            R"({"":"x","a\/":true,"aa":"\u0001","b":[1.0,1E2,{"c":[],"d":null},{}],"é":-0})");
  EXPECT_EQ(writeJSON(readJSON(R"({"\ud83d\ude00":1,"\uffee":2,"z":3,"Z":4,"10":5,"9":6})"), {.sortedKeys = true}),
            "{\"10\":5,\"9\":6,\"Z\":4,\"z\":3,\"\uffee\":2,\"\U0001F600\":1}");
}

TEST(JSONWriter, IndentsPrettyTextByTwoBlanks) {
  EXPECT_EQ(writeJSON(readJSON(sample), {.pretty = true}),
            R"({
  "b" : [
    1.0,
    1E2,
    {
      "d" : null,
      "c" : []
    },
    {}
  ],
  "a\/" : true,
  "" : "x",
  "é" : -0,
  "aa" : "\u0001"
})");
}

TEST(JSONWriter, IndentsAndSortsTogether) {
  EXPECT_EQ(writeJSON(readJSON(R"({"b":[[1],[]],"a":{}})"), {.sortedKeys = true, .pretty = true}),
            R"({
  "a" : {},
  "b" : [
    [
      1
    ],
    []
  ]
})");
}

TEST(JSONWriter, LeavesValuesThatStandAloneOnOneLine) {
  for (std::string_view const text : {"null", "true", "-1.50e3", R"("a")", "[]", "{}"}) {
    SCOPED_TRACE(text);
    EXPECT_EQ(writeJSON(readJSON(text), {.sortedKeys = true, .pretty = true}), text);
  }
}

/// Grows random trees of all kinds.
class Grower {
 public:
  JSONValue tree(int levels) {
    switch (below(levels > 0 ? 8 : 6)) {
      case 0:
        return JSONValue::null();
      case 1:
        return JSONValue::boolean(below(2) == 0);
      case 2:
        return JSONValue::integer(static_cast<std::int64_t>(random_()));
      case 3:
        return JSONValue::real(std::ldexp(static_cast<double>(random_()), below(600) - 300));
      case 4:
      case 5:
        return JSONValue::string(text());
      case 6:
        return JSONValue::array(items(levels - 1));
      default:
        return JSONValue::object(members(levels - 1));
    }
  }

 private:
  int below(int bound) { return std::uniform_int_distribution(0, bound - 1)(random_); }

  std::string text() {
    static std::string const pieces[] = {"a",      "\"",         "\\", "/", "\n", std::string(1, '\0'),
                                         "\u00e9", "\U0001F600", "xyz"};
    std::string made;
    for (int left = below(12); left > 0; --left) made += pieces[below(std::size(pieces))];
    return made;
  }

  JSONValue::Array items(int levels) {
    JSONValue::Array made;
    for (int left = below(6); left > 0; --left) made.push_back(tree(levels));
    return made;
  }

  JSONValue::Object members(int levels) {
    JSONValue::Object made;
    for (int left = below(30); left > 0; --left) made.push_back({text() + std::to_string(left), tree(levels)});
    return made;
  }

  std::mt19937_64 random_{11};
};

TEST(JSONWriter, WritesTreesThatReadBackEqualInEveryStyle) {
  Grower grower;
  for (int i = 0; i < 500; ++i) {
    auto const tree = grower.tree(5);
    auto const compact = writeJSON(tree);
    ASSERT_EQ(readJSON(compact), tree) << compact;
    ASSERT_EQ(readJSON(writeJSON(tree, {.pretty = true})), tree) << compact;
    auto const sorted = writeJSON(tree, {.sortedKeys = true});
    ASSERT_EQ(writeJSON(readJSON(sorted)), sorted) << compact;
    ASSERT_EQ(sorted.size(), compact.size()) << compact;
  }
}

}  // namespace
}  // namespace tolva
