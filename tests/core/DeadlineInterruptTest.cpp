// SPDX-License-Identifier: Apache-2.0
#include "core/DeadlineInterrupt.hpp"

#include <gtest/gtest.h>

#include <chrono>
#include <filesystem>
#include <fstream>
#include <thread>

#include "core/SQLiteConnection.hpp"
#include "core/SQLiteStatement.hpp"
#include "support/Failure.hpp"
#include "support/TemporaryDatabase.hpp"
#include "support/TemporaryFolder.hpp"

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

TEST(DeadlineInterrupt, IsNeededFromAMegabyteOn) {
  struct SizeCase {
    char const* says;
    char const* file;
    std::uintmax_t bytes;
    bool large;
  };
  SizeCase const sizes[] = {{"a small file", "t.db", 8192, false},
                            {"the largest small one", "t.db", 1'048'576, false},
                            {"one byte more", "t.db", 1'048'577, true},
                            {"a small log", "t.db-wal", 1'048'576, false},
                            {"a large log", "t.db-wal", 1'048'577, true}};
  for (SizeCase const& each : sizes) {
    SCOPED_TRACE(each.says);
    TemporaryFolder const folder;
    TemporaryDatabase const database(folder, "t.db", "CREATE TABLE t(a)");
    std::filesystem::create_symlink("t.db", folder / "link.db");
    std::ofstream(folder / each.file, std::ios::app).close();
    std::filesystem::resize_file(folder / each.file, each.bytes);
    for (char const* const name : {"t.db", "link.db"})
      EXPECT_EQ(mayHoldLargeValues(SQLiteConnection::open(folder / name, {})->handle()), each.large);
  }
  EXPECT_TRUE(mayHoldLargeValues(inMemory()->handle())) << "no file bounds them";
}

TEST(DeadlineInterrupt, WatchesForTheDatabasesThatItIsGiven) {
  TemporaryFolder const folder;
  TemporaryDatabase const small(folder, "small.db", "CREATE TABLE t(a)");
  TemporaryDatabase const large(folder, "large.db", "CREATE TABLE t(a); INSERT INTO t VALUES (zeroblob(2000000))");
  auto const connection = SQLiteConnection::open(small.path(), {});
  EXPECT_FALSE(mayHoldLargeValues(connection->handle(), "main"));
  EXPECT_TRUE(mayHoldLargeValues(connection->handle(), "other")) << "it may be attached meanwhile";
  connection->execute("ATTACH ? AS other", {large.path().string()});
  EXPECT_TRUE(mayHoldLargeValues(connection->handle(), "other"));
  {
    DeadlineInterrupt const watch(connection->handle(), uptime() - 1s);
    EXPECT_TRUE(connection->prepare(twoMillionRows).step());
  }
  DeadlineInterrupt const watch(connection->handle(), uptime() - 1s, {"main", "other"});
  EXPECT_TRUE(failureOf([&] { connection->prepare(endless).step(); }).isCancellation());
}

}  // namespace
}  // namespace tolva
