// SPDX-License-Identifier: Apache-2.0
#include "transfer/StatementText.hpp"

#include <gtest/gtest.h>

#include <optional>
#include <string>
#include <string_view>

namespace tolva {
namespace {

using namespace std::string_literals;

TEST(StatementText, EndsWhereNothingElseWouldRun) {
  struct TextCase {
    std::string sql;
    std::optional<std::string_view> end;
  };
  TextCase const texts[] = {
      {"CREATE TABLE t(a)", ";"},
      {"CREATE TABLE \"a;\"\"b\"([c;d], `e;f` TEXT DEFAULT 'g;''h') -- i;\n", ";"},
      {"CREATE TABLE t(a /* b; 'c */, d -- e; \"f\n)", ";"},
      {"CREATE TABLE t(a$b(1), x'00', c DEFAULT 1.5e+3 CHECK (c <> :d))", ";"},
      {"CREATE VIRTUAL TABLE t USING m(a, tokenize = \"x 'y'\")", ";"},
      {"CREATE TABLE t(a);", ";"},
      {"CREATE TABLE t(a); ; -- b\n/* c */\t", ";"},
      {"CREATE TABLE t(a); DROP TABLE users", std::nullopt},
      {"CREATE TABLE t(a);/**/DROP TABLE users", std::nullopt},
      {"CREATE TABLE t(a)/*/;*/;DROP TABLE users", std::nullopt},
      {"CREATE TABLE t(a -- ;\n); DROP TABLE users", std::nullopt},
      {"CREATE TABLE t(a) STRICT -- would swallow what follows", "\n;"},
      {"CREATE TABLE t(a) STRICT /* would swallow what follows *", "*/;"},
      {"CREATE TABLE t(a) STRICT /*/", "*/;"},
      {"CREATE TABLE t(a); DROP TABLE users -- b", std::nullopt},
      {"CREATE TABLE t(a); -- b", "\n;"},
      {"CREATE TABLE t(a DEFAULT 'b)", std::nullopt},
      {"CREATE TABLE t([a)", std::nullopt},
      {"CREATE TABLE t(a)\0; DROP TABLE users"s, std::nullopt},
      {"CREATE VIRTUAL TABLE t USING m($a('),b); DROP TABLE users; --')", std::nullopt},
      {"CREATE VIRTUAL TABLE t USING m($a::b('),c); DROP TABLE users; --')", std::nullopt},
  };
  for (TextCase const& text : texts) EXPECT_EQ(statementEnd(text.sql), text.end) << text.sql;
}

}  // namespace
}  // namespace tolva
