// SPDX-License-Identifier: Apache-2.0
#include "platform/WordSearch.hpp"

#include <gtest/gtest.h>

#include <array>
#include <chrono>
#include <random>
#include <string>

#include "platform/Expression.hpp"
#include "support/Sanitizer.hpp"

namespace tolva {
namespace {

using namespace std::chrono_literals;

constexpr std::array<std::string_view, 2> words{"DROP", "ALTER"};

struct WordCase {
  char const* says;
  std::string_view text;
  bool found;
};

WordCase const wordCases[] = {
    {"nothing", "", false},
    {"the word alone", "DROP", true},
    {"the other", "x;ALTER TABLE", true},
    {"lower case", "drop table t", true},
    {"mixed case", "(aLtEr)", true},
    {"the front of a longer word", "DROPS", false},
    {"the end of a longer word", "AIRDROP", false},
    {"a digit behind", "DROP2", false},
    {"an underscore before", "_DROP", false},
    {"cut at the end", "DRO", false},
    {"a second chance", "DROPDROP DROP", true},
    {"a letter beyond ASCII before", "\u00e9DROP", false},
    {"a letter beyond ASCII behind", "DROP\u00e9", false},
    {"a no-break space", "\u00a0DROP\u00a0", true},
    {"a mark behind", "DROP\u0301", false},
    {"a mark before, on nothing", "\u0301DROP", true},
    {"a mark before, on a letter", "e\u0301DROP", false},
    {"a mark before, on a blank", " \u0301DROP", true},
    {"a zero-width space behind, a format character", "DROP\u200b", false},
    {"a zero-width space before", "x\u200bDROP", false},
    {"a byte that is no character before",
     "\xff"
     "DROP",
     true},
    {"a byte that is no character behind", "DROP\xff", true},
    {"a cut character before",
     "\xe4\xb8"
     "DROP",
     true},
    {"a full-width word", "\uff24\uff32\uff2f\uff30", false},
    {"a NUL before", std::string_view("\0DROP", 5), true},
};

TEST(WordSearch, FindsWordsOfTheirOwn) {
  Expression const expression("\\b(DROP|ALTER)\\b", {.caseInsensitive = true});
  for (WordCase const& one : wordCases) {
    SCOPED_TRACE(one.says);
    EXPECT_EQ(containsWord(one.text, words), one.found);
    EXPECT_EQ(expression.found(one.text), one.found);
  }
}

TEST(WordSearch, AgreesWithTheExpressionOnRandomText) {
  Expression const expression("\\b(DROP|ALTER)\\b", {.caseInsensitive = true});
  constexpr std::array<std::string_view, 24> pieces{"DROP",   "drop",   "Alter",    "ALTER",      "DRO",    "P",
                                                    " ",      "_",      "7",        "-",          "\n",     "e",
                                                    "\u0301", "\u200d", "\u200b",   "\u00e9",     "\u00a0", "\u00ad",
                                                    "\u4e2d", "\xff",   "\xe2\x80", "\U0001F600", "\u017f", "\u0663"};
  std::mt19937 random(7);
  int found = 0;
  for (int round = 0; round < 50'000; ++round) {
    std::string text;
    for (auto piece = random() % 6; piece > 0; --piece) text += pieces[random() % pieces.size()];
    bool const expected = expression.found(text);
    ASSERT_EQ(containsWord(text, words), expected) << testing::PrintToString(text);
    found += expected;
  }
  EXPECT_GT(found, 1'000);
}

TEST(WordSearch, KnowsEveryCharacterAsTheExpressionDoes) {
  Expression const expression("\\b(DROP|ALTER)\\b", {.caseInsensitive = true});
  for (unsigned code = 1; code < 0x30000; code += code < 0x3000 ? 1 : 7) {
    if (code >= 0xD800 && code < 0xE000) continue;
    std::string character;
    if (code < 0x80) {
      character = {static_cast<char>(code)};
    } else if (code < 0x800) {
      character = {static_cast<char>(0xC0 | code >> 6), static_cast<char>(0x80 | (code & 0x3F))};
    } else if (code < 0x10000) {
      character = {static_cast<char>(0xE0 | code >> 12), static_cast<char>(0x80 | (code >> 6 & 0x3F)),
                   static_cast<char>(0x80 | (code & 0x3F))};
    } else {
      character = {static_cast<char>(0xF0 | code >> 18), static_cast<char>(0x80 | (code >> 12 & 0x3F)),
                   static_cast<char>(0x80 | (code >> 6 & 0x3F)), static_cast<char>(0x80 | (code & 0x3F))};
    }
    for (std::string const& text : {character + "drop", "drop" + character, "x" + character + "drop"}) {
      ASSERT_EQ(containsWord(text, words), expression.found(text)) << std::hex << code;
    }
  }
}

TEST(WordSearch, TakesMillisecondsForManyMegabytes) {
  if (sanitized) GTEST_SKIP() << "An instrumented build takes several times the time.";
  std::string text;
  while (text.size() < 16'000'000) text += "/* xDROP ALTERx \u0301\u0301DRO";
  auto const began = std::chrono::steady_clock::now();
  EXPECT_FALSE(containsWord(text, words));
  EXPECT_LT(std::chrono::steady_clock::now() - began, 3s);
}

}  // namespace
}  // namespace tolva
