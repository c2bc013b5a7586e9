// SPDX-License-Identifier: Apache-2.0
#include "core/SQLiteStatement.hpp"

#include <gtest/gtest.h>
#include <sqlite3.h>

#include "core/MemoryBudget.hpp"
#include "support/Failure.hpp"
#include "support/ValueText.hpp"

namespace tolva {
namespace {

std::shared_ptr<SQLiteConnection> inMemory() {
  return SQLiteConnection::open({}, {.readOnly = false, .inMemory = true});
}

struct RoundTripCase {
  char const* says;
  SQLiteValue bound;
  char const* type;
  SQLiteValue notFull;
};

RoundTripCase const roundTrips[] = {
    {"an integer", 7, "integer", 7},
    {"a real", 7.5, "real", 7.5},
    {"a whole real stays real", 7.0, "real", 7.0},
    {"a text", "Grüße", "text", "Grüße"},
    {"an empty text", "", "text", ""},
    {"a text with an embedded NUL", std::string("a\0b", 3), "text", std::string("a\0b", 3)},
    {"a blob is deferred", Bytes{1, 2, 0}, "blob", LargeBlob{3}},
    {"an empty blob stays a blob and is deferred", Bytes{}, "blob", LargeBlob{0}},
    {"null", Null{}, "null", Null{}},
    {"a text at the limit", std::string(65'536, 'x'), "text", std::string(65'536, 'x')},
    {"a text one byte beyond", std::string(65'537, 'x'), "text", LargeText{65'537}},
    {"bytes count, not characters", std::string(65'535, 'x') + "ä", "text", LargeText{65'537}},
};

TEST(SQLiteStatement, ReadsBackWhatItBound) {
  auto const connection = inMemory();
  for (RoundTripCase const& each : roundTrips) {
    SCOPED_TRACE(each.says);
    SQLiteStatement statement = connection->prepare("SELECT ?1, typeof(?1)", {each.bound});
    ASSERT_TRUE(statement.step());
    EXPECT_EQ(statement.value(0, /*full=*/true), each.bound);
    EXPECT_EQ(statement.value(1, /*full=*/true), SQLiteValue(each.type));
    EXPECT_EQ(statement.value(0, /*full=*/false), each.notFull);
    EXPECT_EQ(statement.row(/*full=*/true), (std::vector<SQLiteValue>{each.bound, each.type}));
    EXPECT_EQ(statement.row(/*full=*/false), (std::vector<SQLiteValue>{each.notFull, each.type}));
    EXPECT_FALSE(statement.step());
  }
}

TEST(SQLiteStatement, RepairsTextThatIsNotUTF8) {
  auto const connection = inMemory();
  SQLiteStatement statement = connection->prepare("SELECT CAST(x'61ff62c3' AS TEXT)");
  ASSERT_TRUE(statement.step());
  EXPECT_EQ(statement.value(0, /*full=*/true), SQLiteValue("a\uFFFDb\uFFFD"));
}

TEST(SQLiteStatement, CountsTheBytesOfUTF8InADatabaseOfUTF16) {
  auto const connection = inMemory();
  connection->execute("PRAGMA encoding = 'UTF-16'");
  connection->execute("CREATE TABLE t(a)");
  connection->execute("INSERT INTO t VALUES (?), (?)", {std::string(65'536, 'x'), std::string(65'537, 'x')});
  SQLiteStatement statement = connection->prepare("SELECT a FROM t");
  ASSERT_TRUE(statement.step());
  EXPECT_EQ(statement.value(0, /*full=*/false), SQLiteValue(std::string(65'536, 'x')));
  ASSERT_TRUE(statement.step());
  EXPECT_EQ(statement.value(0, /*full=*/false), SQLiteValue(LargeText{65'537}));
}

TEST(SQLiteStatement, DoesNotReadAnEmptyTextWhereMemoryRanOut) {
  auto const connection = inMemory();
  connection->execute("PRAGMA encoding = 'UTF-16'");
  connection->execute("CREATE TABLE t(a)");
  connection->execute("INSERT INTO t VALUES (?)", {std::string(1 << 20, 'x')});
  SQLiteStatement statement = connection->prepare("SELECT a FROM t");
  ASSERT_TRUE(statement.step());
  MemoryBudget const budget(1000);
  EXPECT_EQ(failureOf([&] { statement.value(0, /*full=*/true); }), DatabaseError("out of memory", SQLITE_NOMEM));
}

TEST(SQLiteStatement, WantsAsManyValuesAsParameters) {
  auto const connection = inMemory();
  DatabaseError const wrongCount("Incorrect parameter count", 1);
  EXPECT_EQ(failureOf([&] { connection->prepare("SELECT ?, ?, ?", {1, 2}); }), wrongCount);
  EXPECT_EQ(failureOf([&] { connection->prepare("SELECT ?", {1, 2}); }), wrongCount);
  EXPECT_EQ(failureOf([&] { connection->prepare("SELECT ?"); }), wrongCount);
  EXPECT_TRUE(connection->prepare("SELECT 1").step());
}

TEST(SQLiteStatement, BindsNothingWhenTheCountIsWrong) {
  auto const connection = inMemory();
  SQLiteStatement statement(connection, "SELECT ?, ?");
  SQLiteValue const one[] = {1};
  EXPECT_EQ(failureOf([&] { statement.bind(one); }).detail, "Incorrect parameter count");
  ASSERT_TRUE(statement.step());
  EXPECT_EQ(statement.row(/*full=*/true), (std::vector<SQLiteValue>{Null{}, Null{}}));
}

TEST(SQLiteStatement, NeverBindsADeferredValue) {
  auto const connection = inMemory();
  for (SQLiteValue const& marker : {SQLiteValue::largeText(5), SQLiteValue::largeBlob(5)}) {
    EXPECT_EQ(failureOf([&] { connection->prepare("SELECT ?", {marker}); }),
              DatabaseError("Open the full value before editing it.", 1));
  }
}

TEST(SQLiteStatement, KeepsEarlierBindingsWhenAValueIsRefused) {
  auto const connection = inMemory();
  SQLiteStatement statement(connection, "SELECT ?, ?");
  SQLiteValue const values[] = {1, LargeText{70'000}};
  EXPECT_EQ(failureOf([&] { statement.bind(values); }).detail, "Open the full value before editing it.");
  ASSERT_TRUE(statement.step());
  EXPECT_EQ(statement.row(/*full=*/true), (std::vector<SQLiteValue>{1, Null{}}));
}

TEST(SQLiteStatement, FailsABindThatSQLiteRefuses) {
  auto const connection = inMemory();
  sqlite3_limit(connection->handle(), SQLITE_LIMIT_LENGTH, 10);
  EXPECT_EQ(failureOf([&] { connection->prepare("SELECT ?", {"eleven byte"}); }),
            DatabaseError("string or blob too big", SQLITE_TOOBIG));
}

TEST(SQLiteStatement, NamesItsColumnsInOrder) {
  auto const connection = inMemory();
  SQLiteStatement statement = connection->prepare("SELECT 1 AS b, 2 AS \"a b\", 3 AS b");
  EXPECT_EQ(statement.columnCount(), 3);
  EXPECT_EQ(statement.names(), (std::vector<std::string>{"b", "a b", "b"}));
}

TEST(SQLiteStatement, AdoptsAPreparedHandle) {
  auto const connection = inMemory();
  sqlite3_stmt* handle = nullptr;
  ASSERT_EQ(sqlite3_prepare_v2(connection->handle(), "SELECT 5", -1, &handle, nullptr), SQLITE_OK);
  SQLiteStatement statement(connection, handle);
  ASSERT_TRUE(statement.step());
  EXPECT_EQ(statement.value(0, /*full=*/true), SQLiteValue(5));
}

TEST(SQLiteStatement, FailsAStepWithSQLitesMessageAndCode) {
  auto const connection = inMemory();
  SQLiteStatement statement = connection->prepare("SELECT abs(-9223372036854775808)");
  EXPECT_EQ(failureOf([&] { statement.step(); }), DatabaseError("integer overflow", SQLITE_ERROR));
}

TEST(SQLiteStatement, ReadsAColumnThatIsNotThereAsNull) {
  auto const connection = inMemory();
  SQLiteStatement statement = connection->prepare("SELECT 1");
  ASSERT_TRUE(statement.step());
  EXPECT_EQ(statement.value(1, /*full=*/true), SQLiteValue());
}

}  // namespace
}  // namespace tolva
