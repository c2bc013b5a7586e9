// SPDX-License-Identifier: Apache-2.0
#include "core/OnlineBackup.hpp"

#include <gtest/gtest.h>
#include <sqlite3.h>

#include <memory>

#include "core/SQLiteConnection.hpp"
#include "core/SQLiteStatement.hpp"
#include "support/Descriptors.hpp"
#include "support/Failure.hpp"
#include "support/SQLitePeer.hpp"
#include "support/TemporaryDatabase.hpp"

namespace tolva {
namespace {

/// 602 pages.
std::string const manyPages =
    "CREATE TABLE t(a); WITH RECURSIVE n(i) AS (SELECT 1 UNION ALL SELECT i + 1 FROM n WHERE i < 600) INSERT INTO t "
    "SELECT zeroblob(4000) FROM n;";

struct Scene {
  explicit Scene(std::string const& sql = manyPages) : database(folder, "a.db", sql) {}

  TemporaryFolder folder;
  TemporaryDatabase const database;
  std::shared_ptr<SQLiteConnection> const source = SQLiteConnection::open(database.path(), {});
  std::shared_ptr<SQLiteConnection> const copy =
      SQLiteConnection::open(folder / "copy.db", {.readOnly = false, .create = true});
};

TEST(OnlineBackup, CountsItsPages) {
  Scene const scene;
  OnlineBackup backup(*scene.source, *scene.copy);
  EXPECT_EQ(backup.pageCount(), 0);
  EXPECT_EQ(backup.remaining(), 0);
  EXPECT_EQ(backup.step(256), SQLITE_OK);
  std::int64_t const pages = backup.pageCount();
  EXPECT_GT(pages, 600);
  EXPECT_EQ(backup.remaining(), pages - 256);
  EXPECT_EQ(backup.step(256), SQLITE_OK);
  EXPECT_EQ(backup.step(256), SQLITE_DONE);
  EXPECT_EQ(backup.remaining(), 0);
  EXPECT_EQ(backup.pageCount(), pages);
  EXPECT_EQ(backup.finish(), SQLITE_OK);
  EXPECT_EQ(rowsAsText(scene.folder / "copy.db", "SELECT count(*) FROM t; PRAGMA integrity_check"), "600\nok");
}

TEST(OnlineBackup, FinishesOnce) {
  Scene const scene;
  {
    OnlineBackup backup(*scene.source, *scene.copy);
    EXPECT_EQ(backup.step(1), SQLITE_OK);
    EXPECT_EQ(backup.finish(), SQLITE_OK);
    EXPECT_EQ(backup.finish(), SQLITE_OK);
  }
  scene.copy->execute("CREATE TABLE free(a)");  // the destination is no longer the backup's
}

TEST(OnlineBackup, FinishesWhenItGoes) {
  Scene const scene;
  { EXPECT_EQ(OnlineBackup(*scene.source, *scene.copy).step(1), SQLITE_OK); }
  scene.copy->execute("CREATE TABLE free(a)");
  EXPECT_EQ(SQLitePeer(scene.database.path()).exec("DELETE FROM t"), "ok");  // the source neither
}

TEST(OnlineBackup, KeepsBothConnectionsUntilItHasFinished) {
  Scene const scene;
  long const before = openDescriptors();
  {
    auto source = SQLiteConnection::open(scene.database.path(), {});
    auto copy = SQLiteConnection::open(scene.folder / "other.db", {.readOnly = false, .create = true});
    OnlineBackup backup(*source, *copy);
    source.reset();
    copy.reset();
    while (backup.step(256) == SQLITE_OK) continue;
    EXPECT_EQ(backup.finish(), SQLITE_OK);
  }
  EXPECT_EQ(openDescriptors(), before);
  EXPECT_EQ(rowsAsText(scene.folder / "other.db", "SELECT count(*) FROM t"), "600");
}

TEST(OnlineBackup, TellsWhyItCannotBegin) {
  Scene const scene;
  auto const begin = [&] { OnlineBackup const backup(*scene.source, *scene.source); };
  EXPECT_EQ(failureOf(begin), DatabaseError("source and destination must be distinct", SQLITE_ERROR));
  scene.copy->execute("CREATE TABLE held(a)");
  scene.copy->execute("INSERT INTO held VALUES (1)");
  SQLiteStatement reading = scene.copy->prepare("SELECT a FROM held");
  ASSERT_TRUE(reading.step());
  EXPECT_EQ(failureOf([&] { OnlineBackup const backup(*scene.source, *scene.copy); }),
            DatabaseError("destination database is in use", SQLITE_ERROR));
}

TEST(OnlineBackup, GoesOnOnceALockHasPassed) {
  Scene const scene;
  sqlite3_busy_timeout(scene.source->handle(), 0);
  SQLitePeer peer(scene.database.path());
  OnlineBackup backup(*scene.source, *scene.copy);
  ASSERT_EQ(peer.exec("BEGIN EXCLUSIVE"), "ok");
  EXPECT_EQ(backup.step(256), SQLITE_BUSY);
  EXPECT_EQ(backup.step(256), SQLITE_BUSY);
  ASSERT_EQ(peer.exec("COMMIT"), "ok");
  int stepped = SQLITE_OK;
  while (stepped == SQLITE_OK) stepped = backup.step(256);
  EXPECT_EQ(stepped, SQLITE_DONE);
  EXPECT_EQ(backup.finish(), SQLITE_OK);
}

TEST(OnlineBackup, EndsWithWhatAStepFailedWith) {
  Scene const scene;
  scene.copy->execute("PRAGMA max_page_count = 10");
  OnlineBackup backup(*scene.source, *scene.copy);
  int stepped = SQLITE_OK;
  while (stepped == SQLITE_OK) stepped = backup.step(256);
  EXPECT_EQ(stepped, SQLITE_FULL);
  EXPECT_EQ(backup.finish(), SQLITE_FULL);
  EXPECT_EQ(scene.copy->error(SQLITE_FULL), DatabaseError("database or disk is full", SQLITE_FULL));
}

}  // namespace
}  // namespace tolva
