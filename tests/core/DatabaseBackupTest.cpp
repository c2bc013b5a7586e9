// SPDX-License-Identifier: Apache-2.0
#include "core/DatabaseBackup.hpp"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sqlite3.h>
#include <sys/stat.h>

#include <algorithm>
#include <chrono>
#include <cstdarg>
#include <functional>
#include <sstream>
#include <thread>
#include <utility>

#include "core/GuardVFS.hpp"
#include "core/MemoryBudget.hpp"
#include "core/SQLiteConnection.hpp"
#include "core/SQLiteStatement.hpp"
#include "platform/UUID.hpp"
#include "support/Failure.hpp"
#include "support/FaultInjector.hpp"
#include "support/NoTask.hpp"
#include "support/SQLitePeer.hpp"
#include "support/SystemFailure.hpp"
#include "support/TemporaryDatabase.hpp"
#include "support/TemporaryFolder.hpp"
#include "support/Unprivileged.hpp"

namespace tolva {
namespace {

using namespace std::chrono_literals;
using Names = std::vector<std::string>;

std::string const twoRows = "CREATE TABLE t(a); INSERT INTO t VALUES (1),(2);";

/// A table of more pages than one step of a backup copies.
std::string const manyPages =
    "CREATE TABLE t(a); WITH RECURSIVE n(i) AS (SELECT 1 UNION ALL SELECT i + 1 FROM n WHERE i < 600) INSERT INTO t "
    "SELECT zeroblob(4000) FROM n;";

struct Scene {
  explicit Scene(std::string const& sql = twoRows)
      : database(folder, "a.db", sql), connection(SQLiteConnection::open(database.path(), {.readOnly = false})) {}

  std::filesystem::path backUp(std::stop_token task = noTask) { return makeBackup(*connection, backups, task); }

  Names names() const {
    Names names;
    for (auto const& entry : std::filesystem::recursive_directory_iterator(backups)) {
      names.push_back(entry.path().filename());
    }
    std::ranges::sort(names);
    return names;
  }

  TemporaryFolder folder;
  std::filesystem::path const backups = folder / "backups";
  TemporaryDatabase const database;
  std::shared_ptr<SQLiteConnection> connection;
};

/// Makes another folder the process's working one for a scope.
struct WorkingFolder {
  explicit WorkingFolder(std::filesystem::path const& folder) { std::filesystem::current_path(folder); }
  ~WorkingFolder() { std::filesystem::current_path(before); }
  WorkingFolder(WorkingFolder const&) = delete;
  WorkingFolder& operator=(WorkingFolder const&) = delete;

  std::filesystem::path const before = std::filesystem::current_path();
};

/// Creation dates of some file systems have steps of milliseconds.
void letTimePass() { std::this_thread::sleep_for(10ms); }

TEST(DatabaseBackup, IsACompleteCopyUnderATellingName) {
  Scene scene;
  auto const seconds = [] {
    return std::chrono::floor<std::chrono::seconds>(std::chrono::system_clock::now()).time_since_epoch().count();
  };
  auto const before = seconds();
  std::filesystem::path const backup = scene.backUp();
  EXPECT_EQ(backup.parent_path(), scene.backups);
  EXPECT_EQ(rowsAsText(backup, "SELECT a FROM t; PRAGMA integrity_check"), "1\n2\nok");
  std::string const name = backup.filename();
  std::string const prefix = "backup-";
  ASSERT_TRUE(name.starts_with(prefix)) << name;
  std::size_t const dash = name.find('-', prefix.size());
  std::string const time = name.substr(prefix.size(), dash - prefix.size());
  std::optional<UUID> const uuid = UUID::parse(name.substr(dash + 1, 36));
  ASSERT_TRUE(uuid) << name;
  EXPECT_EQ(name, prefix + time + "-" + uuid->text() + ".sqlite");
  EXPECT_GE(std::stoll(time), before);
  EXPECT_LE(std::stoll(time), seconds());
  EXPECT_EQ(scene.names(), Names{name});
}

TEST(DatabaseBackup, MakesTheFolderAndThoseAboveIt) {
  Scene scene;
  std::filesystem::path const deep = scene.folder / "one/two/three";
  EXPECT_EQ(makeBackup(*scene.connection, deep, noTask).parent_path(), deep);
  EXPECT_EQ(makeBackup(*scene.connection, deep, noTask).parent_path(), deep);
}

TEST(DatabaseBackup, AnswersWithAnAbsolutePath) {
  Scene scene;
  WorkingFolder const working(scene.folder.path());
  EXPECT_EQ(makeBackup(*scene.connection, "backups", noTask).parent_path(), scene.backups);
}

TEST(DatabaseBackup, IsReadByItsOwnerAlone) {
  Scene scene;
  struct stat status {};
  ASSERT_EQ(::stat(scene.backUp().c_str(), &status), 0);
  EXPECT_EQ(status.st_mode & 0777, 0600U);
}

TEST(DatabaseBackup, OfADatabaseInWALModeIsOneFile) {
  Scene scene("PRAGMA journal_mode = WAL;" + twoRows);
  scene.connection->execute("INSERT INTO t VALUES (3)");  // is in the log
  ASSERT_TRUE(std::filesystem::exists(scene.folder / "a.db-wal"));
  std::filesystem::path const backup = scene.backUp();
  EXPECT_EQ(scene.names(), Names{backup.filename()});
  EXPECT_EQ(rowsAsText(backup, "SELECT a FROM t; PRAGMA journal_mode"), "1\n2\n3\ndelete");
}

TEST(DatabaseBackup, OfAnEmptyDatabaseIsEmpty) {
  Scene scene("");
  EXPECT_EQ(rowsAsText(scene.backUp(), "SELECT count(*) FROM sqlite_schema"), "0");
}

TEST(DatabaseBackup, GoesOnWhileAStatementReads) {
  Scene scene;
  SQLiteStatement reading = scene.connection->prepare("SELECT a FROM t");
  ASSERT_TRUE(reading.step());
  EXPECT_EQ(rowsAsText(scene.backUp(), "SELECT a FROM t"), "1\n2");
  EXPECT_TRUE(reading.step());
}

// Pruning ------------------------------------------------------------------------------------------

bool keepsCreationDates(std::filesystem::path const& folder) {
  struct statx status {};
  return ::statx(AT_FDCWD, folder.c_str(), 0, STATX_BTIME, &status) == 0 && (status.stx_mask & STATX_BTIME) != 0;
}

TEST(DatabaseBackup, KeepsTheNewestFourAndTheNewOne) {
  Scene scene;
  if (!keepsCreationDates(scene.folder.path())) GTEST_SKIP() << "this file system keeps no creation dates";
  Names made;
  for (int backup = 0; backup < 6; ++backup) {
    made.push_back(scene.backUp().filename());
    letTimePass();
  }
  std::sort(made.begin() + 1, made.end());
  EXPECT_EQ(scene.names(), Names(made.begin() + 1, made.end()));
}

/// Whatever their names say.
TEST(DatabaseBackup, PrunesByTheDateOfCreation) {
  Scene scene;
  if (!keepsCreationDates(scene.folder.path())) GTEST_SKIP() << "this file system keeps no creation dates";
  std::filesystem::create_directories(scene.backups);
  for (char const* const name : {"backups/backup-9.sqlite", "backups/backup-1.sqlite", "backups/backup-.sqlite",
                                 "backups/backup-5.sqlite", "backups/backup-0.sqlite"}) {
    scene.folder.write(name, "");
    letTimePass();
  }
  std::string const made = scene.backUp().filename();
  Names expected{"backup-.sqlite", "backup-0.sqlite", "backup-1.sqlite", "backup-5.sqlite", made};
  std::ranges::sort(expected);
  EXPECT_EQ(scene.names(), expected);
}

TEST(DatabaseBackup, PrunesNothingElse) {
  Scene scene;
  std::filesystem::create_directories(scene.backups / "backup-folder.sqlite");
  Names others{"backup-folder.sqlite"};
  for (std::string const name : {"backup-notes.txt", "other.sqlite", "Backup-1.sqlite", "backup-1.SQLITE",
                                 "backup-2.sqlite.old", "backup-3.sqlite-journal", "backup-4sqlite"}) {
    scene.folder.write("backups/" + name, "");
    others.push_back(name);
  }
  std::filesystem::create_symlink(scene.database.path(), scene.backups / "backup-link.sqlite");
  others.emplace_back("backup-link.sqlite");
  for (int backup = 0; backup < 5; ++backup) others.push_back(scene.backUp().filename());
  std::ranges::sort(others);
  EXPECT_EQ(scene.names(), others);
}

/// Of a database that lies among its own backups, and is the oldest there.
TEST(DatabaseBackup, NeverPrunesItsSource) {
  for (std::string const mode : {"DELETE", "WAL"}) {
    SCOPED_TRACE(mode);
    TemporaryFolder const folder;
    TemporaryDatabase const source(folder, "backup-1.sqlite", "PRAGMA journal_mode = " + mode + ";" + twoRows);
    auto const connection = SQLiteConnection::open(source.path(), {.readOnly = false});
    for (int backup = 0; backup < 7; ++backup) {
      letTimePass();
      makeBackup(*connection, folder.path(), noTask);
    }
    EXPECT_EQ(source.rows("SELECT a FROM t"), "1\n2");
    connection->execute("INSERT INTO t VALUES (3)");
    EXPECT_EQ(source.rows("SELECT a FROM t"), "1\n2\n3");
  }
}

TEST(DatabaseBackup, PrunesNoBackupThatIsOpen) {
  Scene scene;
  std::filesystem::path const first = scene.backUp();
  auto opened = SQLiteConnection::open(first, {});
  for (int backup = 0; backup < 6; ++backup) {
    letTimePass();
    scene.backUp();
  }
  EXPECT_EQ(rowsAsText(first, "SELECT a FROM t"), "1\n2");
  EXPECT_EQ(scene.names().size(), 6U);
  opened.reset();
  scene.backUp();
  EXPECT_FALSE(std::filesystem::exists(first));
  EXPECT_EQ(scene.names().size(), 5U);
}

TEST(DatabaseBackup, LeavesWhatItCannotDelete) {
  Scene scene;
  for (int backup = 0; backup < 5; ++backup) scene.backUp();
  bool const struck =
      FaultInjector::failing(scene.backups, FaultInjector::count(scene.backups, [&] { scene.backUp(); }), EACCES,
                             /*persistent=*/false, [&] { scene.backUp(); });
  EXPECT_TRUE(struck);
  EXPECT_EQ(scene.names().size(), 6U);
  scene.backUp();
  EXPECT_EQ(scene.names().size(), 5U);
}

// Failing ------------------------------------------------------------------------------------------

std::stop_token cancelledTask() {
  std::stop_source task;
  task.request_stop();
  return task.get_token();
}

TEST(DatabaseBackup, OfACancelledTaskIsNone) {
  Scene scene(manyPages);
  DatabaseError const failure = failureOf([&] { scene.backUp(cancelledTask()); });
  EXPECT_EQ(failure, DatabaseError("interrupted", 9));
  EXPECT_TRUE(failure.isCancellation());
  EXPECT_EQ(failure.errorDescription(), "Cancelled");
  EXPECT_EQ(scene.names(), Names{});
}

TEST(DatabaseBackup, TakesNoNoteOfTheMessageOfAnEarlierFailure) {
  Scene scene;
  failureOf([&] { scene.connection->execute("SELECT * FROM nothing"); });
  EXPECT_EQ(failureOf([&] { scene.backUp(cancelledTask()); }), DatabaseError("interrupted", 9));
}

/// Does something whenever SQLite would sleep before it asks for a lock again, for a scope. One at a time.
class InsteadOfSleep {
 public:
  explicit InsteadOfSleep(std::function<void()> action)
      : vfs_(sqlite3_vfs_find(GuardVFS::name)), before_(vfs_->xSleep) {
    action_ = std::move(action);
    vfs_->xSleep = [](sqlite3_vfs*, int microseconds) {
      action_();
      return microseconds;
    };
  }
  ~InsteadOfSleep() { vfs_->xSleep = before_; }
  InsteadOfSleep(InsteadOfSleep const&) = delete;
  InsteadOfSleep& operator=(InsteadOfSleep const&) = delete;

 private:
  static inline std::function<void()> action_;
  sqlite3_vfs* const vfs_;
  int (*const before_)(sqlite3_vfs*, int);
};

/// Not even for one that would be gone at the second try.
TEST(DatabaseBackup, WaitsForNoLock) {
  Scene scene;
  SQLitePeer peer(scene.database.path());
  ASSERT_EQ(peer.exec("BEGIN EXCLUSIVE"), "ok");
  {
    InsteadOfSleep const release([&] { peer.exec("COMMIT"); });
    EXPECT_EQ(failureOf([&] { scene.backUp(); }), DatabaseError("database is locked", SQLITE_BUSY));
    EXPECT_EQ(scene.names(), Names{});
    scene.connection->execute("INSERT INTO t VALUES (3)");  // does wait
  }
  EXPECT_EQ(rowsAsText(scene.backUp(), "SELECT a FROM t"), "1\n2\n3");
}

TEST(DatabaseBackup, LeavesTheConnectionsTimeOfWaiting) {
  Scene scene;
  auto const timeout = [&] {
    SQLiteStatement asked = scene.connection->prepare("PRAGMA busy_timeout");
    asked.step();
    return asked.value(0, /*full=*/true).display();
  };
  scene.backUp();
  EXPECT_EQ(timeout(), "1200");
  scene.connection->execute("PRAGMA busy_timeout = 77");
  scene.backUp();
  EXPECT_EQ(timeout(), "77");
  EXPECT_TRUE(failureOf([&] { scene.backUp(cancelledTask()); }).isCancellation());
  EXPECT_EQ(timeout(), "77");
}

TEST(DatabaseBackup, FailsInsideATransactionThatWrites) {
  Scene scene;
  scene.connection->execute("BEGIN IMMEDIATE");
  EXPECT_EQ(failureOf([&] { scene.backUp(); }), DatabaseError("database is locked", SQLITE_BUSY));
  EXPECT_EQ(scene.names(), Names{});
}

/// The system would end the name at the NUL and make another folder.
TEST(DatabaseBackup, MakesNoFolderOfANameWithANUL) {
  Scene scene;
  std::filesystem::path const folder = scene.folder / std::string("cut\0off", 7);
  EXPECT_EQ(failureOf([&] { makeBackup(*scene.connection, folder, noTask); }),
            DatabaseError("unable to open database file", SQLITE_CANTOPEN));
  EXPECT_FALSE(std::filesystem::exists(scene.folder / "cut"));
}

TEST(DatabaseBackup, OfWhatIsNoDatabaseIsNone) {
  Scene scene;
  std::string const text = "this is a text of a few lines\n";
  std::string lines;
  for (int line = 0; line < 100; ++line) lines += text;
  scene.folder.write("text.db", lines);
  auto const connection = SQLiteConnection::open(scene.folder / "text.db", {});
  EXPECT_EQ(failureOf([&] { makeBackup(*connection, scene.backups, noTask); }),
            DatabaseError("file is not a database", SQLITE_NOTADB));
  EXPECT_EQ(scene.names(), Names{});
}

/// A file whose end is missing.
TEST(DatabaseBackup, OfADamagedDatabaseIsNone) {
  Scene scene(manyPages);
  scene.connection.reset();
  std::filesystem::resize_file(scene.database.path(), 100 * 4'096);
  scene.connection = SQLiteConnection::open(scene.database.path(), {.readOnly = false});
  EXPECT_EQ(failureOf([&] { scene.backUp(); }), DatabaseError("database disk image is malformed", SQLITE_CORRUPT));
  EXPECT_EQ(scene.names(), Names{});
}

// Between two steps --------------------------------------------------------------------------------

/// Does something once, when a step of a backup has let go of its source, which has a rollback journal: then SQLite
/// takes back all locks on it. SQLite is given another `fcntl` for a scope; the action is not to use SQLite. One at a
/// time.
class AfterStep {
 public:
  AfterStep(std::filesystem::path const& source, int step, std::function<void()> action) {
    EXPECT_EQ(::stat(source.c_str(), &source_), 0);
    action_ = std::move(action);
    left_ = step;
    replaceCall(reinterpret_cast<sqlite3_syscall_ptr>(call));
  }
  ~AfterStep() { replaceCall(nullptr); }
  AfterStep(AfterStep const&) = delete;
  AfterStep& operator=(AfterStep const&) = delete;

  static bool came() { return left_ <= 0; }

 private:
  static void replaceCall(sqlite3_syscall_ptr call) {
    sqlite3_vfs* const vfs = sqlite3_vfs_find("unix");
    ASSERT_TRUE(vfs);
    ASSERT_EQ(vfs->xSetSystemCall(vfs, "fcntl", call), SQLITE_OK);
  }

  static int call(int file, int command, ...) {
    va_list rest;
    va_start(rest, command);
    void* const argument = va_arg(rest, void*);
    va_end(rest);
    int const result = ::fcntl(file, command, argument);
    if (command == F_SETLK && isAll(*static_cast<struct flock const*>(argument)) && isSource(file) && --left_ == 0) {
      action_();
    }
    return result;
  }

  static bool isAll(struct flock const& lock) { return lock.l_type == F_UNLCK && lock.l_start == 0 && lock.l_len == 0; }

  static bool isSource(int file) {
    struct stat status {};
    return ::fstat(file, &status) == 0 && status.st_dev == source_.st_dev && status.st_ino == source_.st_ino;
  }

  static inline struct stat source_ {};
  static inline std::function<void()> action_;
  static inline int left_ = 0;
};

TEST(DatabaseBackup, OfATaskThatIsCancelledBetweenTwoStepsIsNone) {
  for (int const step : {1, 2}) {
    SCOPED_TRACE(step);
    Scene scene(manyPages);
    std::stop_source source;
    AfterStep const after(scene.database.path(), step, [&] { source.request_stop(); });
    EXPECT_EQ(failureOf([&] { scene.backUp(source.get_token()); }), DatabaseError("interrupted", 9));
    EXPECT_TRUE(AfterStep::came());
    EXPECT_EQ(scene.names(), Names{});
  }
}

/// The page was copied in the first step already.
std::string const changeAPage = "UPDATE t SET a = 'written meanwhile' WHERE rowid = 1";
std::string const lookAtThatPage = "SELECT a FROM t WHERE rowid = 1; SELECT count(*) FROM t; PRAGMA integrity_check";

TEST(DatabaseBackup, HoldsWhatAnotherProcessWroteBetweenTwoSteps) {
  Scene scene(manyPages);
  SQLitePeer peer(scene.database.path());
  AfterStep const after(scene.database.path(), 1, [&] { EXPECT_EQ(peer.exec(changeAPage), "ok"); });
  std::filesystem::path const backup = scene.backUp();
  EXPECT_TRUE(AfterStep::came());
  EXPECT_EQ(rowsAsText(backup, lookAtThatPage), "written meanwhile\n600\nok");
}

/// The number of the first call with which a backup writes pages, which it does within a step.
long firstWriteOf(Scene& scene) {
  FaultInjector const injector(scene.backups);
  scene.backUp();
  std::istringstream trace(injector.trace());
  long number = 0;
  for (std::string call; call != "pwrite" && trace >> call;) ++number;
  return number;
}

/// In WAL mode a writer need not wait for the end of a step.
TEST(DatabaseBackup, HoldsWhatAnotherProcessWroteWithinAStep) {
  Scene scene("PRAGMA journal_mode = WAL;" + manyPages);
  std::filesystem::create_directories(scene.backups);
  long const first = firstWriteOf(scene);
  SQLitePeer peer(scene.database.path());
  std::string told;
  std::filesystem::path backup;
  EXPECT_TRUE(FaultInjector::before(
      scene.backups, first, [&] { told = peer.exec(changeAPage); }, [&] { backup = scene.backUp(); }));
  EXPECT_EQ(told, "ok");
  EXPECT_EQ(rowsAsText(backup, lookAtThatPage), "written meanwhile\n600\nok");
}

TEST(DatabaseBackup, WaitsForNoLockThatIsTakenBetweenTwoSteps) {
  Scene scene(manyPages);
  SQLitePeer peer(scene.database.path());
  {
    AfterStep const after(scene.database.path(), 1, [&] { EXPECT_EQ(peer.exec("BEGIN EXCLUSIVE"), "ok"); });
    EXPECT_EQ(failureOf([&] { scene.backUp(); }), DatabaseError("database is locked", SQLITE_BUSY));
    EXPECT_TRUE(AfterStep::came());
  }
  EXPECT_EQ(scene.names(), Names{});
  ASSERT_EQ(peer.exec("COMMIT"), "ok");
  EXPECT_EQ(rowsAsText(scene.backUp(), "SELECT count(*) FROM t"), "600");
}

TEST(DatabaseBackup, SaysInTheSystemsWordsThatTheFolderCannotBeMade) {
  Scene scene;
  scene.folder.write("backups", "a file");
  EXPECT_EQ(systemFailureOf([&] { makeBackup(*scene.connection, scene.backups / "deeper", noTask); }),
            "ENOTDIR deeper");
}

TEST(DatabaseBackup, SaysThatItCannotBeOpenedInAFolderThatMayNotBeWritten) {
  Scene scene;
  scene.folder.openToEverybody();
  ASSERT_EQ(::chmod(scene.database.path().c_str(), 0644), 0);
  std::filesystem::create_directories(scene.backups);
  ASSERT_EQ(::chmod(scene.backups.c_str(), 0555), 0);
  EXPECT_EQ(asUnprivileged([&] {
              auto const connection = SQLiteConnection::open(scene.database.path(), {});
              DatabaseError const failure = failureOf([&] { makeBackup(*connection, scene.backups, noTask); });
              return std::to_string(failure.code) + " " + failure.detail;
            }),
            "14 unable to open database file");
}

/// A folder that may be written but not listed.
TEST(DatabaseBackup, StaysWhenTheFolderCannotBeListed) {
  Scene scene;
  scene.folder.openToEverybody();
  ASSERT_EQ(::chmod(scene.database.path().c_str(), 0644), 0);
  std::filesystem::create_directories(scene.backups);
  ASSERT_EQ(::chmod(scene.backups.c_str(), 0333), 0);
  std::string const told = asUnprivileged([&] {
    auto const connection = SQLiteConnection::open(scene.database.path(), {});
    return systemFailureOf([&] { makeBackup(*connection, scene.backups, noTask); });
  });
  ASSERT_EQ(::chmod(scene.backups.c_str(), 0777), 0);
  EXPECT_EQ(told, "EACCES backups");
  EXPECT_EQ(scene.names().size(), 1U);
}

TEST(DatabaseBackup, LeavesNothingWhenMemoryRunsOut) {
  Scene scene;
  std::filesystem::create_directories(scene.backups);
  int failed = 0;
  for (std::int64_t bytes = 0; scene.names().empty(); bytes += 2'048) {
    MemoryBudget const budget(bytes);
    DatabaseError const failure = failureOf([&] { scene.backUp(); });
    if (failure.code == -1) break;
    ++failed;
    ASSERT_EQ(failure.code & 0xFF, SQLITE_NOMEM) << failure.detail;
    ASSERT_EQ(scene.names(), Names{}) << bytes;
  }
  EXPECT_GT(failed, 10);
  EXPECT_EQ(scene.names().size(), 1U);
}

// Faults -------------------------------------------------------------------------------------------

class DatabaseBackupFaults : public testing::TestWithParam<std::string> {};

Names hidden(Names const& names) {
  Names found;
  for (std::string const& name : names) {
    if (name.starts_with('.')) found.push_back(name);
  }
  return found;
}

TEST_P(DatabaseBackupFaults, LeaveAWholeBackupOrNone) {
  Scene scene("PRAGMA journal_mode = " + GetParam() + ";" + manyPages);
  auto const prepare = [&] {
    std::filesystem::remove_all(scene.backups);
    std::filesystem::create_directories(scene.backups);
    for (char const* const name : {"1", "2", "3", "4", "5"}) {
      scene.folder.write("backups/backup-" + std::string(name) + ".sqlite", "old");
    }
  };
  long const calls = forEachFault(
      scene.backups, prepare, [&] { scene.backUp(); },
      [&](FaultMode, long, FaultOutcome const& outcome) {
        std::size_t whole = 0;
        for (std::string const& name : scene.names()) {
          if (name.starts_with('.') || scene.folder.read("backups/" + name) == "old") continue;
          EXPECT_EQ(
              rowsAsText(scene.backups / name, "SELECT count(*) FROM t; PRAGMA integrity_check; PRAGMA journal_mode"),
              "600\nok\ndelete");
          for (char const* const suffix : {"-journal", "-wal", "-shm"}) {
            EXPECT_FALSE(std::filesystem::exists((scene.backups / name).string() + suffix)) << outcome.text;
          }
          ++whole;
        }
        if (outcome.told != FaultOutcome::Told::nothing) {
          bool const succeeded = outcome.told == FaultOutcome::Told::success;
          EXPECT_EQ(whole, succeeded ? 1U : 0U) << outcome.text;
          EXPECT_EQ(hidden(scene.names()), Names{}) << outcome.text;
        }
        EXPECT_EQ(rowsAsText(scene.database.path(), "SELECT count(*) FROM t"), "600");
        EXPECT_EQ(rowsAsText(scene.backUp(), "SELECT count(*) FROM t"), "600");
      },
      /*most=*/60);
  EXPECT_GE(calls, 10);
  std::filesystem::remove_all(scene.backups);  // with what the kills left
}

INSTANTIATE_TEST_SUITE_P(InEachJournalMode, DatabaseBackupFaults, testing::Values("DELETE", "WAL"),
                         [](auto const& mode) { return mode.param; });

}  // namespace
}  // namespace tolva
