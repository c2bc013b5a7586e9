// SPDX-License-Identifier: Apache-2.0
#include "preview/JSONDepth.hpp"

#include <gtest/gtest.h>

#include <fstream>
#include <sstream>
#include <string>

#include "support/Corpora.hpp"

namespace tolva {
namespace {

std::string nested(char open, char close, std::size_t levels) {
  return std::string(levels, open) + std::string(levels, close);
}

struct DepthCase {
  char const* says;
  std::string text;
  bool safe;
};

DepthCase const depths[] = {
    {"nothing", "", true},
    {"no brackets", "12 [] \"x\"", true},
    {"64 arrays", nested('[', ']', 64), true},
    {"65 arrays", nested('[', ']', 65), false},
    {"64 objects", nested('{', '}', 64), true},
    {"65 objects", nested('{', '}', 65), false},
    {"64 arrays one after the other", nested('[', ']', 64) + nested('[', ']', 64), true},
    {"a bracket too many at the end", "[]]", false},
    {"a bracket too many that is opened afterwards", "][", false},
    {"a bracket that stays open", "[[]", false},
    {"brackets that do not match are for the parser", "[}", true},
    {"brackets in a string", "\"" + std::string(65, '[') + "\"", true},
    {"a bracket behind an escaped quote", R"("\"[")", true},
    {"a bracket behind an escaped backslash", R"("\\"[)", false},
    {"a string that stays open", "\"abc", false},
    {"a string that ends in a backslash", "\"abc\\", false},
    {"a string whose last quote is escaped", R"("abc\")", false},
    {"a backslash outside a string", R"(\"[")", true},
};

TEST(JSONDepth, CountsTheBracketsOutsideStrings) {
  for (DepthCase const& depth : depths) {
    SCOPED_TRACE(depth.says);
    EXPECT_EQ(jsonDepthIsSafe(depth.text), depth.safe);
  }
}

/// The list of the files gives the result of another count for each.
TEST(JSONDepth, AgreesWithAnotherCountOnThePublishedTestSuite) {
  TOLVA_NEEDS_CORPORA();
  std::ifstream list(corpusFile("json-jsontestsuite/MANIFEST.tsv"));
  int compared = 0;
  for (std::string line; std::getline(list, line); ++compared) {
    std::istringstream fields(line);
    std::string name;
    std::string ignored;
    std::string scan;
    std::getline(fields, name, '\t');
    for (std::string* field : {&ignored, &ignored, &scan}) std::getline(fields, *field, '\t');
    if (!name.ends_with(".json")) continue;
    EXPECT_EQ(jsonDepthIsSafe(contents(corpusFile("json-jsontestsuite/" + name))), scan == "passes") << name;
  }
  EXPECT_EQ(compared, 319);
}

}  // namespace
}  // namespace tolva
