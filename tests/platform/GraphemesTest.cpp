// SPDX-License-Identifier: Apache-2.0
#include "platform/Graphemes.hpp"

#include <gtest/gtest.h>
#include <unicode/brkiter.h>

#include <memory>
#include <random>
#include <string>
#include <vector>

#include "platform/UTF8.hpp"

namespace tolva {
namespace {

using Clusters = std::vector<std::string>;

Clusters clustersOf(GraphemeCursor& cursor) {
  Clusters clusters;
  while (auto const cluster = cursor.next()) clusters.emplace_back(*cluster);
  return clusters;
}

Clusters clustersOf(std::string_view text) {
  GraphemeCursor cursor(text);
  return clustersOf(cursor);
}

struct ClusterCase {
  char const* says;
  Clusters clusters;  // of the text that they make together
};

ClusterCase const cases[] = {
    {"nothing", {}},
    {"ASCII", {"a", "b", " ", "\t"}},
    {"CR LF is one", {"a", "\r\n", "\r\n", "b"}},
    {"CR LF at the end", {"a", "\r\n"}},
    {"LF CR are two", {"\n", "\r", "a"}},
    {"CR at the end", {"\r", "\r"}},
    {"CR LF beside other scripts", {"\u00E9", "\r\n", "\u00E9", "\r", "\u00E9", "\n"}},
    {"letters with marks of their own", {"\u00E9", "a", "\u00FC", "\u00DF"}},
    {"a quote and a combining mark", {"\"\u0301", "a", "\""}},
    {"a letter and many marks", {"a\u0301\u0302\u0303", "b"}},
    {"a line end takes no mark", {"\n", "\u0301", "\r\n", "\u0301"}},
    {"a mark at the start", {"\u0301", "a"}},
    {"Chinese", {"\u6570", "\u636E", "\u5E93", "a"}},
    {"Hangul syllables from their parts", {"\u1112\u1161\u11AB", "\uAE00", "\u1100\u1161"}},
    {"a vowel sign", {"\u0915\u093F", "\u0937"}},
    {"a prepended mark", {"\u06001", "2"}},
    {"flags in pairs", {"\U0001F1E9\U0001F1EA", "\U0001F1EB\U0001F1F7", "\U0001F1E9", "a"}},
    {"a family", {"\U0001F468\u200D\U0001F469\u200D\U0001F467", "\U0001F468"}},
    {"a tone of skin and a variation", {"\U0001F44D\U0001F3FD", "\u2764\uFE0F", "!"}},
    {"a joiner between letters", {"a\u200D", "b"}},
    {"a zero width space", {"a", "\u200B", "b"}},
    {"bytes that are not UTF-8", {"\xFF", "a", "\x80", "\x80", "\xE2\x82", "z"}},
    {"a mark behind such a byte", {"\xFF\u0301", "a"}},
    {"a cut character at the end", {"a", "\u00E9", "\xF0\x9F\x98"}},
};

TEST(Graphemes, SplitsATextIntoWhatAPersonCallsCharacters) {
  for (ClusterCase const& expected : cases) {
    SCOPED_TRACE(expected.says);
    std::string text;
    for (std::string const& cluster : expected.clusters) text += cluster;
    EXPECT_EQ(clustersOf(text), expected.clusters);
    EXPECT_EQ(graphemeCount(text), expected.clusters.size());
  }
}

/// A text of ASCII, of characters with a part in the rules, of any others and of bytes that are not UTF-8.
std::string randomText(std::mt19937& random) {
  static char const* const parts[] = {
      "a",          "b",          " ",          "\"",         "\r",         "\n",         "\t",         "\x7F",
      "\u00AD",     "\u00E9",     "\u0301",     "\u0302",     "\u034F",     "\u0600",     "\u0903",     "\u0915",
      "\u094D",     "\u0E33",     "\u1100",     "\u1161",     "\u11A8",     "\uAC00",     "\uAC01",     "\u200B",
      "\u200C",     "\u200D",     "\u2028",     "\u231A",     "\u2764",     "\uFE0F",     "\uFEFF",     "\uFFFD",
      "\U0001F1E6", "\U0001F1E7", "\U0001F3FD", "\U0001F468", "\U0001F600", "\U000110BD", "\U000E0001", "\U000E0020",
      "\U000E0100", "\x80",       "\xC3",       "\xE2\x82",   "\xFF"};
  std::string text;
  for (auto length = random() % 10; length > 0; --length) {
    if (random() % 8 == 0) {
      icu::UnicodeString(static_cast<UChar32>(random() % 0x110000)).toUTF8String(text);
    } else {
      text += parts[random() % std::size(parts)];
    }
  }
  return text;
}

TEST(Graphemes, AgreesWithTheRulesOfICUOnRandomTexts) {
  UErrorCode status = U_ZERO_ERROR;
  std::unique_ptr<icu::BreakIterator> const rules(
      icu::BreakIterator::createCharacterInstance(icu::Locale::getRoot(), status));
  ASSERT_TRUE(U_SUCCESS(status));
  std::mt19937 random(20261115);
  GraphemeCursor cursor("");
  for (int round = 0; round < 50'000; ++round) {
    std::string const text = randomText(random);
    auto const repaired = icu::UnicodeString::fromUTF8(text);
    Clusters expected;
    rules->setText(repaired);
    for (std::int32_t begin = 0, end = rules->next(); end != icu::BreakIterator::DONE;
         begin = end, end = rules->next()) {
      repaired.tempSubStringBetween(begin, end).toUTF8String(expected.emplace_back());
    }
    cursor.reset(text);
    Clusters const clusters = clustersOf(cursor);
    Clusters found;
    std::string together;
    for (std::string const& cluster : clusters) {
      found.push_back(repairUTF8(cluster));
      together += cluster;
    }
    ASSERT_EQ(found, expected) << testing::PrintToString(text);
    ASSERT_EQ(together, text);
  }
}

TEST(Graphemes, FindsItsWayBackToTheRulesBehindALongPlainStretch) {
  std::string text;
  Clusters expected;
  for (std::size_t stretch : {0U, 1U, 10U, 100U, 1'000U, 5'000U, 100U, 3U}) {
    expected.insert(expected.end(), stretch, "a");
    expected.insert(expected.end(), stretch, "\u6570");
    expected.emplace_back("e\u0301");
    expected.emplace_back("\U0001F1E9\U0001F1EA");
    expected.emplace_back("\U0001F1EB\U0001F1F7");
  }
  for (std::string const& cluster : expected) text += cluster;
  EXPECT_EQ(clustersOf(text), expected);
}

TEST(Graphemes, BeginsAnewWithAnotherText) {
  std::string const one = "e\u0301e\u0301 and more";
  std::string const other = "\U0001F1E9\U0001F1EA\u0301!";
  GraphemeCursor cursor(one);
  EXPECT_EQ(cursor.next(), "e\u0301");
  cursor.reset(other);
  EXPECT_EQ(cursor.next(), "\U0001F1E9\U0001F1EA\u0301");
  EXPECT_EQ(cursor.next(), "!");
  EXPECT_EQ(cursor.next(), std::nullopt);
  EXPECT_EQ(cursor.next(), std::nullopt);
  cursor.reset(one);
  EXPECT_EQ(clustersOf(cursor), clustersOf(one));
}

TEST(Graphemes, CutsATextBehindTheFirstOnes) {
  std::string_view const text = "e\u0301\r\n\U0001F44D\U0001F3FDz";
  EXPECT_EQ(firstGraphemes(text, 0), "");
  EXPECT_EQ(firstGraphemes(text, 1), "e\u0301");
  EXPECT_EQ(firstGraphemes(text, 2), "e\u0301\r\n");
  EXPECT_EQ(firstGraphemes(text, 3), "e\u0301\r\n\U0001F44D\U0001F3FD");
  EXPECT_EQ(firstGraphemes(text, 4), text);
  EXPECT_EQ(firstGraphemes(text, 5), text);
  EXPECT_EQ(firstGraphemes("", 5), "");
  EXPECT_EQ(firstGraphemes(text, 2).data(), text.data());
}

}  // namespace
}  // namespace tolva
