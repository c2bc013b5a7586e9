// SPDX-License-Identifier: Apache-2.0
#include "core/DatabaseMonitor.hpp"

#include <gtest/gtest.h>
#include <sqlite3.h>
#include <sys/stat.h>
#include <unistd.h>

#include <thread>

#include "platform/TaskCancellation.hpp"
#include "support/NoTask.hpp"
#include "support/SQLitePeer.hpp"
#include "support/TemporaryDatabase.hpp"
#include "support/TemporaryFolder.hpp"
#include "support/Unprivileged.hpp"

namespace tolva {
namespace {

namespace fs = std::filesystem;
using std::chrono::system_clock;

/// A file that is no database: a monitor does not care.
class DatabaseMonitorOfAFile : public testing::Test {
 protected:
  DatabaseObservation sample() { return monitor_.sample(noTask); }

  TemporaryFolder folder_;
  fs::path const file_ = folder_.write("t.db", "12345");
  DatabaseMonitor monitor_{file_};
};

/// Changes what a stamp holds, whatever the resolution of the file system's clock.
void touch(fs::path const& file) { fs::last_write_time(file, fs::last_write_time(file) + std::chrono::seconds(7)); }

TEST_F(DatabaseMonitorOfAFile, CountsTheFirstSampleAsNoChange) {
  EXPECT_EQ(sample(), DatabaseObservation());
  EXPECT_EQ(sample(), DatabaseObservation());
}

TEST_F(DatabaseMonitorOfAFile, CountsEachChangeOnce) {
  sample();
  auto const before = system_clock::now();
  touch(file_);
  auto const changed = sample();
  EXPECT_EQ(changed.revision, 1);
  EXPECT_GE(changed.lastChange, before);
  EXPECT_LE(changed.lastChange, system_clock::now());
  EXPECT_EQ(sample(), changed);
  touch(file_);
  touch(file_);
  auto const again = sample();
  EXPECT_EQ(again.revision, 2);
  EXPECT_GT(again.lastChange, changed.lastChange);
  EXPECT_FALSE(again.requiresReopen);
}

TEST_F(DatabaseMonitorOfAFile, NoticesAChangeOfAnyKind) {
  sample();
  std::uint64_t revision = 0;
  auto const expectChange = [&](char const* says, auto&& change) {
    SCOPED_TRACE(says);
    std::this_thread::sleep_for(std::chrono::milliseconds(20));  // longer than the file system's clock stands still
    change();
    EXPECT_EQ(sample().revision, ++revision);
  };
  expectChange("the size", [&] { fs::resize_file(file_, 6); });
  expectChange("the content alone", [&] { folder_.write("t.db", "654321"); });
  expectChange("the permissions", [&] { ::chmod(file_.c_str(), 0604); });
  expectChange("a further name", [&] { fs::create_hard_link(file_, folder_ / "other"); });
  expectChange("-wal comes", [&] { folder_.write("t.db-wal", ""); });
  expectChange("-wal grows", [&] { folder_.write("t.db-wal", "123"); });
  expectChange("-shm comes", [&] { folder_.write("t.db-shm", ""); });
  expectChange("-wal goes", [&] { fs::remove(folder_ / "t.db-wal"); });
  expectChange("-shm goes", [&] { fs::remove(folder_ / "t.db-shm"); });
  EXPECT_FALSE(sample().requiresReopen);
  folder_.write("t.db-journal", "");
  EXPECT_EQ(sample().revision, revision);
}

TEST_F(DatabaseMonitorOfAFile, TellsOfTheCompanions) {
  EXPECT_EQ(sample().walBytes, std::nullopt);
  EXPECT_FALSE(sample().shmPresent);
  folder_.write("t.db-wal", "123");
  folder_.write("t.db-shm", "");
  EXPECT_EQ(sample().walBytes, 3);
  EXPECT_TRUE(sample().shmPresent);
  EXPECT_FALSE(sample().unavailable);
}

TEST_F(DatabaseMonitorOfAFile, RequiresAReopeningForGoodAfterAReplacement) {
  sample();
  fs::create_hard_link(file_, folder_ / "kept");
  folder_.write("new", "12345");
  fs::rename(folder_ / "new", file_);
  EXPECT_TRUE(sample().requiresReopen);
  fs::rename(folder_ / "kept", file_);
  EXPECT_TRUE(sample().requiresReopen);
  EXPECT_FALSE(sample().unavailable);
  EXPECT_FALSE(DatabaseMonitor(file_).sample(noTask).requiresReopen);
}

TEST_F(DatabaseMonitorOfAFile, RequiresAReopeningForGoodAfterADeletion) {
  sample();
  fs::rename(file_, folder_ / "away");
  auto const gone = sample();
  EXPECT_TRUE(gone.requiresReopen);
  EXPECT_FALSE(gone.unavailable);
  EXPECT_EQ(gone.revision, 1);
  fs::rename(folder_ / "away", file_);
  EXPECT_TRUE(sample().requiresReopen);
  EXPECT_EQ(sample().revision, 2);
}

TEST_F(DatabaseMonitorOfAFile, DoesNotNoticeWhatIsUndoneBetweenSamplesButItsTrace) {
  sample();
  std::this_thread::sleep_for(std::chrono::milliseconds(20));
  fs::rename(file_, folder_ / "away");
  fs::rename(folder_ / "away", file_);
  EXPECT_FALSE(sample().requiresReopen);
  EXPECT_EQ(sample().revision, 1);  // a renaming changes the status
}

TEST_F(DatabaseMonitorOfAFile, RequiresAReopeningOfWhatWasNotThereAtFirst) {
  DatabaseMonitor early(folder_ / "later.db");
  EXPECT_TRUE(early.sample(noTask).requiresReopen);
  folder_.write("later.db", "1");
  auto const there = early.sample(noTask);
  EXPECT_TRUE(there.requiresReopen);
  EXPECT_EQ(there.revision, 1);
  EXPECT_FALSE(there.unavailable);
}

TEST_F(DatabaseMonitorOfAFile, FollowsLinks) {
  fs::create_symlink("t.db", folder_ / "link.db");
  DatabaseMonitor linked(folder_ / "link.db");
  linked.sample(noTask);
  touch(file_);
  EXPECT_EQ(linked.sample(noTask).revision, 1);
  EXPECT_FALSE(linked.sample(noTask).requiresReopen);
}

TEST_F(DatabaseMonitorOfAFile, LooksForTheCompanionsBesideALinkAndNotBesideWhatItLeadsTo) {
  fs::create_directory(folder_ / "elsewhere");
  fs::create_symlink("../t.db", folder_ / "elsewhere/t.db");
  DatabaseMonitor linked(folder_ / "elsewhere/t.db");
  linked.sample(noTask);
  folder_.write("t.db-wal", "123");
  EXPECT_EQ(linked.sample(noTask).walBytes, std::nullopt);
  EXPECT_EQ(linked.sample(noTask).revision, 0);
  EXPECT_EQ(DatabaseMonitor(fs::canonical(folder_ / "elsewhere/t.db")).sample(noTask).walBytes, 3);
}

TEST_F(DatabaseMonitorOfAFile, TakesAPathThatNamesNothingForAFileThatIsMissing) {
  for (fs::path const& path : {fs::path(), fs::path(file_.string() + '\0')}) {
    auto const seen = DatabaseMonitor(path).sample(noTask);
    EXPECT_TRUE(seen.requiresReopen);
    EXPECT_FALSE(seen.unavailable);
    EXPECT_EQ(seen.walBytes, std::nullopt);
  }
}

TEST_F(DatabaseMonitorOfAFile, IsUnavailableWhereAFolderOfThePathIsNone) {
  auto const seen = DatabaseMonitor(file_ / "below.db").sample(noTask);
  EXPECT_TRUE(seen.unavailable);
  EXPECT_TRUE(seen.requiresReopen);
}

TEST_F(DatabaseMonitorOfAFile, RequiresAReopeningForGoodAfterOneFailedLook) {
  sample();
  fs::rename(file_, folder_ / "away");
  fs::create_symlink("t.db", file_);  // a ring
  EXPECT_TRUE(sample().unavailable);
  fs::rename(folder_ / "away", file_);
  EXPECT_FALSE(sample().unavailable);
  EXPECT_TRUE(sample().requiresReopen);
}

TEST_F(DatabaseMonitorOfAFile, IsUnavailableWhereTheSharedMemoryCannotBeLookedAt) {
  fs::create_symlink("t.db-shm", folder_ / "t.db-shm");  // a ring
  EXPECT_TRUE(sample().unavailable);
  EXPECT_FALSE(sample().shmPresent);
}

TEST_F(DatabaseMonitorOfAFile, KeepsItsPathsWhenTheProcessGoesElsewhere) {
  auto const before = fs::current_path();
  fs::current_path(folder_.path());
  DatabaseMonitor relative("t.db");
  fs::current_path("/");
  EXPECT_FALSE(relative.sample(noTask).requiresReopen);
  fs::current_path(before);
}

TEST_F(DatabaseMonitorOfAFile, IsUnavailableWhereAFileCannotBeLookedAt) {
  fs::create_symlink("t.db-wal", folder_ / "t.db-wal");  // a ring
  auto const seen = sample();
  EXPECT_TRUE(seen.unavailable);
  EXPECT_EQ(seen.walBytes, std::nullopt);
  EXPECT_FALSE(seen.requiresReopen);
  fs::remove(folder_ / "t.db-wal");
  EXPECT_FALSE(sample().unavailable);
}

TEST_F(DatabaseMonitorOfAFile, IsUnavailableWhereItMayNotLook) {
  folder_.openToEverybody();
  fs::create_directory(folder_ / "closed");
  folder_.write("closed/wal", "123");
  fs::create_symlink("closed/wal", folder_ / "t.db-wal");
  fs::permissions(folder_ / "closed", fs::perms::none);
  EXPECT_EQ(asUnprivileged([&] {
              auto const seen = sample();
              return std::string(seen.unavailable ? "unavailable" : "available") +
                     (seen.walBytes ? ", wal" : ", no wal") + (seen.requiresReopen ? ", reopen" : ", the same");
            }),
            "unavailable, no wal, the same");
  fs::permissions(folder_ / "closed", fs::perms::owner_all);
  EXPECT_EQ(sample().walBytes, 3);
}

TEST_F(DatabaseMonitorOfAFile, RequiresAReopeningOfADatabaseThatItMayNotLookAt) {
  folder_.openToEverybody();
  fs::create_directory(folder_ / "closed");
  folder_.write("closed/t.db", "1");
  fs::permissions(folder_ / "closed", fs::perms::none);
  EXPECT_EQ(asUnprivileged([&] {
              auto const seen = DatabaseMonitor(folder_ / "closed/t.db").sample(noTask);
              return std::string(seen.unavailable ? "unavailable" : "available") +
                     (seen.requiresReopen ? ", reopen" : "");
            }),
            "unavailable, reopen");
  fs::permissions(folder_ / "closed", fs::perms::owner_all);
}

TEST_F(DatabaseMonitorOfAFile, LooksAtNothingForACancelledTask) {
  std::stop_source cancelled;
  cancelled.request_stop();
  EXPECT_THROW(monitor_.sample(cancelled.get_token()), TaskCancelled);
  touch(file_);
  EXPECT_EQ(sample().revision, 0);  // still the first
}

TEST(DatabaseMonitor, SeesTheCommitsOfAnotherProcess) {
  for (char const* const mode : {"delete", "truncate", "persist", "wal"}) {
    SCOPED_TRACE(mode);
    TemporaryDatabase const database("CREATE TABLE t(a)");
    SQLitePeer peer(database.path());
    peer.rows(std::string("PRAGMA journal_mode = ") + mode);
    ASSERT_EQ(peer.exec("INSERT INTO t VALUES (0)"), "ok");
    DatabaseMonitor monitor(database.path());
    std::uint64_t revision = monitor.sample(noTask).revision;
    for (int commit = 0; commit < 3; ++commit) {
      std::this_thread::sleep_for(std::chrono::milliseconds(20));  // longer than the file system's clock stands still
      ASSERT_EQ(peer.exec("UPDATE t SET a = a + 1"), "ok");
      auto const seen = monitor.sample(noTask);
      EXPECT_GT(seen.revision, revision);
      EXPECT_FALSE(seen.requiresReopen);
      EXPECT_EQ(seen.walBytes.has_value(), std::string_view(mode) == "wal");
      EXPECT_EQ(monitor.sample(noTask).revision, seen.revision);
      revision = seen.revision;
    }
  }
}

TEST(DatabaseMonitor, LeavesTheLocksOfTheProcessAlone) {
  TemporaryDatabase const database("CREATE TABLE t(a)");
  sqlite3* writer = nullptr;
  ASSERT_EQ(sqlite3_open(database.path().c_str(), &writer), SQLITE_OK);
  rowsAsText(writer, "BEGIN EXCLUSIVE");
  DatabaseMonitor monitor(database.path());
  monitor.sample(noTask);
  SQLitePeer peer(database.path());
  EXPECT_EQ(peer.exec("INSERT INTO t VALUES (1)"), "error 5 database is locked");
  rowsAsText(writer, "COMMIT");
  sqlite3_close(writer);
}

TEST(DatabaseMonitor, AnswersManyThreadsOneAtATime) {
  TemporaryFolder const folder;
  DatabaseMonitor monitor(folder.write("t.db", "x"));
  monitor.sample(noTask);
  std::vector<std::jthread> callers;
  for (int caller = 0; caller < 4; ++caller) {
    callers.emplace_back([&] {
      std::uint64_t revision = 0;
      for (int round = 0; round < 100; ++round) {
        touch(folder / "t.db");
        auto const seen = monitor.sample(noTask);
        EXPECT_GE(seen.revision, revision);
        revision = seen.revision;
      }
    });
  }
}

}  // namespace
}  // namespace tolva
