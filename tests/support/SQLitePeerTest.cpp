// SPDX-License-Identifier: Apache-2.0
#include "support/SQLitePeer.hpp"

#include <gtest/gtest.h>
#include <sqlite3.h>

#include <stdexcept>

#include "support/Failure.hpp"
#include "support/TemporaryDatabase.hpp"

namespace tolva {
namespace {

TEST(SQLitePeer, AnswersForItsConnection) {
  TemporaryFolder const folder;
  TemporaryDatabase const database(folder, "a.db", "CREATE TABLE t(a UNIQUE)");
  SQLitePeer peer(database.path());
  EXPECT_EQ(peer.exec("INSERT INTO t VALUES(1), ('two' || char(10) || 'lines')"), "ok");
  EXPECT_EQ(peer.rows("SELECT a FROM t"), "1\ntwo\nlines");
  EXPECT_EQ(peer.rows("SELECT a FROM t WHERE a = 7"), "");
  EXPECT_EQ(peer.exec("INSERT INTO t VALUES(1)"), "error 2067 UNIQUE constraint failed: t.a");
  EXPECT_EQ(peer.rows("SELECT absent"), "error 1 no such column: absent");
}

TEST(SQLitePeer, LocksOutThisProcessUntilItCommits) {
  TemporaryFolder const folder;
  TemporaryDatabase const database(folder, "a.db", "CREATE TABLE t(a)");
  SQLitePeer peer(database.path());
  EXPECT_EQ(peer.exec("BEGIN EXCLUSIVE; INSERT INTO t VALUES(1)"), "ok");
  EXPECT_EQ(failureOf([&] { database.rows("SELECT * FROM t"); }), DatabaseError("database is locked", SQLITE_BUSY));
  EXPECT_EQ(peer.exec("COMMIT"), "ok");
  EXPECT_EQ(database.rows("SELECT * FROM t"), "1");
}

TEST(SQLitePeer, LosesAnOpenTransactionWithItsObject) {
  TemporaryFolder const folder;
  TemporaryDatabase const database(folder, "a.db", "CREATE TABLE t(a)");
  {
    SQLitePeer peer(database.path());
    EXPECT_EQ(peer.exec("BEGIN IMMEDIATE; INSERT INTO t VALUES(1)"), "ok");
  }
  EXPECT_EQ(database.rows("SELECT count(*) FROM t"), "0");
}

TEST(SQLitePeer, SaysThatItCouldNotOpenItsDatabase) {
  TemporaryFolder const folder;
  SQLitePeer peer(folder / "absent.db");
  EXPECT_ANY_THROW(peer.exec("SELECT 1"));
}

}  // namespace
}  // namespace tolva
