// SPDX-License-Identifier: Apache-2.0
#include "core/QueryScript.hpp"

#include <gtest/gtest.h>
#include <sqlite3.h>

#include <vector>

#include "support/Failure.hpp"

namespace tolva {
namespace {

using Pieces = std::vector<std::string>;

std::shared_ptr<SQLiteConnection> inMemory() {
  return SQLiteConnection::open({}, {.readOnly = false, .create = true, .inMemory = true});
}

/// The text of each statement; "!" behind the one that nothing but comments follows.
Pieces piecesOf(std::string_view sql) {
  auto const connection = inMemory();
  QueryScript script(sql);
  Pieces pieces;
  while (auto const statement = script.next(connection)) {
    pieces.push_back(sqlite3_sql(statement->handle()) + std::string(script.atEnd() ? "!" : ""));
  }
  return pieces;
}

struct ScriptCase {
  char const* says;
  std::string_view sql;
  Pieces pieces;
};

ScriptCase const scriptCases[] = {
    {"nothing", "", {}},
    {"white space", " \t\r\n\u00a0\u2028", {}},
    {"only comments", "-- a\n/* b */ -- c", {}},
    {"only semicolons", ";;;", {}},
    {"one statement", "SELECT 1", {"SELECT 1!"}},
    {"a semicolon behind it", "SELECT 1;", {"SELECT 1;!"}},
    {"Unicode white space around it", "\u00a0SELECT 1;\u00a0\u3000", {"SELECT 1;!"}},
    {"Unicode white space where SQLite would read a name", "SELECT 1\u00a0", {"SELECT 1!"}},
    {"a line comment behind it", "SELECT 1; -- done", {"SELECT 1;!"}},
    {"comments behind it", "SELECT 1; /* a */ -- b\n /**/ -- c\n", {"SELECT 1;!"}},
    {"a comment without an end behind it", "SELECT 1; /* a", {"SELECT 1;!"}},
    {"a comment that only seems to end", "SELECT 1; /*/", {"SELECT 1;!"}},
    {"a lone semicolon behind it counts", "SELECT 1;;", {"SELECT 1;"}},
    {"two statements", "SELECT 1; SELECT 2", {"SELECT 1;", "SELECT 2!"}},
    {"a comment between them", "SELECT 1; -- ;\nSELECT 2;", {"SELECT 1;", "-- ;\nSELECT 2;!"}},
    {"semicolons in a text, a name and a comment",
     "SELECT ';', 1 AS \"a;b\" /* ; */; SELECT 2",
     {"SELECT ';', 1 AS \"a;b\" /* ; */;", "SELECT 2!"}},
    {"no trigger ends within", "CREATE TABLE t(a); SELECT 1", {"CREATE TABLE t(a);", "SELECT 1!"}},
};

TEST(QueryScript, EndsAStatementWhereSQLiteDoes) {
  for (ScriptCase const& one : scriptCases) {
    SCOPED_TRACE(one.says);
    EXPECT_EQ(piecesOf(one.sql), one.pieces);
  }
}

TEST(QueryScript, CompilesAStatementOnlyWhenItIsAskedFor) {
  auto const connection = inMemory();
  QueryScript script(
      "CREATE TABLE t(a); CREATE TRIGGER r AFTER INSERT ON t BEGIN SELECT 1; SELECT 2; END; SELECT a FROM t");
  while (auto statement = script.next(connection)) statement->step();
  EXPECT_TRUE(script.atEnd());
  EXPECT_EQ(failureOf([&] { QueryScript("SELECT a FROM t").next(inMemory()); }), DatabaseError("no such table: t", 1));
}

TEST(QueryScript, RefusesANUL) {
  DatabaseError const refusal("The SQL contains a NUL character, where SQLite would stop reading. Remove it.", 1);
  for (std::string_view const sql : {std::string_view("SELECT 1\0", 9), std::string_view("\0", 1),
                                     std::string_view("DELETE FROM t \0 WHERE a = 1", 27)}) {
    EXPECT_EQ(failureOf([&] { QueryScript script(sql); }), refusal);
  }
}

TEST(QueryScript, TakesALongScriptApartInOnePass) {
  std::string sql;
  for (int statement = 0; statement < 100'000; ++statement) sql += "SELECT 1; /* a comment */\n";
  sql += "/*" + std::string(std::size_t{16} << 20, 'x');
  EXPECT_EQ(piecesOf(sql).size(), 100'000U);
}

}  // namespace
}  // namespace tolva
