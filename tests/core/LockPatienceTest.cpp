// SPDX-License-Identifier: Apache-2.0
#include "core/LockPatience.hpp"

#include <gtest/gtest.h>
#include <sqlite3.h>

#include <thread>

#include "core/SQLiteStatement.hpp"
#include "support/Failure.hpp"
#include "support/SQLitePeer.hpp"
#include "support/TemporaryDatabase.hpp"

namespace tolva {
namespace {

using namespace std::chrono_literals;

/// A database that another process keeps locked for writers.
struct Scene {
  Scene() { EXPECT_EQ(holder.exec("BEGIN IMMEDIATE"), "ok"); }

  DatabaseError begin() const {
    return failureOf([&] { connection->execute("BEGIN IMMEDIATE"); });
  }

  TemporaryFolder const folder;
  TemporaryDatabase const database{folder, "a.db", "CREATE TABLE t(a)"};
  SQLitePeer holder{database.path()};
  std::shared_ptr<SQLiteConnection> const connection = SQLiteConnection::open(database.path(), {.readOnly = false});
};

DatabaseError const locked("database is locked [BEGIN IMMEDIATE]", SQLITE_BUSY);

TEST(LockPatience, IsSpentWhenTheLockStays) {
  Scene const scene;
  LockPatience const patience(*scene.connection, 20ms);
  EXPECT_FALSE(patience.spent());
  EXPECT_EQ(scene.begin(), locked);
  EXPECT_TRUE(patience.spent());
}

TEST(LockPatience, WaitsNoMoreOnceItIsSpent) {
  Scene scene;
  LockPatience const patience(*scene.connection, 0ms);
  for (int again = 0; again < 1000; ++again) ASSERT_EQ(scene.begin(), locked);  // 20 minutes, if each waited anew
  ASSERT_EQ(scene.holder.exec("COMMIT"), "ok");
  EXPECT_NO_THROW(scene.connection->execute("BEGIN IMMEDIATE")) << "nor does it refuse what is free";
  EXPECT_TRUE(patience.spent());
}

TEST(LockPatience, OutwaitsALockThatGoes) {
  Scene scene;
  LockPatience const patience(*scene.connection, 1h);
  std::jthread const release([&] {
    std::this_thread::sleep_for(50ms);
    EXPECT_EQ(scene.holder.exec("COMMIT"), "ok");
  });
  EXPECT_NO_THROW(scene.connection->execute("BEGIN IMMEDIATE"));
  EXPECT_FALSE(patience.spent());
}

TEST(LockPatience, GivesTheTimeoutBack) {
  Scene const scene;
  auto const timeout = [&] {
    SQLiteStatement asked = scene.connection->prepare("PRAGMA busy_timeout");
    EXPECT_TRUE(asked.step());
    return asked.value(0, /*full=*/true);
  };
  {
    LockPatience const patience(*scene.connection);
    EXPECT_EQ(timeout(), SQLiteValue(0)) << "it waits on its own";
  }
  EXPECT_EQ(timeout(), SQLiteValue(1200));
}

}  // namespace
}  // namespace tolva
