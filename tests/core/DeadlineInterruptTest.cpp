// SPDX-License-Identifier: Apache-2.0
#include "core/DeadlineInterrupt.hpp"

#include <gtest/gtest.h>

#include <chrono>
#include <thread>

#include "core/SQLiteConnection.hpp"
#include "core/SQLiteStatement.hpp"
#include "support/Failure.hpp"

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

TEST(DeadlineInterrupt, StopsAStatementOnceItsDeadlineHasCome) {
  auto const connection = inMemory();
  Uptime const begun = uptime();
  DeadlineInterrupt const watch(connection->handle(), begun + 50ms);
  EXPECT_TRUE(failureOf([&] { connection->prepare(endless).step(); }).isCancellation());
  EXPECT_GE(uptime() - begun, 50ms);
}

TEST(DeadlineInterrupt, StopsAStatementThatBeginsAfterTheDeadline) {
  auto const connection = inMemory();
  DeadlineInterrupt const watch(connection->handle(), uptime() - 1s);
  std::this_thread::sleep_for(30ms);
  EXPECT_TRUE(failureOf([&] { connection->prepare(endless).step(); }).isCancellation());
  EXPECT_TRUE(failureOf([&] { connection->prepare(endless).step(); }).isCancellation()) << "and the next one too";
}

TEST(DeadlineInterrupt, LeavesAStatementAloneBeforeTheDeadlineAndAfterItsScope) {
  auto const connection = inMemory();
  {
    DeadlineInterrupt const watch(connection->handle(), uptime() + 60s);
    EXPECT_TRUE(connection->prepare(twoMillionRows).step());
  }
  { DeadlineInterrupt const watch(connection->handle(), uptime() - 1s); }
  EXPECT_TRUE(connection->prepare(twoMillionRows).step());
}

TEST(DeadlineInterrupt, EndsAtOnceWithItsScope) {
  auto const connection = inMemory();
  Uptime const begun = uptime();
  { DeadlineInterrupt const watch(connection->handle(), begun + 1h); }
  EXPECT_LT(uptime() - begun, 30s);
}

}  // namespace
}  // namespace tolva
