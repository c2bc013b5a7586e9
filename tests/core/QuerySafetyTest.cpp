// SPDX-License-Identifier: Apache-2.0
#include "core/QuerySafety.hpp"

#include <gtest/gtest.h>
#include <unicode/regex.h>

#include <chrono>
#include <random>
#include <string>

#include "platform/Expression.hpp"
#include "support/Sanitizer.hpp"

namespace tolva {
namespace {

using namespace std::chrono_literals;

struct SafetyCase {
  char const* sql;
  bool asks;
};

SafetyCase const safetyCases[] = {
    {"", false},
    {"SELECT 1", false},
    {"INSERT INTO t VALUES (1)", false},
    {"CREATE TABLE t(a)", false},
    {"DROP TABLE t", true},
    {"alter table t rename to u", true},
    {"Delete from t", true},
    {"UPDATE t SET a = 1", true},
    {"REPLACE INTO t VALUES (1)", true},
    {"INSERT OR REPLACE INTO t VALUES (1)", true},
    {"SELECT replace(a, 'b', 'c') FROM t", true},
    {"SELECT 'DROP'", true},
    {"SELECT dropped, updates FROM t", false},
    {"SELECT 1 -- DROP", false},
    {"SELECT 1 -- x\nDROP TABLE t", true},
    {"SELECT 1 -- DROP\r DELETE", false},
    {"SELECT /* DROP */ 1", false},
    {"SELECT /* */ DROP /* */", true},
    {"SELECT 1 /* DROP", true},
    {"/*/ DROP */", false},
    {"/*/ DROP", true},
    {"/**/DROP", true},
    {"DR/**/OP", false},
    {"DELETE--", true},
    {"x/**/DROP", true},
    {"SELECT '--', 'DROP'", false},
    {"-- */ DROP\n/* DELETE */", false},
    {"/* -- */ UPDATE", true},
    {"/* a /* b */ UPDATE */", true},
};

TEST(QuerySafety, AsksBeforeWordsThatChangeOrDrop) {
  for (SafetyCase const& one : safetyCases) {
    SCOPED_TRACE(one.sql);
    EXPECT_EQ(QuerySafety::needsConfirmation(one.sql), one.asks);
  }
}

/// The test as two expressions, which take their time and their memory for a long text.
bool asksByExpressions(std::string const& sql) {
  UErrorCode status = U_ZERO_ERROR;
  icu::RegexMatcher comments(uR"(/\*[\s\S]*?\*/|--[^\n]*)", 0, status);
  icu::UnicodeString const text = icu::UnicodeString::fromUTF8(sql);
  comments.reset(text);
  std::string bare;
  comments.replaceAll(u" ", status).toUTF8String(bare);
  EXPECT_TRUE(U_SUCCESS(status));
  static Expression const words(R"(\b(DROP|ALTER|DELETE|UPDATE|REPLACE)\b)", {.caseInsensitive = true});
  return words.found(bare);
}

TEST(QuerySafety, AgreesWithTheExpressions) {
  constexpr std::array<std::string_view, 22> pieces{"DROP",   "delete", "Update", "REPLACE", "alter",  "/*", "*/", "--",
                                                    "\n",     "*",      "/",      "-",       " ",      "x",  "'",  "\r",
                                                    "\u00e9", "\u0301", "\xff",   ";",       "\u2028", "_"};
  std::mt19937 random(3);
  int asked = 0;
  for (int round = 0; round < 50'000; ++round) {
    std::string sql;
    for (auto piece = random() % 9; piece > 0; --piece) sql += pieces[random() % pieces.size()];
    bool const expected = asksByExpressions(sql);
    ASSERT_EQ(QuerySafety::needsConfirmation(sql), expected) << testing::PrintToString(sql);
    asked += expected;
  }
  EXPECT_GT(asked, 5'000);
  EXPECT_LT(asked, 45'000);
}

TEST(QuerySafety, TakesTimeInProportionToTheScript) {
  if (sanitized) GTEST_SKIP() << "An instrumented build takes several times the time.";
  std::size_t const size = std::size_t{16} << 20;
  std::string unending = "/*";
  while (unending.size() < size) unending += "/*/ -";
  std::string const texts[] = {"/*" + std::string(size, '*') + "/", "--" + std::string(size, '-'), unending,
                               "/*" + std::string(size, ' ') + "*/", std::string(size, '-')};
  for (std::string const& text : texts) {
    auto const began = std::chrono::steady_clock::now();
    EXPECT_FALSE(QuerySafety::needsConfirmation(text));
    EXPECT_LT(std::chrono::steady_clock::now() - began, 3s) << text.substr(0, 10);
  }
}

}  // namespace
}  // namespace tolva
