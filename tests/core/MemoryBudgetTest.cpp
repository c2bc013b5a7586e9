// SPDX-License-Identifier: Apache-2.0
#include "core/MemoryBudget.hpp"

#include <gtest/gtest.h>
#include <sqlite3.h>

#include <stop_token>
#include <thread>

#include "core/SQLiteConnection.hpp"
#include "core/SQLiteLibrary.hpp"
#include "core/SQLiteStatement.hpp"
#include "support/Failure.hpp"
#include "support/NoTask.hpp"

namespace tolva {
namespace {

std::shared_ptr<SQLiteConnection> inMemory() {
  return SQLiteConnection::open({}, {.readOnly = false, .inMemory = true});
}

/// A query whose preparation takes memory without end: each name stands for the one before, twice.
std::string doublingQuery(int doublings) {
  std::string sql = "WITH v0(x) AS (VALUES (1))";
  for (int n = 1; n <= doublings; ++n) {
    std::string const before = "v" + std::to_string(n - 1);
    sql += ", v" + std::to_string(n) + "(x) AS (SELECT a.x FROM " + before + " a, " + before + " b)";
  }
  return sql + " SELECT x FROM v" + std::to_string(doublings) + " LIMIT 1";
}

TEST(MemoryBudget, HoldsInAProgramThatPreparesTheLibraryFirst) { EXPECT_TRUE(SQLiteLibrary::enforcesMemoryBudgets()); }

TEST(MemoryBudget, EndsAPreparationThatTakesTooMuch) {
  auto const connection = inMemory();
  {
    MemoryBudget const budget(std::int64_t{16} << 20);
    EXPECT_EQ(failureOf([&] { connection->prepare(doublingQuery(17)); }), DatabaseError("out of memory", SQLITE_NOMEM));
  }
  EXPECT_TRUE(connection->prepare("SELECT 1").step()) << "the connection works after it";
}

TEST(MemoryBudget, EndsAPreparationThatTakesTooLong) {
  auto const connection = inMemory();
  MemoryBudget const budget(MemoryBudget::unlimited, uptime());
  DatabaseError const error = failureOf([&] { connection->prepare(doublingQuery(17)); });
  EXPECT_EQ(error, DatabaseError("interrupted", SQLITE_INTERRUPT));
  EXPECT_EQ(error.errorDescription(), "Cancelled");
  EXPECT_TRUE(MemoryBudget::ranOutOfTime());
}

TEST(MemoryBudget, TellsAStatementWithoutTimeToAllocateAsCancelled) {
  auto const connection = inMemory();
  SQLiteStatement statement = connection->prepare(
      "WITH RECURSIVE c(x) AS (SELECT 1 UNION ALL SELECT x + 1 FROM c LIMIT 5000) SELECT sum(length(hex(x))) FROM c");
  MemoryBudget const budget(MemoryBudget::unlimited, uptime());
  EXPECT_TRUE(failureOf([&] { statement.step(); }).isCancellation());
}

TEST(MemoryBudget, AsksTheClockAndTheTaskAtEveryLargeAllocation) {
  SQLiteLibrary::prepare();
  std::stop_source task;
  task.request_stop();
  {
    MemoryBudget late(MemoryBudget::unlimited, uptime());
    EXPECT_TRUE(late.admits(16'383));
    EXPECT_FALSE(late.admits(16'384));
    EXPECT_FALSE(late.admits(1)) << "a refusal is final";
    EXPECT_TRUE(MemoryBudget::ranOutOfTime());
  }
  {
    MemoryBudget cancelled(MemoryBudget::unlimited, Uptime::max(), task.get_token());
    EXPECT_TRUE(cancelled.admits(16'383));
    EXPECT_FALSE(cancelled.admits(16'384));
    EXPECT_TRUE(MemoryBudget::ranOutOfTime());
  }
  MemoryBudget timeless(MemoryBudget::unlimited);
  EXPECT_TRUE(timeless.admits(16'384));
}

TEST(MemoryBudget, AsksTheTaskNowAndThenAtSmallAllocations) {
  std::stop_source task;
  task.request_stop();
  MemoryBudget cancelled(MemoryBudget::unlimited, Uptime::max(), task.get_token());
  int admitted = 0;
  while (admitted < 10'000 && cancelled.admits(1)) ++admitted;
  EXPECT_EQ(admitted, 1023);
}

TEST(MemoryBudget, AdmitsExactlyItsBytes) {
  SQLiteLibrary::prepare();
  MemoryBudget budget(1000);
  EXPECT_TRUE(budget.admits(1000));
  budget.charge(999);
  EXPECT_TRUE(budget.admits(1));
  EXPECT_FALSE(budget.admits(2));
  EXPECT_FALSE(budget.admits(0)) << "a refusal is final";
}

TEST(MemoryBudget, CountsBackWhatIsFreed) {
  MemoryBudget budget(1000);
  budget.charge(1000);
  budget.charge(-400);
  EXPECT_TRUE(budget.admits(400));
}

TEST(MemoryBudget, GivesNoCreditForWhatWasAllocatedBeforeIt) {
  {
    MemoryBudget budget(1000);
    budget.charge(-5000);
    EXPECT_TRUE(budget.admits(1000));
    EXPECT_FALSE(budget.admits(1001));
  }
  MemoryBudget boundless(MemoryBudget::unlimited);
  boundless.charge(-1);
  EXPECT_TRUE(boundless.admits(MemoryBudget::unlimited));
}

TEST(MemoryBudget, IsChargedForWhatAnOperationKeeps) {
  EXPECT_TRUE(MemoryBudget::keep(MemoryBudget::unlimited)) << "no budget, no limit";
  MemoryBudget const budget(1000);
  EXPECT_TRUE(MemoryBudget::keep(600));
  EXPECT_TRUE(MemoryBudget::keep(400));
  EXPECT_FALSE(MemoryBudget::keep(1));
}

TEST(MemoryBudget, IsLiftedForAScope) {
  MemoryBudget const budget(0);
  {
    BudgetsLifted const lifted;
    EXPECT_TRUE(inMemory()->prepare("SELECT 1").step());
  }
  EXPECT_EQ(failureOf([] { inMemory(); }), DatabaseError("Unable to open database", SQLITE_NOMEM));
}

TEST(MemoryBudget, NeverKeepsATransactionFromRollingBack) {
  auto const connection = inMemory();
  connection->execute("CREATE TABLE t(a)");
  MemoryBudget const budget(std::int64_t{1} << 20);
  auto const tooMuch = [&] { connection->execute("INSERT INTO t VALUES (randomblob(2000000))"); };
  EXPECT_EQ(failureOf([&] { connection->transaction(tooMuch, noTask); }).code, SQLITE_NOMEM);
  EXPECT_TRUE(sqlite3_get_autocommit(connection->handle()));
}

TEST(MemoryBudget, ChargesTheBudgetsAroundItAsWell) {
  MemoryBudget outer(1000);
  outer.charge(600);
  {
    MemoryBudget inner(1000);
    EXPECT_EQ(MemoryBudget::armed(), &inner);
    EXPECT_TRUE(inner.admits(400));
    inner.charge(400);
    EXPECT_FALSE(inner.admits(1));
  }
  EXPECT_EQ(MemoryBudget::armed(), &outer);
  EXPECT_FALSE(outer.admits(0)) << "the outer one was spent too";
}

TEST(MemoryBudget, ArmsItsOwnThreadAlone) {
  MemoryBudget const budget(0);
  std::jthread([] {
    EXPECT_EQ(MemoryBudget::armed(), nullptr);
    EXPECT_TRUE(inMemory()->prepare("SELECT 1").step());
  }).join();
  EXPECT_EQ(failureOf([] { inMemory(); }).code, SQLITE_NOMEM);
}

TEST(MemoryBudget, LimitsWhatARunningStatementBuilds) {
  auto const connection = inMemory();
  MemoryBudget const budget(std::int64_t{1} << 20);
  EXPECT_EQ(failureOf([&] { connection->execute("SELECT length(randomblob(2000000))"); }).code, SQLITE_NOMEM);
}

}  // namespace
}  // namespace tolva
