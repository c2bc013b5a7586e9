// SPDX-License-Identifier: Apache-2.0
#include "core/SQLiteRowCoding.hpp"

#include <gtest/gtest.h>

#include <bit>
#include <cmath>
#include <limits>
#include <random>

#include "platform/JSONCodec.hpp"
#include "platform/JSONReader.hpp"
#include "support/JSONFailure.hpp"

namespace tolva {
namespace {

using Row = std::vector<SQLiteValue>;

constexpr double infinity = std::numeric_limits<double>::infinity();

std::string encoded(Row const& row) {
  std::string out;
  encodeRow(row, out);
  return out;
}

TEST(SQLiteRowCoding, AppendsTheCodedForm) {
  std::string out = "before ";
  encodeRow(Row{1, 0.5, "a/\n\"", Bytes{0xFF, 0}, LargeText{65'537}, LargeBlob{0}, Null{}}, out);
  EXPECT_EQ(out,
            R"(before [{"integer":{"_0":1}},{"real":{"_0":0.5}},{"text":{"_0":"a\/\n\""}},{"blob":{"_0":"\/wA="}},)"
            R"({"largeText":{"_0":65537}},{"largeBlob":{"_0":0}},{"null":{}}])");
  EXPECT_EQ(encoded({}), "[]");
  EXPECT_EQ(decodeRow("[]"), Row{});
}

TEST(SQLiteRowCoding, WritesNumbersThatAreNotFiniteAsTexts) {
  EXPECT_EQ(encoded({infinity, -infinity, std::nan("")}),
            R"([{"real":{"_0":"Infinity"}},{"real":{"_0":"-Infinity"}},{"real":{"_0":"NaN"}}])");
  Row const row = decodeRow(encoded({infinity, -infinity, std::nan("")}));
  EXPECT_EQ(row[0], SQLiteValue(infinity));
  EXPECT_EQ(row[1], SQLiteValue(-infinity));
  EXPECT_TRUE(std::isnan(*row[2].asReal()));
}

/// Values that lie at the ends of their types or have odd forms, and random ones.
class RandomValues {
 public:
  Row row() {
    Row row(random_() % 7);
    for (SQLiteValue& value : row) value = this->value();
    return row;
  }

 private:
  SQLiteValue value() {
    switch (random_() % 7) {
      case 0:
        return integer();
      case 1:
        return real();
      case 2:
        return text();
      case 3:
        return bytes();
      case 4:
        return LargeText{integer()};
      case 5:
        return LargeBlob{integer()};
      default:
        return Null{};
    }
  }

  std::int64_t integer() {
    constexpr std::array<std::int64_t, 6> ends{
        0, -1, 1'000'000, std::numeric_limits<std::int64_t>::min(), std::numeric_limits<std::int64_t>::max(), 7};
    return random_() % 2 == 0 ? ends[random_() % ends.size()] : static_cast<std::int64_t>(random_());
  }

  double real() {
    constexpr std::array<double, 8> ends{0.0, -0.0, 5.0, 0.1, 1e16, 1e-5, 5e-324, std::numeric_limits<double>::max()};
    double const any = std::bit_cast<double>(random_());
    return random_() % 2 == 0 || !std::isfinite(any) ? ends[random_() % ends.size()] : any;
  }

  std::string text() {
    constexpr std::array<std::string_view, 12> pieces{"a",
                                                      "\"",
                                                      "\\",
                                                      "/",
                                                      "\n",
                                                      "\x1f",
                                                      std::string_view("\0", 1),
                                                      "\x7f",
                                                      "\u00e9",
                                                      "\U0001F600",
                                                      "}}",
                                                      "long enough not to be small"};
    std::string text;
    for (std::uint64_t piece = random_() % 8; piece > 0; --piece) text += pieces[random_() % pieces.size()];
    return text;
  }

  Bytes bytes() {
    Bytes bytes(random_() % 9);
    for (std::uint8_t& byte : bytes) byte = static_cast<std::uint8_t>(random_());
    return bytes;
  }

  std::mt19937_64 random_{11};
};

TEST(SQLiteRowCoding, AgreesWithTheTreeInEveryByte) {
  RandomValues random;
  for (int round = 0; round < 20'000; ++round) {
    Row const row = random.row();
    std::string const coded = encoded(row);
    ASSERT_EQ(coded, encodeJSON(row));
    ASSERT_EQ(decodeRow(coded), row) << coded;
    ASSERT_EQ(decodeJSON<Row>(readJSON(coded)), row) << coded;
  }
}

TEST(SQLiteRowCoding, NeverReadsADamagedRowOtherwiseThanTheTree) {
  RandomValues random;
  std::mt19937_64 damage(13);
  int read = 0;
  for (int round = 0; round < 20'000; ++round) {
    std::string coded = encoded(random.row());
    coded[damage() % coded.size()] = static_cast<char>(damage());
    if (damage() % 4 == 0) coded.resize(damage() % (coded.size() + 1));
    Row fast;
    Row byTree;
    if (jsonFailureOf([&] { fast = decodeRow(coded); }) == "This is no coded row.") continue;
    if (jsonFailureOf([&] { byTree = decodeJSON<Row>(readJSON(coded)); }) != "(nothing failed)") continue;
    ++read;
    ASSERT_EQ(encodeJSON(fast), encodeJSON(byTree)) << coded;
  }
  EXPECT_GT(read, 300);
}

TEST(SQLiteRowCoding, RefusesWhatIsNoRow) {
  for (std::string_view const text : {"",
                                      "[",
                                      "[]]",
                                      "[] ",
                                      "{}",
                                      "[{}]",
                                      R"([{"null":{}})",
                                      R"([{"null":{}},])",
                                      R"([{"integer":{"_0":}}])",
                                      R"([{"integer":{"_0":9223372036854775808}}])",
                                      R"([{"integer":{"_0":1.5}}])",
                                      R"([{"real":{"_0":inf}}])",
                                      R"([{"real":{"_0":-nan}}])",
                                      R"([{"real":{"_0":"Inf"}}])",
                                      R"([{"real":{"_0":1e999}}])",
                                      R"([{"text":{"_0":"a}}])",
                                      R"([{"text":{"_0":"\x"}}])",
                                      R"([{"text":{"_0":"\u0041"}}])",
                                      R"([{"text":{"_0":"\u00)",
                                      R"([{"text":{"_0":"\)",
                                      R"([{"blob":{"_0":"A"}}])",
                                      "[{\"text\":{\"_0\":\"\xff\"}}]"}) {
    SCOPED_TRACE(text);
    EXPECT_EQ(jsonFailureOf([&] { decodeRow(text); }), "This is no coded row.");
  }
}

}  // namespace
}  // namespace tolva
