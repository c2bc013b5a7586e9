// SPDX-License-Identifier: Apache-2.0
#include "preview/JSONPreview.hpp"

#include <gtest/gtest.h>
#include <unicode/uclean.h>

#include <cstdlib>

#include "platform/JSONReader.hpp"
#include "support/Corpora.hpp"

namespace tolva {
namespace {

/// A document of that many bytes.
std::string documentOf(std::size_t bytes) { return "[\"" + std::string(bytes - 4, 'x') + "\"]"; }

std::string nested(std::size_t levels) { return std::string(levels, '[') + std::string(levels, ']'); }

TEST(JSONPreview, ShowsAllFormsOfAValue) {
  auto const preview = jsonPreview(R"( {"b":[1,2.50,"x/y"],"a":{},"a":null} )");
  ASSERT_TRUE(preview);
  EXPECT_EQ(preview->pretty, R"({
  "a" : null,
  "b" : [
    1,
    2.50,
    "x\/y"
  ]
})");
  EXPECT_EQ(preview->paths, "$  {2 keys}\n$.a  null\n$.b  [3 items]\n$.b[0]  1\n$.b[1]  2.5\n$.b[2]  x/y");
  ASSERT_EQ(preview->nodes.size(), 1u);
  EXPECT_EQ(preview->nodes[0].label, "$");
  EXPECT_EQ(preview->nodes[0].value, "2 keys");
}

TEST(JSONPreview, WritesAnEmptyContainerOnOneLine) {
  EXPECT_EQ(jsonPreview("[]")->pretty, "[]");
  EXPECT_EQ(jsonPreview("{ }")->pretty, "{}");
  EXPECT_EQ(jsonPreview("[[],{}]")->pretty, "[\n  [],\n  {}\n]");
}

struct JSONCase {
  char const* says;
  std::string text;
  bool shown;
};

JSONCase const cases[] = {
    {"nothing", "", false},
    {"a number alone", "12", true},
    {"a string alone", "\"x\"", true},
    {"a word alone", "null", true},
    {"a word that is none", "NULL", false},
    {"prose", "Dear all", false},
    {"two values", "1 2", false},
    {"a byte order mark before it", "\xEF\xBB\xBF{}", false},
    {"bytes that are no UTF-8", "\"\xFF\"", false},
    {"64 levels", nested(64), true},
    {"65 levels", nested(65), false},
    {"256 KiB", documentOf(262'144), true},
    {"a byte more", documentOf(262'145), false},
};

TEST(JSONPreview, IsForWhatIsJSONWithinBounds) {
  for (JSONCase const& one : cases) {
    SCOPED_TRACE(one.says);
    EXPECT_EQ(jsonPreview(one.text).has_value(), one.shown);
  }
}

long allocationsLeft = 0;  // until one of ICU's fails; none does at 0

bool allocationFails() { return allocationsLeft > 0 && --allocationsLeft == 0; }

/// ICU that lacks memory fails in the way it does without its rules.
TEST(JSONPreview, IsAbsentWhereCharactersCannotBeToldApart) {
  UErrorCode status = U_ZERO_ERROR;
  u_setMemoryFunctions(
      nullptr, [](void const*, std::size_t size) { return allocationFails() ? nullptr : std::malloc(size); },
      [](void const*, void* old, std::size_t size) { return allocationFails() ? nullptr : std::realloc(old, size); },
      [](void const*, void* old) { std::free(old); }, &status);
  ASSERT_TRUE(U_SUCCESS(status));
  std::string json = "\"";
  for (int character = 0; character < 300; ++character) json += "e\u0301";
  json += "\"";
  EXPECT_TRUE(jsonPreview(json));
  allocationsLeft = 1;
  EXPECT_FALSE(jsonPreview(json));
  EXPECT_TRUE(jsonPreview(json));
}

/// So many items sixty levels deep: each stands on a line of its own behind 120 blanks.
std::string deepItems(int items) {
  std::string json(60, '[');
  for (int item = 1; item < items; ++item) json += "0,";
  return json + "1" + std::string(60, ']');
}

TEST(JSONPreview, IsAbsentWhereThePrettyTextIsAboveOneMiB) {
  std::string json = deepItems(8'400);
  auto const whole = jsonPreview(json);
  ASSERT_TRUE(whole);
  std::size_t const missing = 1'048'576 - whole->pretty.size();
  json.insert(json.find(']'), missing, '0');
  auto const full = jsonPreview(json);
  ASSERT_TRUE(full);
  EXPECT_EQ(full->pretty.size(), 1'048'576u);
  json.insert(json.find(']'), 1, '0');
  EXPECT_FALSE(jsonPreview(json));
}

TEST(JSONPreview, AgreesWithThePublishedTestSuite) {
  TOLVA_NEEDS_CORPORA();
  int accepted = 0;
  int refused = 0;
  for (auto const& file : corpusFiles("json-jsontestsuite", ".json")) {
    std::string const name = file.filename();
    SCOPED_TRACE(name);
    auto const preview = jsonPreview(contents(file));
    if (name.starts_with("y_")) {
      EXPECT_TRUE(preview);
      ++accepted;
    }
    if (name.starts_with("n_")) {
      EXPECT_FALSE(preview);
      ++refused;
    }
    if (preview) {
      EXPECT_EQ(jsonPreview(preview->pretty)->pretty, preview->pretty);
    }
  }
  EXPECT_EQ(accepted, 95);
  EXPECT_EQ(refused, 188);
}

}  // namespace
}  // namespace tolva
