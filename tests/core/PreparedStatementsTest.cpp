// SPDX-License-Identifier: Apache-2.0
#include "core/PreparedStatements.hpp"

#include <gtest/gtest.h>
#include <sqlite3.h>

#include "support/Failure.hpp"
#include "support/HostileDatabases.hpp"
#include "support/ProcessorTime.hpp"
#include "support/RowsAsText.hpp"
#include "support/Sanitizer.hpp"

namespace tolva {
namespace {

using namespace std::chrono_literals;

using Names = std::vector<std::string>;
using Values = std::vector<SQLiteValue>;

class PreparedStatementsOfATable : public testing::Test {
 protected:
  std::string rows(std::string const& sql) { return rowsAsText(connection->handle(), sql); }

  std::string const table = "t";
  std::shared_ptr<SQLiteConnection> const connection =
      SQLiteConnection::open({}, {.readOnly = false, .inMemory = true});
};

TEST_F(PreparedStatementsOfATable, RunEachTextWithTheValuesOfTheMoment) {
  rows("CREATE TABLE t(a, b)");
  PreparedStatements statements(*connection, table);
  for (int value = 0; value < 3; ++value) {
    statements.run("INSERT INTO t VALUES (?, ?)", Names{"a", "b"}, Values{value, "x"});
    statements.run("UPDATE t SET b = ? WHERE a IS ?", Names{"a"}, Values{value * 2, value});
  }
  EXPECT_EQ(rows("SELECT * FROM t"), "0|0\n1|2\n2|4");
}

TEST_F(PreparedStatementsOfATable, ReturnToAShapeThatWasForgotten) {
  rows("CREATE TABLE t(a, b); INSERT INTO t VALUES (0, 0)");
  PreparedStatements statements(*connection, table);
  std::string const add = "UPDATE t SET b = b + 1 WHERE a IS ?";
  for (int shape = 0; shape < 200; ++shape) {
    statements.run("UPDATE t SET a = ? WHERE " + std::to_string(shape), Names{"a"}, Values{shape});
    statements.run(add, Names{"a"}, Values{shape});
  }
  EXPECT_EQ(rows("SELECT * FROM t"), "199|200");
}

TEST_F(PreparedStatementsOfATable, NameTheTextThatFails) {
  rows("CREATE TABLE t(a UNIQUE); INSERT INTO t VALUES (1)");
  PreparedStatements statements(*connection, table);
  auto const insert = [&](SQLiteValue const& value) {
    return failureOf([&] { statements.run("INSERT INTO t VALUES (?)", Names{"a"}, Values{value}); });
  };
  EXPECT_EQ(insert(1), DatabaseError("UNIQUE constraint failed: t.a [INSERT INTO t VALUES (?)]", 2067));
  EXPECT_EQ(insert(2).code, -1) << "the statement is used again after a failure";
  EXPECT_EQ(failureOf([&] { statements.run("DELETE FROM t WHERE \"b\" IS ?", Names{"b"}, Values{1}); }),
            DatabaseError("no such column: t.b [DELETE FROM t WHERE \"b\" IS ?]", SQLITE_ERROR));
}

TEST_F(PreparedStatementsOfATable, CheckAsManyColumnsAsATableCanHave) {
  std::string list = "c0";
  Names names{"c0"};
  for (int column = 1; column < 2000; ++column) {
    names.push_back("c" + std::to_string(column));
    list += "," + names.back();
  }
  rows("CREATE TABLE t(" + list + "); INSERT INTO t(c0) VALUES (1)");
  PreparedStatements statements(*connection, table);
  Names twice = names;
  twice.insert(twice.end(), names.begin(), names.end());
  statements.run("UPDATE t SET c1999 = ?", twice, Values{5});
  EXPECT_EQ(rows("SELECT c1999 FROM t"), "5");
  twice.back() = "gone";
  EXPECT_EQ(failureOf([&] { statements.run("UPDATE t SET c0 = ?", twice, Values{5}); }),
            DatabaseError("no such column: t.gone [UPDATE t SET c0 = ?]", SQLITE_ERROR));
}

/// A statement that is being prepared hears no cancel.
TEST_F(PreparedStatementsOfATable, AreNotHeldUpByATriggerThatDoubles) {
  rows("CREATE TABLE t(a); INSERT INTO t VALUES (1); CREATE TRIGGER u AFTER UPDATE ON t BEGIN " + doublingQuery() +
       "; END");
  PreparedStatements statements(*connection, table);
  auto const begun = processorTime();
  EXPECT_EQ(failureOf([&] { statements.run("UPDATE t SET a = ?", Names{"a"}, Values{5}); }),
            DatabaseError("out of memory [UPDATE t SET a = ?]", SQLITE_NOMEM));
  RecordProperty("milliseconds", static_cast<int>((processorTime() - begun) / 1ms));
  EXPECT_LE(processorTime() - begun, sanitized ? 60s : 10s);
  EXPECT_EQ(rows("SELECT a FROM t"), "1");
}

}  // namespace
}  // namespace tolva
