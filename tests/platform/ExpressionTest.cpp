// SPDX-License-Identifier: Apache-2.0
#include "platform/Expression.hpp"

#include <gtest/gtest.h>

#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

namespace tolva {
namespace {

using namespace std::string_view_literals;

struct SearchCase {
  char const* says;
  std::string_view pattern;
  std::string_view text;
  bool found;
  bool caseInsensitive = false;
};

constexpr std::string_view id = "^[a-z][a-z0-9-]{0,79}$";
constexpr std::string_view identifier = "^[a-z][a-z0-9-]*(\\.[a-z][a-z0-9-]*)+$";
constexpr std::string_view drop = "\\b(DROP|ALTER)\\b";

SearchCase const searches[] = {
    {"anywhere in the text", "b+", "abbc", true},
    {"nowhere", "x", "abc", false},
    {"in an empty text", "^$", "", true},
    {"nothing in an empty text", "a", "", false},
    {"an id", id, "row-count-2", true},
    {"an id that begins with a digit", id, "2rows", false},
    {"an id in upper case", id, "Rows", false},
    {"an empty id", id, "", false},
    {"an id and a line feed", id, "rows\n", true},
    {"an id and two line feeds", id, "rows\n\n", false},
    {"an id and CR LF", id, "rows\r\n", true},
    {"an id and CR", id, "rows\r", true},
    {"an id and LF CR", id, "rows\n\r", false},
    {"an id and two times CR LF", id, "rows\r\n\r\n", false},
    {"an id and a vertical tab", id, "rows\v", true},
    {"an id and a form feed", id, "rows\f", true},
    {"an id and a line separator", id, "rows\u2028", true},
    {"an id and two line separators", id, "rows\u2028\u2028", false},
    {"an id and a paragraph separator", id, "rows\u2029", true},
    {"an id and next line", id, "rows\u0085", true},
    {"an id and a blank", id, "rows ", false},
    {"a line feed before the id", id, "\nrows", false},
    {"a line feed within the id", id, "rows\ncount", false},
    {"a NUL within", id, "rows\0"sv, false},
    {"a NUL is a character", "^a.b$", "a\0b"sv, true},
    {"what stands behind a NUL", "b$", "a\0b"sv, true},
    {"a name of two parts", identifier, "org.example-2", true},
    {"a name of one part", identifier, "org", false},
    {"a word", drop, "x; DROP TABLE t", true},
    {"a part of a word", drop, "DROPPED", false},
    {"a part of a word with an underscore", drop, "DROP_ALL", false},
    {"a word beside a letter with marks", drop, "\u00C4DROP", false},
    {"another case", drop, "drop", false},
    {"another case when it is ignored", drop, "drop", true, true},
    {"folding beyond ASCII", "^sk$", "\u017F\u212A", true, true},
    {"digits of all scripts", "^\\d$", "\u0663", true},
    {"digits of ASCII alone", "^[0-9]$", "\u0663", false},
    {"one character beyond 16 bits", "^.$", "\U0001F600", true},
    {"a byte that is not UTF-8 is one character", "^a.b$",
     "a\xFF"
     "b",
     true},
    {"and it is U+FFFD", "^\\x{FFFD}$", "\xE2\x82", true},
};

TEST(Expression, SearchesTheText) {
  for (SearchCase const& search : searches) {
    SCOPED_TRACE(search.says);
    Expression const expression(search.pattern, {.caseInsensitive = search.caseInsensitive});
    EXPECT_EQ(expression.found(search.text), search.found);
  }
}

TEST(Expression, CountsCharactersUpToTheBoundOfAnId) {
  Expression const expression(id);
  EXPECT_TRUE(expression.found(std::string(80, 'a')));
  EXPECT_FALSE(expression.found(std::string(81, 'a')));
}

TEST(Expression, RefusesWhatIsNoExpression) {
  for (std::string_view const pattern : {"("sv, "[a"sv, "a{2,1}"sv, "*"sv, "\\"sv, "\xFF"sv}) {
    EXPECT_THROW(Expression{pattern}, std::invalid_argument) << pattern;
  }
}

TEST(Expression, GivesNoAnswerToATextThatWouldHoldItUp) {
  EXPECT_THROW(Expression("(a+)+b").found(std::string(40, 'a')), std::runtime_error);
  EXPECT_THROW(Expression("(x*)*y").found(std::string(30'000, 'x')), std::runtime_error);
}

TEST(Expression, GivesNoAnswerToATextThatWouldTakeTooMuchMemory) {
  std::string deep = "a";
  for (int part = 0; part < 500'000; ++part) deep += ".a";
  EXPECT_THROW(Expression(identifier).found(deep), std::runtime_error);
}

TEST(Expression, AnswersForLongTexts) {
  std::string parts = "a";
  while (parts.size() < 128 * 1024) parts += ".a";
  EXPECT_TRUE(Expression(identifier).found(parts));
  EXPECT_FALSE(Expression(identifier).found(parts + "!"));
  EXPECT_FALSE(Expression("^-?(0|[1-9][0-9]*)\\.[0-9]+$").found(std::string(12'000'000, '1')));
  EXPECT_TRUE(Expression("/\\*[\\s\\S]*?\\*/").found("/*" + std::string(1'000'000, 'x') + "*/"));
}

TEST(Expression, IsSharedByThreads) {
  Expression const expression(id);
  std::vector<std::jthread> threads;
  for (int thread = 0; thread < 4; ++thread) {
    threads.emplace_back([copy = expression, &expression] {
      for (int round = 0; round < 500; ++round) {
        EXPECT_TRUE(expression.found("rows"));
        EXPECT_FALSE(copy.found("Rows"));
      }
    });
  }
}

}  // namespace
}  // namespace tolva
