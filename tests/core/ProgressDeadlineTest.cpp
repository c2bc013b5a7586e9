// SPDX-License-Identifier: Apache-2.0
#include "core/ProgressDeadline.hpp"

#include <gtest/gtest.h>
#include <sqlite3.h>

#include <chrono>
#include <memory>
#include <stop_token>
#include <string>
#include <thread>

#include "core/SQLiteConnection.hpp"
#include "core/SQLiteStatement.hpp"
#include "support/CountedCalls.hpp"
#include "support/Failure.hpp"
#include "support/NoTask.hpp"

namespace tolva {
namespace {

using namespace std::chrono_literals;

constexpr char const* endless =
    "WITH RECURSIVE c(x) AS (SELECT 1 UNION ALL SELECT x + 1 FROM c) SELECT count(*) FROM c WHERE x < 0";
constexpr char const* twoMillionRows =
    "WITH RECURSIVE c(x) AS (SELECT 1 UNION ALL SELECT x + 1 FROM c LIMIT 2000000) SELECT count(*) FROM c";

std::shared_ptr<SQLiteConnection> inMemory() {
  return SQLiteConnection::open({}, {.readOnly = false, .inMemory = true});
}

TEST(ProgressDeadline, IsOverAtTheMomentOrBehindItAsAsked) {
  Uptime const deadline = uptime();
  struct MomentCase {
    std::chrono::nanoseconds after;
    bool passed;
    bool reached;
  };
  for (MomentCase const& each : {MomentCase{-1ns, false, false}, {0ns, false, true}, {1ns, true, true}}) {
    SCOPED_TRACE(each.after.count());
    EXPECT_EQ(isOver(deadline, deadline + each.after, DeadlineTest::passed), each.passed);
    EXPECT_EQ(isOver(deadline, deadline + each.after, DeadlineTest::reached), each.reached);
  }
}

TEST(ProgressDeadline, StopsAStatementThatRunsOverIt) {
  for (DeadlineTest const test : {DeadlineTest::passed, DeadlineTest::reached}) {
    auto const connection = inMemory();
    Uptime const begun = uptime();
    ProgressDeadline const budget(connection->handle(), begun + 50ms, /*period=*/1000, test, noTask);
    EXPECT_TRUE(failureOf([&] { connection->prepare(endless).step(); }).isCancellation());
    EXPECT_GE(uptime() - begun, 50ms);
    EXPECT_LT(uptime() - begun, 2s);
  }
}

/// One row of a hundred calls, each of which takes a value of 16 KiB that is made for it.
std::string hundredCalls() {
  std::string sql = "SELECT counted(hex(zeroblob(n)))";
  for (int call = 1; call < 100; ++call) sql += ", counted(hex(zeroblob(n + " + std::to_string(call) + ")))";
  return sql + " FROM t";
}

std::shared_ptr<SQLiteConnection> withOneRow() {
  auto connection = inMemory();
  connection->execute("CREATE TABLE t(n)");
  connection->execute("INSERT INTO t VALUES (8192)");
  return connection;
}

TEST(ProgressDeadline, EndsTheCallsOfOneRow) {
  auto const connection = withOneRow();
  Uptime const deadline = uptime() + 300ms;
  CountedCalls counted(connection->handle(), [&] { std::this_thread::sleep_until(deadline); });
  ProgressDeadline const budget(connection->handle(), deadline, 1000, DeadlineTest::reached, noTask);
  SQLiteStatement row = connection->prepare(hundredCalls());
  EXPECT_EQ(failureOf([&] { row.step(); }), DatabaseError("interrupted", SQLITE_INTERRUPT));
  EXPECT_LE(counted.calls(), 3);
}

TEST(ProgressDeadline, EndsTheCallsOfOneRowForACancelledTask) {
  auto const connection = withOneRow();
  std::stop_source task;
  CountedCalls counted(connection->handle(), [&] { task.request_stop(); });
  {
    ProgressDeadline const budget(connection->handle(), Uptime::max(), 1000, DeadlineTest::reached, task.get_token());
    SQLiteStatement row = connection->prepare(hundredCalls());
    EXPECT_EQ(failureOf([&] { row.step(); }), DatabaseError("interrupted", SQLITE_INTERRUPT));
    EXPECT_EQ(counted.calls(), 3);
  }
  EXPECT_TRUE(connection->prepare(hundredCalls()).step()) << "the connection works after it";
  EXPECT_EQ(counted.calls(), 103);
}

TEST(ProgressDeadline, LetsAStatementRunThatHasTime) {
  auto const connection = inMemory();
  ProgressDeadline const budget(connection->handle(), uptime() + 60s, 1000, DeadlineTest::reached, noTask);
  EXPECT_TRUE(connection->prepare(twoMillionRows).step());
}

TEST(ProgressDeadline, IsRemovedWithItsScope) {
  auto const connection = inMemory();
  {
    ProgressDeadline const budget(connection->handle(), uptime() - 1s, 1, DeadlineTest::reached, noTask);
    EXPECT_TRUE(failureOf([&] { connection->prepare(twoMillionRows).step(); }).isCancellation());
  }
  EXPECT_TRUE(connection->prepare(twoMillionRows).step());
}

TEST(ProgressDeadline, MayBeTheEndOfTime) {
  auto const connection = inMemory();
  ProgressDeadline const budget(connection->handle(), Uptime::max(), 1, DeadlineTest::passed, noTask);
  EXPECT_TRUE(connection->prepare(twoMillionRows).step());
}

TEST(ProgressDeadline, StopsAStatementOfACancelledTask) {
  auto const connection = inMemory();
  std::stop_source task;
  ProgressDeadline const budget(connection->handle(), uptime() + 60s, 1000, DeadlineTest::reached, task.get_token());
  std::jthread canceller([&] {
    std::this_thread::sleep_for(20ms);
    task.request_stop();
  });
  EXPECT_TRUE(failureOf([&] { connection->prepare(endless).step(); }).isCancellation());
}

}  // namespace
}  // namespace tolva
