// SPDX-License-Identifier: Apache-2.0
#include <gtest/gtest.h>
#include <sqlite3.h>

#include <filesystem>
#include <string>
#include <vector>

#include "core/DatabaseReader.hpp"
#include "core/SQLiteConnection.hpp"
#include "core/SQLiteStatement.hpp"
#include "support/Failure.hpp"
#include "support/NoTask.hpp"
#include "support/SQLitePeer.hpp"
#include "support/TemporaryDatabase.hpp"
#include "support/TemporaryFolder.hpp"
#include "support/Unprivileged.hpp"

// What a read-only open does to a database in write-ahead mode (https://sqlite.org/wal.html#readonly) and to its
// folder.

namespace tolva {
namespace {

using Names = std::vector<std::string>;

std::string listed(std::vector<DatabaseObject> const& objects) {
  std::string names;
  for (DatabaseObject const& object : objects) names += object.name + " ";
  return names;
}

/// The names of the tables that a reader finds, or its failure as "CODE TEXT".
std::string opened(std::filesystem::path const& path) {
  try {
    return listed(DatabaseReader().open(path, noTask));
  } catch (DatabaseError const& error) {
    return std::to_string(error.code) + " " + error.errorDescription();
  }
}

/// A folder that everybody may search, with a database in write-ahead mode that everybody may read.
class WALDatabase : public testing::Test {
 protected:
  WALDatabase() { folder.openToEverybody(); }
  ~WALDatabase() override { std::filesystem::permissions(folder.path(), std::filesystem::perms::owner_all); }

  void refuseNewFiles() const {
    using enum std::filesystem::perms;
    std::filesystem::permissions(folder.path(),
                                 owner_read | owner_exec | group_read | group_exec | others_read | others_exec);
  }

  TemporaryFolder folder;
  TemporaryDatabase const database{folder, "t.db", "PRAGMA journal_mode = WAL; CREATE TABLE a(b)"};
};

TEST_F(WALDatabase, KeepsItsCompanionsAfterAReadOnlyOpen) {
  ASSERT_EQ(folder.names(), Names{"t.db"});
  std::string const before = folder.read("t.db");
  EXPECT_EQ(opened(database.path()), "a ");
  EXPECT_EQ(folder.names(), (Names{"t.db", "t.db-shm", "t.db-wal"}));
  EXPECT_EQ(folder.read("t.db-wal"), "");
  EXPECT_EQ(folder.read("t.db"), before);
  EXPECT_EQ(opened(database.path()), "a ") << "with the companions that are there now";
  database.run("CREATE TABLE c(d)");
  EXPECT_EQ(folder.names(), Names{"t.db"}) << "the next program that writes removes them";
}

TEST_F(WALDatabase, FailsWhereItsCompanionsCannotBeMade) {
  refuseNewFiles();
  EXPECT_EQ(asUnprivileged([&] { return opened(database.path()); }),
            "1544 This database is currently read-only. attempt to write a readonly database");
  EXPECT_EQ(folder.names(), Names{"t.db"});
}

TEST_F(WALDatabase, FailsWhereItsCompanionsCannotBeMadeOnlyOnceItIsRead) {
  refuseNewFiles();
  EXPECT_EQ(asUnprivileged([&] {
              auto const connection = SQLiteConnection::open(database.path(), {});
              return std::to_string(failureOf([&] { connection->prepare("SELECT * FROM a"); }).code);
            }),
            "1544");
}

TEST_F(WALDatabase, IsReadThroughTheCompanionsOfALiveWriterInAFolderThatCannotBeWritten) {
  SQLitePeer writer(database.path());
  ASSERT_EQ(writer.exec("CREATE TABLE latest(x)"), "ok");
  ASSERT_EQ(folder.names(), (Names{"t.db", "t.db-shm", "t.db-wal"}));
  refuseNewFiles();
  EXPECT_EQ(asUnprivileged([&] { return opened(database.path()); }), "a latest ");
}

TEST_F(WALDatabase, IsReadWithTheLatestCommitOfALiveWriter) {
  SQLitePeer writer(database.path());
  DatabaseReader reader;
  EXPECT_EQ(listed(reader.open(database.path(), noTask)), "a ");
  ASSERT_EQ(writer.exec("CREATE TABLE committed(x)"), "ok");
  EXPECT_EQ(listed(reader.objects()), "a committed ");
  ASSERT_EQ(writer.exec("BEGIN IMMEDIATE"), "ok");
  ASSERT_EQ(writer.exec("CREATE TABLE pending(x)"), "ok");
  EXPECT_EQ(listed(reader.objects()), "a committed ") << "what is not committed is not there";
  EXPECT_NE(reader.preview(database.path(), noTask).find("\n\n2 tables ·"), std::string::npos);
  ASSERT_EQ(writer.exec("COMMIT"), "ok");
  EXPECT_EQ(listed(reader.objects()), "a committed pending ");
  EXPECT_NE(reader.preview(database.path(), noTask).find("\n\n3 tables ·"), std::string::npos);
}

TEST_F(WALDatabase, IsPreviewedWithoutItsLogWhenNothingWasCommittedSince) {
  SQLitePeer writer(database.path());
  ASSERT_EQ(writer.exec("CREATE TABLE c(d)"), "ok");
  ASSERT_EQ(writer.rows("PRAGMA wal_checkpoint(TRUNCATE)"), "0|0|0");
  EXPECT_EQ(folder.read("t.db-wal"), "");
  EXPECT_EQ(opened(database.path()), "a c ");
}

TEST_F(WALDatabase, RecoversTheCommitsOfAWriterThatDied) {
  {
    SQLitePeer writer(database.path());
    ASSERT_EQ(writer.exec("CREATE TABLE c(d)"), "ok");
    for (char const* const name : {"t.db", "t.db-wal"})
      std::filesystem::copy_file(folder / name, folder / ("copy" + std::string(name).substr(1)));
  }
  ASSERT_EQ(folder.names(), (Names{"copy.db", "copy.db-wal", "t.db"}));
  std::string const log = folder.read("copy.db-wal");
  EXPECT_EQ(opened(folder / "copy.db"), "a c ");
  EXPECT_EQ(folder.read("copy.db-wal"), log) << "a reader moves nothing into the database";
}

}  // namespace
}  // namespace tolva
