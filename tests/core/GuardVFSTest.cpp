// SPDX-License-Identifier: Apache-2.0
#include "core/GuardVFS.hpp"

#include <gtest/gtest.h>
#include <sqlite3.h>
#include <sys/stat.h>
#include <unistd.h>

#include <fstream>

#include "core/SQLiteConnection.hpp"
#include "core/SQLiteStatement.hpp"
#include "platform/SafeFile.hpp"
#include "support/Failure.hpp"
#include "support/SQLitePeer.hpp"
#include "support/TemporaryDatabase.hpp"
#include "support/TemporaryFolder.hpp"

namespace tolva {
namespace {

std::shared_ptr<SQLiteConnection> openWritable(std::filesystem::path const& path) {
  return SQLiteConnection::open(path, {.readOnly = false});
}

DatabaseError insertFailure(std::filesystem::path const& path) {
  return failureOf([&] { openWritable(path)->execute("INSERT INTO t(a) VALUES ('y')"); });
}

void appendNumber(std::string& bytes, std::uint32_t number) {
  for (int shift = 24; shift >= 0; shift -= 8) bytes += static_cast<char>(number >> shift & 0xFF);
}

/// A hot journal of no pages for a database of two pages that names `superJournal` as the file to delete after it
/// (https://sqlite.org/fileformat.html#the_rollback_journal).
std::string journalNaming(std::string const& superJournal) {
  std::string const magic = "\xd9\xd5\x05\xf9\x20\xa1\x63\xd7";
  constexpr std::uint32_t pageSize = 4096;
  constexpr std::uint32_t lockPage = 0x40000000 / pageSize + 1;
  std::string journal = magic;
  for (std::uint32_t const field : {0U, 1234U, 2U, 512U, pageSize}) appendNumber(journal, field);
  journal.resize(512);
  appendNumber(journal, lockPage);
  journal += superJournal;
  appendNumber(journal, static_cast<std::uint32_t>(superJournal.size()));
  std::uint32_t sum = 0;
  for (char const c : superJournal) sum += static_cast<std::uint32_t>(static_cast<signed char>(c));
  appendNumber(journal, sum);
  return journal + magic;
}

std::string contents(std::filesystem::path const& path) {
  std::ifstream file(path, std::ios::binary);
  return {std::istreambuf_iterator<char>(file), {}};
}

std::ptrdiff_t openDescriptors() { return std::distance(std::filesystem::directory_iterator("/proc/self/fd"), {}); }

class GuardVFSInAFolder : public testing::Test {
 protected:
  TemporaryFolder const folder;
  std::filesystem::path const path = folder / "t.db";
  TemporaryDatabase const database{folder, "t.db",
                                   "CREATE TABLE t(id INTEGER PRIMARY KEY, a); INSERT INTO t(a) VALUES ('x')"};
};

TEST_F(GuardVFSInAFolder, NeverDeletesAFileThatAPlantedJournalNames) {
  for (char const* const name : {"victim.txt", "other.db-journal", "victim-mj0"}) {
    SCOPED_TRACE(name);
    folder.write(name, "a person's file\n");
    folder.write("t.db-journal", journalNaming((folder / name).string()));
    DatabaseError const refused = insertFailure(path);
    EXPECT_NE(refused.code, -1) << "the planted journal was obeyed";
    EXPECT_EQ(contents(folder / name), "a person's file\n");
  }
}

TEST_F(GuardVFSInAFolder, NeverDeletesTheJournalOfAnotherOpenDatabaseThatAPlantedJournalNames) {
  TemporaryDatabase const victim(folder, "victim.db", "CREATE TABLE t(a)");
  auto const connection = openWritable(victim.path());
  connection->execute("BEGIN IMMEDIATE");
  connection->execute("INSERT INTO t VALUES (1)");
  connection->execute("PRAGMA cache_spill = 0");
  folder.write("t.db-journal", journalNaming((folder / "victim.db-journal").string()));
  DatabaseError const refused = insertFailure(path);
  EXPECT_EQ(refused.code, SQLITE_IOERR_DELETE);
  EXPECT_TRUE(std::filesystem::exists(folder / "victim.db-journal"));
  connection->execute("COMMIT");
  EXPECT_EQ(victim.rows("SELECT a FROM t"), "1");
}

TEST_F(GuardVFSInAFolder, CommitsToSeveralDatabasesAtOnce) {
  TemporaryDatabase const other(folder, "other.db", "CREATE TABLE t(a)");
  auto const connection = openWritable(path);
  connection->execute("ATTACH ? AS other", {other.path().string()});
  for (int round = 0; round < 2; ++round) {
    connection->execute("BEGIN");
    connection->execute("INSERT INTO main.t(a) VALUES ('both')");
    connection->execute("INSERT INTO other.t(a) VALUES ('both')");
    connection->execute("COMMIT");
  }
  EXPECT_EQ(database.rows("SELECT count(*) FROM t"), "3");
  EXPECT_EQ(other.rows("SELECT count(*) FROM t"), "2");
  EXPECT_EQ(folder.names(), (std::vector<std::string>{"other.db", "t.db"}));
}

TEST_F(GuardVFSInAFolder, DeletesOnlyWhatIsNamedAsSQLiteNamesSuperJournals) {
  for (char const* const name : {"x-mj012ABCAEF", "x-mj012ABC8EF", "x-mj012abc9ef", "x-mj012ABC9E", "-mj012ABC9E"}) {
    SCOPED_TRACE(name);
    folder.write(name, "a person's file\n");
    folder.write("t.db-journal", journalNaming((folder / name).string()));
    EXPECT_EQ(insertFailure(path).code & 0xFF, SQLITE_CANTOPEN);
    EXPECT_EQ(contents(folder / name), "a person's file\n");
  }
}

TEST_F(GuardVFSInAFolder, LetsSQLiteDeleteItsOwnSuperJournal) {
  std::string const superJournal = path.string() + "-mj012ABC9EF";
  folder.write("t.db-mj012ABC9EF", path.string() + "-journal" + std::string(1, '\0'));
  folder.write("t.db-journal", journalNaming(superJournal));
  openWritable(path)->execute("INSERT INTO t(a) VALUES ('y')");
  EXPECT_FALSE(std::filesystem::exists(superJournal));
}

TEST_F(GuardVFSInAFolder, RefusesToReadADatabaseWithAHotJournalReadOnly) {
  folder.write("t.db-journal", journalNaming((folder / "victim.txt").string()));
  auto const connection = SQLiteConnection::open(path, {});
  DatabaseError const error = failureOf([&] { connection->execute("SELECT * FROM t"); });
  EXPECT_EQ(error.code, 776);
  EXPECT_EQ(error.errorDescription(),
            "This database is currently read-only. attempt to write a readonly database [SELECT * FROM t]");
}

TEST_F(GuardVFSInAFolder, NeverWritesThroughACompanionThatIsALink) {
  folder.write("victim.txt", "a person's file\n");
  for (char const* const companion : {"t.db-journal", "t.db-wal", "t.db-shm"}) {
    for (bool const hard : {false, true}) {
      SCOPED_TRACE(std::string(companion) + (hard ? ", a hard link" : ", a symbolic link"));
      auto const link = folder / companion;
      if (hard)
        std::filesystem::create_hard_link(folder / "victim.txt", link);
      else
        std::filesystem::create_symlink(folder / "victim.txt", link);
      DatabaseError const refused = failureOf([&] {
        auto const connection = openWritable(path);
        if (!std::string_view(companion).ends_with("journal")) connection->execute("PRAGMA journal_mode = WAL");
        connection->execute("INSERT INTO t(a) VALUES ('y')");
      });
      EXPECT_EQ(refused.code & 0xFF, SQLITE_CANTOPEN);
      EXPECT_EQ(contents(folder / "victim.txt"), "a person's file\n");
      std::filesystem::remove(link);
      openWritable(path)->execute("PRAGMA journal_mode = DELETE");
    }
  }
}

TEST_F(GuardVFSInAFolder, NeverHangsOnACompanionThatIsAPipe) {
  for (char const* const companion : {"t.db-journal", "t.db-wal"}) {
    SCOPED_TRACE(companion);
    if (std::string_view(companion).ends_with("wal")) database.run("PRAGMA journal_mode = WAL");
    ASSERT_EQ(mkfifo((folder / companion).c_str(), 0600), 0);
    auto const read = [&](bool readOnly) {
      return failureOf([&] { SQLiteConnection::open(path, {.readOnly = readOnly})->execute("SELECT * FROM t"); }).code;
    };
    EXPECT_EQ(read(/*readOnly=*/false) & 0xFF, SQLITE_CANTOPEN);
    // A journal that cannot be read is taken for a hot one, which a read-only connection cannot roll back.
    EXPECT_EQ(read(/*readOnly=*/true), std::string_view(companion).ends_with("wal") ? SQLITE_CANTOPEN : 776);
    std::filesystem::remove(folder / companion);
  }
}

TEST_F(GuardVFSInAFolder, OpensOnlyRegularFilesAsDatabases) {
  ASSERT_EQ(mkfifo((folder / "pipe").c_str(), 0600), 0);
  std::filesystem::create_directory(folder / "folder");
  std::filesystem::create_symlink(folder / "pipe", folder / "link-to-pipe");
  for (std::filesystem::path const& other : {folder / "pipe", folder / "folder", folder / "link-to-pipe",
                                             std::filesystem::path("/dev/zero"), std::filesystem::path("/dev/null")}) {
    SCOPED_TRACE(other);
    EXPECT_EQ(failureOf([&] { SQLiteConnection::open(other, {}); }),
              DatabaseError("unable to open database file", SQLITE_CANTOPEN));
  }
}

TEST_F(GuardVFSInAFolder, FollowsALinkToADatabase) {
  std::filesystem::create_symlink(path, folder / "link.db");
  openWritable(folder / "link.db")->execute("INSERT INTO t(a) VALUES ('y')");
  EXPECT_EQ(database.rows("SELECT a FROM t"), "x\ny");
}

TEST_F(GuardVFSInAFolder, LeavesNoCompanionBehindAWriter) {
  for (char const* const mode : {"DELETE", "TRUNCATE", "PERSIST", "WAL"}) {
    SCOPED_TRACE(mode);
    auto connection = openWritable(path);
    connection->execute("PRAGMA journal_mode = " + std::string(mode));
    connection->execute("INSERT INTO t(a) VALUES ('y')");
    connection->execute("PRAGMA journal_mode = DELETE");
    connection.reset();
    EXPECT_FALSE(std::filesystem::exists(folder / "t.db-journal"));
    EXPECT_FALSE(std::filesystem::exists(folder / "t.db-wal"));
    EXPECT_FALSE(std::filesystem::exists(folder / "t.db-shm"));
  }
}

TEST_F(GuardVFSInAFolder, IsNeverTheDefault) {
  auto const connection = openWritable(path);
  ASSERT_NE(sqlite3_vfs_find(GuardVFS::name), nullptr);
  EXPECT_STRNE(sqlite3_vfs_find(nullptr)->zName, GuardVFS::name);
}

TEST_F(GuardVFSInAFolder, KeepsTheLockOfAWriterWhileItsFileIsReadOtherwise) {
  std::filesystem::create_hard_link(path, folder / "second-name.db");
  auto const connection = openWritable(path);
  connection->execute("BEGIN IMMEDIATE");
  SQLitePeer peer(path);
  for (char const* const name : {"t.db", "second-name.db"}) {
    SCOPED_TRACE(name);
    { EXPECT_GT(SafeFile(folder / name).size(), 0); }
    EXPECT_TRUE(peer.exec("INSERT INTO t(a) VALUES ('peer')").starts_with("error 5")) << "the lock was dropped";
  }
  connection->execute("COMMIT");
  EXPECT_EQ(peer.exec("INSERT INTO t(a) VALUES ('peer')"), "ok");
}

TEST_F(GuardVFSInAFolder, KeepsTheLocksOfAWriterInWALModeAsWell) {
  auto const connection = openWritable(path);
  connection->execute("PRAGMA journal_mode = WAL");
  connection->execute("BEGIN IMMEDIATE");
  SQLitePeer peer(path);
  { EXPECT_GT(SafeFile(folder / "t.db-shm").size(), 0); }
  EXPECT_TRUE(peer.exec("INSERT INTO t(a) VALUES ('peer')").starts_with("error 5")) << "the lock was dropped";
  connection->execute("COMMIT");
  EXPECT_EQ(peer.exec("INSERT INTO t(a) VALUES ('peer')"), "ok");
}

TEST_F(GuardVFSInAFolder, KeepsTheLocksOfAWriterThatLeftWALModeAndCameBack) {
  auto const connection = openWritable(path);
  for (char const* const mode : {"WAL", "DELETE", "WAL"}) {
    connection->execute("PRAGMA journal_mode = " + std::string(mode));
    connection->execute("INSERT INTO t(a) VALUES ('mode')");
  }
  connection->execute("BEGIN IMMEDIATE");
  SQLitePeer peer(path);
  { EXPECT_GT(SafeFile(folder / "t.db-shm").size(), 0); }
  EXPECT_TRUE(peer.exec("INSERT INTO t(a) VALUES ('peer')").starts_with("error 5")) << "the lock was dropped";
  connection->execute("COMMIT");
}

TEST_F(GuardVFSInAFolder, NeverOpensTheSharedMemoryOfAnOpenDatabaseAsADatabase) {
  auto const connection = openWritable(path);
  connection->execute("PRAGMA journal_mode = WAL");
  connection->execute("BEGIN IMMEDIATE");
  EXPECT_EQ(failureOf([&] { SQLiteConnection::open(folder / "t.db-shm", {}); }).code, SQLITE_CANTOPEN);
  SQLitePeer peer(path);
  EXPECT_TRUE(peer.exec("INSERT INTO t(a) VALUES ('peer')").starts_with("error 5")) << "the lock was dropped";
}

TEST_F(GuardVFSInAFolder, ReadsAnOpenDatabaseAnyNumberOfTimesWithOneDescriptor) {
  auto const connection = openWritable(path);
  { SafeFile const file(path); }
  std::ptrdiff_t const before = openDescriptors();
  for (int round = 0; round < 100; ++round) {
    EXPECT_EQ(SafeFile(path).readUpTo(16),
              (Bytes{'S', 'Q', 'L', 'i', 't', 'e', ' ', 'f', 'o', 'r', 'm', 'a', 't', ' ', '3', 0}));
  }
  EXPECT_EQ(openDescriptors(), before);
}

TEST_F(GuardVFSInAFolder, HoldsAFileUntilItsLastConnectionCloses) {
  std::ptrdiff_t const before = openDescriptors();
  auto first = openWritable(path);
  auto second = SQLiteConnection::open(path, {});
  { SafeFile const file(path); }
  EXPECT_EQ(openDescriptors(), before + 3) << "one of each connection and the one that is parked";
  first.reset();
  second.reset();
  EXPECT_EQ(openDescriptors(), before);
}

}  // namespace
}  // namespace tolva
