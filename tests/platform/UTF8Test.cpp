// SPDX-License-Identifier: Apache-2.0
#include "platform/UTF8.hpp"

#include <gtest/gtest.h>
#include <unicode/unistr.h>

#include <random>
#include <sstream>
#include <string>

#include "support/Corpora.hpp"

namespace tolva {
namespace {

using namespace std::string_view_literals;

#define U_FFFD "\xEF\xBF\xBD"

struct TextCase {
  char const* says;
  std::string_view text;
  std::size_t valid;  // bytes before the first ill-formed sequence
  std::string_view repaired;
};

TextCase const texts[] = {
    {"nothing", "", 0, ""},
    {"ASCII", "plain", 5, "plain"},
    {"ASCII beyond one word", "seventeen letters", 17, "seventeen letters"},
    {"a NUL within", "a\0b"sv, 3, "a\0b"sv},
    {"each length of sequence", "\x7F\u0080\u07FF\u0800\uFFFF\U00010000\U0010FFFF", 19,
     "\x7F\u0080\u07FF\u0800\uFFFF\U00010000\U0010FFFF"},
    {"the characters beside the surrogates", "\uD7FF\uE000", 6, "\uD7FF\uE000"},
    {"noncharacters", "\uFDD0\uFFFE\U0001FFFF", 10, "\uFDD0\uFFFE\U0001FFFF"},
    {"a byte order mark stays", "\uFEFFa", 4, "\uFEFFa"},
    {"a stray continuation byte", "a\x80z", 1, "a" U_FFFD "z"},
    {"each stray continuation byte by itself", "\x80\xBF\x80", 0, U_FFFD U_FFFD U_FFFD},
    {"a continuation byte too many", "\u00E9\xA9", 2, "\u00E9" U_FFFD},
    {"bytes that begin nothing", "\xC0\xC1\xF5\xFF", 0, U_FFFD U_FFFD U_FFFD U_FFFD},
    {"an overlong slash of two bytes", "\xC0\xAF", 0, U_FFFD U_FFFD},
    {"an overlong slash of three", "\xE0\x80\xAF", 0, U_FFFD U_FFFD U_FFFD},
    {"an overlong slash of four", "\xF0\x80\x80\xAF", 0, U_FFFD U_FFFD U_FFFD U_FFFD},
    {"the last overlong form of three", "\xE0\x9F\xBF", 0, U_FFFD U_FFFD U_FFFD},
    {"the last overlong form of four", "\xF0\x8F\xBF\xBF", 0, U_FFFD U_FFFD U_FFFD U_FFFD},
    {"an overlong NUL", "\xC0\x80", 0, U_FFFD U_FFFD},
    {"the first surrogate", "\xED\xA0\x80", 0, U_FFFD U_FFFD U_FFFD},
    {"the last surrogate", "\xED\xBF\xBF", 0, U_FFFD U_FFFD U_FFFD},
    {"the character after the last one", "\xF4\x90\x80\x80", 0, U_FFFD U_FFFD U_FFFD U_FFFD},
    {"a first byte at the end", "ab\xC3", 2, "ab" U_FFFD},
    {"two of three bytes at the end", "ab\xE2\x82", 2, "ab" U_FFFD},
    {"three of four bytes at the end", "ab\xF0\x9F\x98", 2, "ab" U_FFFD},
    {"two of three bytes before ASCII", "\xE2\x82z", 0, U_FFFD "z"},
    {"three of four bytes before another sequence", "\xF0\x9F\x98\u00E9", 0, U_FFFD "\u00E9"},
    {"the standard's own example", "\x61\xF1\x80\x80\xE1\x80\xC2\x62\x80\x63\x80\xBF\x64", 1,
     "a" U_FFFD U_FFFD U_FFFD "b" U_FFFD "c" U_FFFD U_FFFD "d"},
    {"a fault behind a word of ASCII", "12345678\xFFz", 8, "12345678" U_FFFD "z"},
};

TEST(UTF8, FindsTheFirstFaultAndRepairsEach) {
  for (TextCase const& text : texts) {
    SCOPED_TRACE(text.says);
    EXPECT_EQ(validUTF8Prefix(text.text), text.valid);
    EXPECT_EQ(isValidUTF8(text.text), text.valid == text.text.size());
    EXPECT_EQ(repairUTF8(text.text), text.repaired);
    EXPECT_TRUE(isValidUTF8(text.repaired));
  }
}

TEST(UTF8, FindsAFaultAtEveryPlaceInAWord) {
  for (std::size_t size = 1; size <= 24; ++size) {
    for (std::size_t fault = 0; fault < size; ++fault) {
      std::string text(size, 'a');
      text[fault] = '\x80';
      EXPECT_EQ(validUTF8Prefix(text), fault) << size;
    }
  }
}

/// Bytes from which a random text is likely to come close to a valid one.
std::string randomText(std::mt19937& random) {
  static constexpr std::string_view bytes =
      "a\0\x7F\x80\x8F\x90\x9F\xA0\xBF\xC0\xC2\xDF\xE0\xE1\xED\xEF\xF0\xF1\xF4\xF5"sv;
  std::string text(random() % 12, ' ');
  for (char& byte : text) byte = random() % 4 == 0 ? '\xBF' : bytes[random() % bytes.size()];
  return text;
}

TEST(UTF8, AgreesWithICUOnRandomBytes) {
  std::mt19937 random(20261115);
  for (int round = 0; round < 300'000; ++round) {
    std::string const text = randomText(random);
    std::string expected;
    icu::UnicodeString::fromUTF8(text).toUTF8String(expected);
    ASSERT_EQ(repairUTF8(text), expected);
    ASSERT_EQ(isValidUTF8(text), text == expected);
  }
}

TEST(UTF8, RepairsACollectionOfBrokenTexts) {
  TOLVA_NEEDS_CORPORA();
  std::string const broken = contents(corpusFile("utf8/utf8tests.bin"));
  EXPECT_EQ(repairUTF8(broken), contents(corpusFile("utf8/utf8.replace.ref.txt")));

  int judged = 0;
  std::istringstream lines(broken);  // "6.0:invalid:" and bytes without a line feed
  for (std::string line; std::getline(lines, line); ++judged) {
    SCOPED_TRACE(line);
    bool const valid = line.find(":valid:") != std::string::npos;
    ASSERT_NE(valid, line.find(":invalid:") != std::string::npos);
    EXPECT_EQ(isValidUTF8(line), valid);
  }
  EXPECT_GT(judged, 100);
}

}  // namespace
}  // namespace tolva
