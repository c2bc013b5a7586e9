// SPDX-License-Identifier: Apache-2.0
#include "preview/JSONPathListing.hpp"

#include <gtest/gtest.h>

#include <algorithm>
#include <string_view>

#include "platform/JSONReader.hpp"
#include "platform/UTF8.hpp"
#include "support/Repeated.hpp"

namespace tolva {
namespace {

struct ListingCase {
  char const* says;
  char const* json;
  char const* text;
};

ListingCase const listings[] = {
    {"a value alone", "12", "$  12"},
    {"an empty object", "{}", "$  {0 keys}"},
    {"an empty array", "[]", "$  [0 items]"},
    {"keys in the order of their bytes", R"({"b":1,"a":2,"B":3,"é":4,"":5})",
     "$  {5 keys}\n$.  5\n$.B  3\n$.a  2\n$.b  1\n$.é  4"},
    {"containers before what they contain", R"({"a":[{"b":null},[true]],"c":"x\ny"})",
     "$  {2 keys}\n$.a  [2 items]\n$.a[0]  {1 keys}\n$.a[0].b  null\n$.a[1]  [1 items]\n$.a[1][0]  true\n$.c  x\ny"},
};

std::string listed(std::string const& json) { return jsonTree(readJSON(json)); }

std::string arrayOf(int items) {
  std::string json = "[0";
  for (int item = 1; item < items; ++item) json += ",0";
  return json + "]";
}

long lines(std::string const& text) { return 1 + std::ranges::count(text, '\n'); }

TEST(JSONPathListing, HasALineForEachValue) {
  for (ListingCase const& listing : listings) {
    SCOPED_TRACE(listing.says);
    EXPECT_EQ(listed(listing.json), listing.text);
  }
}

TEST(JSONPathListing, EndsAtTheFiveHundredthNodeAndSaysSo) {
  std::string const note = "\nTree limited to 500 nodes.";
  EXPECT_TRUE(listed(arrayOf(498)).ends_with("\n$[497]  0"));
  EXPECT_TRUE(listed(arrayOf(499)).ends_with("\n$[498]  0" + note)) << "exactly 500 are no fewer";
  EXPECT_TRUE(listed(arrayOf(500)).ends_with("\n$[498]  0" + note));
  EXPECT_EQ(lines(listed("[" + arrayOf(300) + "," + arrayOf(300) + "," + arrayOf(300) + "]")), 501);
}

/// Keys of four digits in reverse order.
std::string objectOf(int keys) {
  std::string json = "{";
  for (int key = keys - 1; key >= 0; --key) {
    json += (json == "{" ? "\"" : ",\"") + std::to_string(1000 + key) + "\":0";
  }
  return json + "}";
}

TEST(JSONPathListing, ListsTheFirstKeysOfALargeObject) {
  std::string const note = "\nTree limited to 500 nodes.";
  EXPECT_TRUE(listed(objectOf(498)).ends_with("\n$.1497  0"));
  EXPECT_TRUE(listed(objectOf(499)).ends_with("\n$.1498  0" + note));
  EXPECT_TRUE(listed(objectOf(500)).ends_with("\n$.1498  0" + note));
  std::string const many = listed(objectOf(600));
  EXPECT_TRUE(many.starts_with("$  {600 keys}\n$.1000  0\n$.1001  0\n"));
  EXPECT_TRUE(many.ends_with("\n$.1497  0\n$.1498  0" + note));
  std::string const late = listed("[" + arrayOf(494) + "," + objectOf(600) + ",1]");
  EXPECT_TRUE(late.ends_with("\n$[0][493]  0\n$[1]  {600 keys}\n$[1].1000  0\n$[1].1001  0\n$[1].1002  0" + note));
  EXPECT_EQ(lines(late), 501);
}

TEST(JSONPathListing, CutsPathsAndTextsByCharacters) {
  std::string const family = "👨‍👩‍👧‍👦";
  EXPECT_EQ(listed("\"" + repeated(family, 256) + "\""), "$  " + repeated(family, 256));
  EXPECT_EQ(listed("\"" + repeated(family, 257) + "\""), "$  " + repeated(family, 256));
  auto const path = [&](std::size_t characters) { return "$." + repeated(family, characters); };
  auto const object = [&](std::size_t characters) { return "{\"" + repeated(family, characters) + "\":[7]}"; };
  EXPECT_EQ(listed(object(507)), "$  {1 keys}\n" + path(507) + "  [1 items]\n" + path(507) + "[0]  7");
  EXPECT_EQ(listed(object(508)), "$  {1 keys}\n" + path(508) + "  [1 items]\n" + path(508) + "[0  7");
  EXPECT_EQ(listed(object(511)), "$  {1 keys}\n" + path(510) + "  [1 items]\n" + path(510) + "  7");
}

/// One character of 200,000 bytes, above 499 values.
TEST(JSONPathListing, StaysSmallUnderOneEndlessCharacter) {
  std::string const character = "e" + repeated("\u0301", 100'000);
  std::string const listing = listed("{\"" + character + "\":" + arrayOf(600) + "}");
  EXPECT_EQ(lines(listing), 501);
  EXPECT_LT(listing.size(), 500u * (16'384 + 32));
  EXPECT_TRUE(isValidUTF8(listing));
}

}  // namespace
}  // namespace tolva
