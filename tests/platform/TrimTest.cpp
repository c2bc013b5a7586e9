// SPDX-License-Identifier: Apache-2.0
#include "platform/Trim.hpp"

#include <gtest/gtest.h>
#include <unicode/uchar.h>
#include <unicode/unistr.h>

#include <string>

namespace tolva {
namespace {

using namespace std::string_view_literals;

struct TrimCase {
  char const* says;
  std::string_view text;
  std::string_view trimmed;
};

TrimCase const cases[] = {
    {"nothing", "", ""},
    {"nothing to trim", "a", "a"},
    {"white space alone", " \t\r\n", ""},
    {"both ends", "  a b \n", "a b"},
    {"every white space of ASCII", "\t\n\v\f\r a \r\f\v\n\t", "a"},
    {"next line, line and paragraph separators", "\u0085\u2028a\u2029\u0085", "a"},
    {"no-break, figure and narrow blanks", "\u00A0\u2007a\u202F", "a"},
    {"the ideographic blank", "\u3000\u6F22\u3000", "\u6F22"},
    {"what has no width is no white space", "\u200Ba\uFEFF", "\u200Ba\uFEFF"},
    {"NUL is no white space", "\0 a \0"sv, "\0 a \0"sv},
    {"a character whose last byte looks like a no-break space", " \u00E0 ", "\u00E0"},
    {"a character that ends in the byte of next line", "\u0105", "\u0105"},
    {"bytes that are not UTF-8 stop it", " \xFF a \x80 ", "\xFF a \x80"},
    {"a cut character stops it", "\xE2\x80", "\xE2\x80"},
    {"a cut white space stops it at either end", "\xE3\x80 a \xE3\x80", "\xE3\x80 a \xE3\x80"},
    {"a continuation byte too many stops it", "a\u3000\x80", "a\u3000\x80"},
    {"five continuation bytes stop it", " \x80\x80\x80\x80\x80 ", "\x80\x80\x80\x80\x80"},
    {"an overlong blank stops it", "\xC0\xA0", "\xC0\xA0"},
};

TEST(Trim, TakesWhiteSpaceFromBothEnds) {
  for (TrimCase const& text : cases) {
    SCOPED_TRACE(text.says);
    EXPECT_EQ(trimmed(text.text), text.trimmed);
  }
}

TEST(Trim, KnowsAllWhiteSpaceOfUnicode) {
  int spaces = 0;
  for (UChar32 character = 0; character <= UCHAR_MAX_VALUE; ++character) {
    if (!u_isdefined(character) || u_charType(character) == U_SURROGATE) continue;
    std::string text;
    icu::UnicodeString(character).toUTF8String(text);
    bool const isSpace = u_isUWhiteSpace(character);
    ASSERT_EQ(trimmed(text + "a" + text), isSpace ? "a" : text + "a" + text) << character;
    spaces += isSpace;
  }
  EXPECT_EQ(spaces, 25);
}

TEST(Trim, ReturnsAPartOfTheText) {
  std::string_view const text = "  ab ";
  EXPECT_EQ(trimmed(text).data(), text.data() + 2);
}

}  // namespace
}  // namespace tolva
