// SPDX-License-Identifier: Apache-2.0
#include "core/SQLiteConnection.hpp"

#include <gtest/gtest.h>
#include <sqlite3.h>

#include <unistd.h>

#include <atomic>
#include <chrono>
#include <cstdlib>
#include <fstream>
#include <stdexcept>
#include <thread>

#include "core/SQLiteStatement.hpp"
#include "support/Environment.hpp"
#include "support/Failure.hpp"
#include "support/NoTask.hpp"
#include "support/SQLitePeer.hpp"
#include "support/TemporaryDatabase.hpp"
#include "support/TemporaryFolder.hpp"
#include "support/Unprivileged.hpp"
#include "support/ValueText.hpp"

namespace tolva {
namespace {

std::shared_ptr<SQLiteConnection> inMemory() {
  return SQLiteConnection::open({}, {.readOnly = false, .inMemory = true});
}

SQLiteValue scalar(SQLiteConnection& connection, char const* sql) {
  SQLiteStatement statement = connection.prepare(sql);
  return statement.step() ? statement.value(0, /*full=*/true) : SQLiteValue("(no row)");
}

std::stop_token cancelledTask() {
  std::stop_source source;
  source.request_stop();
  return source.get_token();
}

// Opening ------------------------------------------------------------------------------------------

TEST(SQLiteConnection, EnforcesForeignKeysAndLimitsWaitingOnEveryConnection) {
  TemporaryDatabase const database("CREATE TABLE t(a)");
  for (bool const readOnly : {true, false}) {
    SCOPED_TRACE(readOnly);
    auto const connection = SQLiteConnection::open(database.path(), {.readOnly = readOnly});
    EXPECT_EQ(scalar(*connection, "PRAGMA foreign_keys"), SQLiteValue(1));
    EXPECT_EQ(scalar(*connection, "PRAGMA busy_timeout"), SQLiteValue(1200));
    EXPECT_EQ(scalar(*connection, "PRAGMA query_only"), SQLiteValue(readOnly ? 1 : 0));
    EXPECT_EQ(connection->readOnly(), readOnly);
    EXPECT_EQ(sqlite3_db_readonly(connection->handle(), "main"), readOnly ? 1 : 0);
    EXPECT_NE(sqlite3_db_mutex(connection->handle()), nullptr);
  }
}

TEST(SQLiteConnection, RefusesToWriteThroughAReadOnlyConnection) {
  TemporaryDatabase const database("CREATE TABLE t(a)");
  auto const connection = SQLiteConnection::open(database.path(), {});
  for (char const* const sql : {"INSERT INTO t VALUES (1)", "CREATE TEMP TABLE x(a)"}) {
    SCOPED_TRACE(sql);
    DatabaseError const error = failureOf([&] { connection->execute(sql); });
    EXPECT_EQ(error.code, SQLITE_READONLY);
    EXPECT_EQ(error.errorDescription(),
              "This database is currently read-only. attempt to write a readonly database [" + std::string(sql) + "]");
  }
}

TEST(SQLiteConnection, CreatesAFileOnlyWhenAskedTo) {
  TemporaryFolder const folder;
  auto const path = folder / "new.db";
  EXPECT_EQ(failureOf([&] { SQLiteConnection::open(path, {.readOnly = false}); }),
            DatabaseError("unable to open database file", SQLITE_CANTOPEN));
  EXPECT_EQ(failureOf([&] { SQLiteConnection::open(path, {.readOnly = true, .create = true}); }),
            DatabaseError("unable to open database file", SQLITE_CANTOPEN));
  EXPECT_FALSE(std::filesystem::exists(path));
  SQLiteConnection::open(path, {.readOnly = false, .create = true})->execute("CREATE TABLE t(a)");
  EXPECT_TRUE(std::filesystem::exists(path));
}

TEST(SQLiteConnection, NeverReadsAFileNameAsAURI) {
  TemporaryFolder const folder;
  auto const before = std::filesystem::current_path();
  std::filesystem::current_path(folder.path());
  SQLiteConnection::open("file:a?mode=memory", {.readOnly = false, .create = true})->execute("CREATE TABLE t(a)");
  SQLiteConnection::open("file:b", {.readOnly = false, .create = true, .allowURI = true})->execute("CREATE TABLE t(a)");
  std::filesystem::current_path(before);
  EXPECT_TRUE(std::filesystem::exists(folder / "file:a?mode=memory"));
  EXPECT_TRUE(std::filesystem::exists(folder / "file:b"));
}

TEST(SQLiteConnection, AttachesURIsOnlyWhenTheyAreAllowed) {
  TemporaryDatabase const database("CREATE TABLE t(a)");
  std::string const uri = "file:" + database.path().string() + "?mode=ro";
  auto const allowed = SQLiteConnection::open({}, {.readOnly = false, .allowURI = true, .inMemory = true});
  allowed->execute("ATTACH ? AS other", {uri});
  EXPECT_EQ(sqlite3_db_readonly(allowed->handle(), "other"), 1);
}

TEST(SQLiteConnection, RefusesToWriteToAnAttachedFileThroughAReadOnlyConnection) {
  TemporaryDatabase const database("CREATE TABLE t(a)");
  TemporaryDatabase const other("CREATE TABLE t(a)");
  auto const connection = SQLiteConnection::open(database.path(), {});
  connection->execute("ATTACH ? AS other", {other.path().string()});
  EXPECT_EQ(failureOf([&] { connection->execute("INSERT INTO other.t VALUES (1)"); }).code, SQLITE_READONLY);
}

TEST(SQLiteConnection, TellsDamage) {
  TemporaryDatabase const database("CREATE TABLE t(a); INSERT INTO t VALUES (zeroblob(20000))");
  {
    std::fstream file(database.path(), std::ios::in | std::ios::out | std::ios::binary);
    file.seekp(4096);
    file << std::string(4096, '\xff');
  }
  auto const connection = SQLiteConnection::open(database.path(), {});
  EXPECT_EQ(failureOf([&] { connection->execute("SELECT * FROM t"); }).errorDescription(),
            "SQLite detected damage in this database. Restore a known-good backup or recover a separate copy. Tolva "
            "does not automatically repair databases.");
}

TEST(SQLiteConnection, TellsALockThatAReaderCannotTurnIntoAWriters) {
  TemporaryDatabase const database("PRAGMA journal_mode = WAL; CREATE TABLE t(a); INSERT INTO t VALUES (1)");
  auto const connection = SQLiteConnection::open(database.path(), {.readOnly = false});
  connection->execute("BEGIN");
  EXPECT_EQ(scalar(*connection, "SELECT count(*) FROM t"), SQLiteValue(1));
  database.run("INSERT INTO t VALUES (2)");
  DatabaseError const error = failureOf([&] { connection->execute("INSERT INTO t VALUES (3)"); });
  EXPECT_EQ(error.code, SQLITE_BUSY_SNAPSHOT);
  EXPECT_TRUE(error.errorDescription().starts_with(
      "Another connection is holding a database lock. Wait for its transaction to finish, then try again. "));
}

TEST(SQLiteConnection, DoesNotTakeAnEmptyNameForATemporaryDatabase) {
  EXPECT_EQ(failureOf([&] { SQLiteConnection::open("", {}); }).code, SQLITE_CANTOPEN);
}

TEST(SQLiteConnection, NeverCutsANameAtANulByte) {
  TemporaryDatabase const database("CREATE TABLE t(a)");
  std::string const name = database.path().string() + std::string("\0.other", 7);
  EXPECT_EQ(failureOf([&] { SQLiteConnection::open(name, {}); }),
            DatabaseError("unable to open database file", SQLITE_CANTOPEN));
}

TEST(SQLiteConnection, TellsThatItCannotOpenWhereTheWorkingFolderIsGone) {
  auto const before = std::filesystem::current_path();
  {
    TemporaryFolder const folder;
    std::filesystem::current_path(folder.path());
  }
  DatabaseError const error = failureOf([] { SQLiteConnection::open("t.db", {}); });
  std::filesystem::current_path(before);
  EXPECT_EQ(error, DatabaseError("unable to open database file", SQLITE_CANTOPEN));
}

TEST(SQLiteConnection, MakesACancellationHandleWhereItIsGivenNone) {
  auto const connection = SQLiteConnection::open({}, {.readOnly = false, .inMemory = true}, nullptr);
  ASSERT_NE(connection->cancellation(), nullptr);
  connection->cancellation()->cancel();
}

TEST(SQLiteConnection, LeavesNothingBehindWhenItIsCancelledWhileItOpens) {
  TemporaryDatabase const database("CREATE TABLE t(a)");
  auto const cancellation = std::make_shared<CancellationHandle>();
  std::atomic<bool> ended = false;
  std::jthread canceller([&] {
    while (!ended) cancellation->cancel();
  });
  for (int round = 0; round < 500; ++round) {
    try {
      SQLiteConnection::open(database.path(), {}, cancellation);
    } catch (DatabaseError const& error) {
      EXPECT_TRUE(error.isCancellation()) << error.detail;
    }
  }
  ended = true;
}

TEST(SQLiteConnection, WritesForAUserWithoutAHome) {
  TemporaryFolder folder;
  folder.openToEverybody();
  std::string const told = asUnprivileged([&]() -> std::string {
    if (geteuid() == 0) return "";  // no other user to be had
    unsetenv("HOME");
    unsetenv("XDG_DATA_HOME");
    SQLiteConnection::open(folder / "new.db", {.readOnly = false, .create = true})->execute("CREATE TABLE t(a)");
    return "";
  });
  EXPECT_EQ(told, "");
}

TEST(SQLiteConnection, RefusesToChangeASnapshotButReadsIt) {
  TemporaryFolder const folder;
  Environment const home("XDG_DATA_HOME", folder.path());
  auto const store = folder / "Tolva/Snapshots/source/one";
  std::filesystem::create_directories(store);
  auto const path = store / "database.sqlite";
  auto const open = [&](std::filesystem::path const& name, OpenOptions options) {
    return SQLiteConnection::open(name, options);
  };
  open(path, {.readOnly = false, .create = true, .allowSnapshotWrite = true})->execute("CREATE TABLE t(a)");
  DatabaseError const refusal("Historical snapshots cannot be modified.", 8);
  EXPECT_EQ(failureOf([&] { open(path, {.readOnly = false}); }), refusal);
  EXPECT_EQ(refusal.errorDescription(),
            "This database is currently read-only. Historical snapshots cannot be modified.");
  std::filesystem::create_symlink(path, folder / "link.db");
  EXPECT_EQ(failureOf([&] { open(folder / "link.db", {.readOnly = false}); }), refusal);
  EXPECT_EQ(failureOf([&] { open(folder / "Tolva/x/../Snapshots/source/one/database.sqlite", {.readOnly = false}); }),
            refusal);
  EXPECT_EQ(scalar(*open(path, {}), "SELECT count(*) FROM t"), SQLiteValue(0));
  std::filesystem::create_symlink(store / "new.sqlite", folder / "dangling.db");
  EXPECT_EQ(failureOf([&] { open(folder / "dangling.db", {.readOnly = false, .create = true}); }), refusal);
}

TEST(SQLiteConnection, TellsThatAnotherProcessHoldsTheLock) {
  TemporaryDatabase const database("CREATE TABLE t(a)");
  SQLitePeer peer(database.path());
  ASSERT_EQ(peer.exec("BEGIN EXCLUSIVE"), "ok");
  auto const connection = SQLiteConnection::open(database.path(), {.readOnly = false});
  auto const begun = std::chrono::steady_clock::now();
  DatabaseError const error = failureOf([&] { connection->transaction([] {}, noTask); });
  auto const waited = std::chrono::steady_clock::now() - begun;
  EXPECT_GE(waited, std::chrono::milliseconds(1100));
  EXPECT_LT(waited, std::chrono::seconds(10));
  EXPECT_EQ(error.code, SQLITE_BUSY);
  EXPECT_EQ(error.errorDescription(),
            "Another connection is holding a database lock. Wait for its transaction to finish, then try again. "
            "database is locked [BEGIN IMMEDIATE]");
}

TEST(SQLiteConnection, ClosesWithTheLastOfItsStatements) {
  TemporaryDatabase const database("CREATE TABLE t(a)");
  auto connection = SQLiteConnection::open(database.path(), {});
  std::weak_ptr<SQLiteConnection> const watched = connection;
  {
    SQLiteStatement statement = connection->prepare("SELECT 1");
    connection.reset();
    EXPECT_TRUE(statement.step());
    EXPECT_FALSE(watched.expired());
  }
  EXPECT_TRUE(watched.expired());
}

// Executing ----------------------------------------------------------------------------------------

TEST(SQLiteConnection, NamesTheStatementThatFailsWhenItExecutesButNotWhenItPrepares) {
  auto const connection = inMemory();
  EXPECT_EQ(failureOf([&] { connection->execute("SELEC 1"); }),
            DatabaseError("near \"SELEC\": syntax error [SELEC 1]", SQLITE_ERROR));
  EXPECT_EQ(failureOf([&] { connection->prepare("SELEC 1"); }),
            DatabaseError("near \"SELEC\": syntax error", SQLITE_ERROR));
  EXPECT_EQ(failureOf([&] { connection->execute("SELECT ?"); }),
            DatabaseError("Incorrect parameter count [SELECT ?]", 1));
}

TEST(SQLiteConnection, TellsExtendedCodes) {
  auto const connection = inMemory();
  connection->execute("CREATE TABLE t(a UNIQUE)");
  connection->execute("INSERT INTO t VALUES (1)");
  DatabaseError const error = failureOf([&] { connection->execute("INSERT INTO t VALUES (1)"); });
  EXPECT_EQ(error, DatabaseError("UNIQUE constraint failed: t.a [INSERT INTO t VALUES (1)]", 2067));
  EXPECT_EQ(error.errorDescription(), "That change violates a database constraint. " + error.detail);
}

TEST(SQLiteConnection, RunsOnlyTheFirstStatementAndDropsItsRows) {
  auto const connection = inMemory();
  connection->execute("CREATE TABLE t(a); CREATE TABLE u(a)");
  connection->execute("VALUES (1), (2), (3)");
  EXPECT_EQ(scalar(*connection, "SELECT group_concat(name) FROM sqlite_schema"), SQLiteValue("t"));
}

TEST(SQLiteConnection, TakesATextWithoutAStatementForAnError) {
  auto const connection = inMemory();
  for (char const* const sql : {"", " ", ";", "-- nothing", "/* nothing */"}) {
    SCOPED_TRACE(sql);
    EXPECT_EQ(failureOf([&] { connection->prepare(sql); }), DatabaseError("not an error", 0));
  }
}

// Transactions -------------------------------------------------------------------------------------

TEST(SQLiteConnection, CommitsWhatATransactionDidAndReturnsItsResult) {
  TemporaryDatabase const database("CREATE TABLE t(a)");
  auto const connection = SQLiteConnection::open(database.path(), {.readOnly = false});
  std::string const answer = connection->transaction(
      [&] {
        EXPECT_EQ(sqlite3_txn_state(connection->handle(), "main"), SQLITE_TXN_WRITE);
        connection->execute("INSERT INTO t VALUES (7)");
        return std::string("done");
      },
      noTask);
  EXPECT_EQ(answer, "done");
  EXPECT_EQ(database.rows("SELECT a FROM t"), "7");
}

TEST(SQLiteConnection, TakesEverythingBackWhenATransactionFails) {
  auto const connection = inMemory();
  connection->execute("CREATE TABLE t(a UNIQUE)");
  auto const insertTwice = [&] {
    connection->execute("INSERT INTO t VALUES (1)");
    connection->execute("INSERT INTO t VALUES (1)");
  };
  EXPECT_EQ(failureOf([&] { connection->transaction(insertTwice, noTask); }).code, 2067);
  auto const throwOther = [&] {
    connection->execute("INSERT INTO t VALUES (2)");
    throw std::runtime_error("other");
  };
  EXPECT_THROW(connection->transaction(throwOther, noTask), std::runtime_error);
  EXPECT_EQ(scalar(*connection, "SELECT count(*) FROM t"), SQLiteValue(0));
  EXPECT_TRUE(sqlite3_get_autocommit(connection->handle()));
}

TEST(SQLiteConnection, TakesEverythingBackWhenTheCommitFails) {
  auto const connection = inMemory();
  connection->execute("CREATE TABLE parent(id INTEGER PRIMARY KEY)");
  connection->execute("CREATE TABLE child(p REFERENCES parent(id) DEFERRABLE INITIALLY DEFERRED)");
  auto const orphan = [&] { connection->execute("INSERT INTO child VALUES (1)"); };
  EXPECT_EQ(failureOf([&] { connection->transaction(orphan, noTask); }),
            DatabaseError("FOREIGN KEY constraint failed [COMMIT]", 787));
  EXPECT_TRUE(sqlite3_get_autocommit(connection->handle()));
  EXPECT_EQ(scalar(*connection, "SELECT count(*) FROM child"), SQLiteValue(0));
}

TEST(SQLiteConnection, TellsTheFirstErrorWhenSQLiteHasRolledBackAlready) {
  auto const connection = inMemory();
  connection->execute("CREATE TABLE t(a UNIQUE ON CONFLICT ROLLBACK)");
  auto const conflict = [&] {
    connection->execute("INSERT INTO t VALUES (1)");
    connection->execute("INSERT INTO t VALUES (1)");
  };
  EXPECT_EQ(failureOf([&] { connection->transaction(conflict, noTask); }).code, 2067);
}

TEST(SQLiteConnection, TouchesNothingForACancelledTask) {
  auto const connection = inMemory();
  bool ran = false;
  sqlite3_trace_v2(
      connection->handle(), SQLITE_TRACE_STMT,
      [](unsigned, void*, void*, void*) {
        ADD_FAILURE() << "a statement ran";
        return 0;
      },
      nullptr);
  EXPECT_THROW(connection->transaction([&] { ran = true; }, cancelledTask()), TaskCancelled);
  EXPECT_FALSE(ran);
  EXPECT_TRUE(sqlite3_get_autocommit(connection->handle()));
}

TEST(SQLiteConnection, RollsBackWhenTheTaskIsCancelledBeforeTheCommit) {
  auto const connection = inMemory();
  connection->execute("CREATE TABLE t(a)");
  std::stop_source task;
  auto const body = [&] {
    connection->execute("INSERT INTO t VALUES (1)");
    task.request_stop();
  };
  EXPECT_THROW(connection->transaction(body, task.get_token()), TaskCancelled);
  EXPECT_EQ(scalar(*connection, "SELECT count(*) FROM t"), SQLiteValue(0));
}

TEST(SQLiteConnection, DoesNotNestTransactions) {
  auto const connection = inMemory();
  DatabaseError const error =
      failureOf([&] { connection->transaction([&] { connection->transaction([] {}, noTask); }, noTask); });
  EXPECT_EQ(error, DatabaseError("cannot start a transaction within a transaction [BEGIN IMMEDIATE]", 1));
}

}  // namespace
}  // namespace tolva
