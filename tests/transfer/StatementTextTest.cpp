// SPDX-License-Identifier: Apache-2.0
#include "transfer/StatementText.hpp"

#include <gtest/gtest.h>

#include <string>

namespace tolva {
namespace {

using namespace std::string_literals;

TEST(StatementText, IsOneStatementWhereNothingElseWouldRun) {
  struct TextCase {
    std::string sql;
    bool isOne;
  };
  TextCase const texts[] = {
      {"CREATE TABLE t(a)", true},
      {"CREATE TABLE \"a;\"\"b\"([c;d], `e;f` TEXT DEFAULT 'g;''h') -- i;\n", true},
      {"CREATE TABLE t(a /* b; 'c */, d -- e; \"f\n)", true},
      {"CREATE TABLE t(a$b(1), x'00', c DEFAULT 1.5e+3 CHECK (c <> :d))", true},
      {"CREATE VIRTUAL TABLE t USING m(a, tokenize = \"x 'y'\")", true},
      {"CREATE TABLE t(a);", true},
      {"CREATE TABLE t(a); ; -- b\n/* c */\t", true},
      {"CREATE TABLE t(a); DROP TABLE users", false},
      {"CREATE TABLE t(a);/**/DROP TABLE users", false},
      {"CREATE TABLE t(a)/*/;*/;DROP TABLE users", false},
      {"CREATE TABLE t(a -- ;\n); DROP TABLE users", false},
      {"CREATE TABLE t(a) -- swallows what follows", false},
      {"CREATE TABLE t(a) /* swallows what follows", false},
      {"CREATE TABLE t(a) /*/", false},
      {"CREATE TABLE t(a DEFAULT 'b)", false},
      {"CREATE TABLE t([a)", false},
      {"CREATE TABLE t(a)\0; DROP TABLE users"s, false},
      {"CREATE VIRTUAL TABLE t USING m($a('),b); DROP TABLE users; --')", false},
      {"CREATE VIRTUAL TABLE t USING m($a::b('),c); DROP TABLE users; --')", false},
  };
  for (TextCase const& text : texts) EXPECT_EQ(isOneStatement(text.sql), text.isOne) << text.sql;
}

}  // namespace
}  // namespace tolva
