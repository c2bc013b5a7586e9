// SPDX-License-Identifier: Apache-2.0
#include "core/CancellationHandle.hpp"

#include <gtest/gtest.h>
#include <sqlite3.h>

#include <atomic>
#include <thread>
#include <vector>

#include "core/DatabaseReader.hpp"
#include "core/SQLiteConnection.hpp"
#include "core/SQLiteStatement.hpp"
#include "platform/TaskCancellation.hpp"
#include "support/Failure.hpp"
#include "support/NoTask.hpp"
#include "support/TemporaryDatabase.hpp"

namespace tolva {
namespace {

constexpr char const* endless =
    "WITH RECURSIVE c(x) AS (SELECT 1 UNION ALL SELECT x + 1 FROM c) SELECT count(*) FROM c WHERE x < 0";

TEST(CancellationHandle, InterruptsTheStatementThatRuns) {
  auto const cancellation = std::make_shared<CancellationHandle>();
  auto const connection = SQLiteConnection::open({}, {.readOnly = false, .inMemory = true}, cancellation);
  std::atomic<bool> ended = false;
  std::jthread canceller([&] {
    while (!ended) cancellation->cancel();
  });
  DatabaseError const error = failureOf([&] { connection->prepare(endless).step(); });
  ended = true;
  EXPECT_TRUE(error.isCancellation());
  EXPECT_EQ(error.errorDescription(), "Cancelled");
}

TEST(CancellationHandle, DoesNothingBeforeAConnectionOrAfterIt) {
  auto const cancellation = std::make_shared<CancellationHandle>();
  cancellation->cancel();
  { auto const connection = SQLiteConnection::open({}, {.readOnly = false, .inMemory = true}, cancellation); }
  cancellation->cancel();
}

TEST(CancellationHandle, IsNotSticky) {
  auto const connection = SQLiteConnection::open({}, {.readOnly = false, .inMemory = true});
  connection->cancellation()->cancel();
  EXPECT_TRUE(connection->prepare("SELECT 1").step());
}

TEST(CancellationHandle, StillReachesTheNewConnectionWhenAnOldOneClosesLate) {
  auto const cancellation = std::make_shared<CancellationHandle>();
  auto first = SQLiteConnection::open({}, {.readOnly = false, .inMemory = true}, cancellation);
  auto const second = SQLiteConnection::open({}, {.readOnly = false, .inMemory = true}, cancellation);
  first.reset();
  std::atomic<bool> ended = false;
  std::jthread canceller([&] {
    while (!ended) cancellation->cancel();
  });
  EXPECT_TRUE(failureOf([&] { second->prepare(endless).step(); }).isCancellation());
  ended = true;
}

TEST(CancellationHandle, MayBeUsedByManyThreadsWhileDatabasesOpenReadAndClose) {
  TemporaryDatabase const database(
      "CREATE TABLE t(a); INSERT INTO t VALUES (1), (2); CREATE VIEW v AS SELECT a FROM t");
  DatabaseReader reader;
  std::atomic<bool> ended = false;
  std::vector<std::jthread> cancellers;
  for (int thread = 0; thread < 8; ++thread) {
    cancellers.emplace_back([&] {
      while (!ended) {
        reader.cancellation()->cancel();
        std::this_thread::yield();
      }
    });
  }
  int opened = 0;
  for (int round = 0; round < 100; ++round) {
    try {
      for (DatabaseObject const& object : reader.open(database.path(), noTask)) reader.schema(object);
      ++opened;
    } catch (DatabaseError const& error) {
      EXPECT_TRUE(error.isCancellation()) << error.detail;
    }
    if (round % 2) reader.close();
  }
  ended = true;
  cancellers.clear();
  EXPECT_EQ(reader.open(database.path(), noTask).size(), 2);
}

}  // namespace
}  // namespace tolva
