// SPDX-License-Identifier: Apache-2.0
#include "snapshots/SnapshotCopy.hpp"

#include <gtest/gtest.h>
#include <sqlite3.h>
#include <sys/stat.h>

#include <optional>
#include <string>
#include <vector>

#include "core/SQLiteStatement.hpp"
#include "support/AuthorizerOfAll.hpp"
#include "support/Descriptors.hpp"
#include "support/Failure.hpp"
#include "support/FaultInjector.hpp"
#include "support/NoTask.hpp"
#include "support/SQLitePeer.hpp"
#include "support/TemporaryDatabase.hpp"

namespace tolva {
namespace {

struct Scene {
  explicit Scene(std::string const& sql = "CREATE TABLE t(a); INSERT INTO t VALUES (1),(2);")
      : database(folder, "a.db", sql), connection(SQLiteConnection::open(database.path(), {})) {
    std::filesystem::create_directories(store.root() / "source");
    staging.emplace(store, store.root() / "source");
  }

  void copy(SourceValidation const& validate = {}, SnapshotLimits const& limits = {}) const {
    copySnapshot(*connection, *staging, limits, {}, validate, noTask);
  }

  TemporaryFolder folder;
  TemporaryDatabase const database;
  SnapshotStore const store{folder / "store"};
  std::shared_ptr<SQLiteConnection> const connection;
  std::optional<SnapshotStaging> staging;
};

TEST(SnapshotCopy, IsOneClosedFile) {
  Scene const scene;
  long const before = openDescriptors();
  scene.copy();
  EXPECT_EQ(openDescriptors(), before);
  EXPECT_EQ(std::distance(std::filesystem::directory_iterator(scene.staging->path()), {}), 1);
  EXPECT_EQ(rowsAsText(scene.staging->database(), "SELECT a FROM t; PRAGMA integrity_check"), "1\n2\nok");
}

TEST(SnapshotCopy, WaitsFiftyMillisecondsForALockOnItsSource) {
  Scene const scene;
  scene.copy();
  SQLiteStatement asked = scene.connection->prepare("PRAGMA busy_timeout");
  ASSERT_TRUE(asked.step());
  EXPECT_EQ(asked.value(0, /*full=*/true), SQLiteValue(50));
}

/// The memory and the size of the copy are bounded before a page is written; WAL mode is left when all are.
TEST(SnapshotCopy, SetsItsDestinationUp) {
  using Names = std::vector<std::string>;
  Scene const scene;
  Names pragmas;
  AuthorizerOfAll const authorizer(
      [&](sqlite3* connection, int action, std::string const& name, std::string const& argument) {
        if (action == SQLITE_PRAGMA && scene.staging->database() == sqlite3_db_filename(connection, "main")) {
          pragmas.push_back(name + "=" + argument);
        }
        return SQLITE_OK;
      });
  auto const note = [&](SnapshotProgress const&) { pragmas.push_back("(copied)"); };
  auto const copy = [&](SnapshotLimits const& limits) {
    pragmas.clear();
    copySnapshot(*scene.connection, *scene.staging, limits, note, {}, noTask);
    std::erase_if(pragmas,
                  [](std::string const& pragma) { return pragma == "foreign_keys=ON"; });  // of each connection
    return pragmas;
  };
  EXPECT_EQ(copy({}), (Names{"cache_size=-2048", "cache_spill=1", "(copied)", "journal_mode=DELETE"}));
  EXPECT_EQ(copy({.destinationPageLimit = 7}),
            (Names{"cache_size=-2048", "cache_spill=1", "max_page_count=7", "(copied)", "journal_mode=DELETE"}));
}

/// The path of the destination leads elsewhere by the time that SQLite opens it.
TEST(SnapshotCopy, IsMadeInTheStagingFolderOrNowhere) {
  DatabaseError const refused("unable to open database file", SQLITE_CANTOPEN);
  {
    Scene scene;
    auto const moved = scene.store.root() / "moved";
    std::filesystem::rename(scene.staging->path(), moved);
    std::filesystem::create_directory(scene.staging->path());
    EXPECT_EQ(failureOf([&] { scene.copy(); }), refused);
    EXPECT_TRUE(std::filesystem::is_empty(moved));
  }
  {
    Scene const scene;
    scene.folder.write("mine.db", "");
    std::filesystem::create_symlink(scene.folder / "mine.db", scene.staging->database());
    EXPECT_EQ(failureOf([&] { scene.copy(); }), refused);
    EXPECT_EQ(scene.folder.read("mine.db"), "");
  }
}

TEST(SnapshotCopy, TellsTheSystemsFailureWithItsCode) {
  long written = 0;
  {
    Scene const other;
    FaultInjector const injector(other.staging->path());
    other.copy();
    written = injector.calls();
  }
  int failures = 0;
  for (long n = 1; n <= written; ++n) {
    Scene const failing;
    DatabaseError told("", 0);
    EXPECT_TRUE(FaultInjector::failing(failing.staging->path(), n, EIO, /*persistent=*/true,
                                       [&] { told = failureOf([&] { failing.copy(); }); }));
    if (told.code == -1) continue;  // the removal of a journal that nobody needs
    ++failures;
    EXPECT_TRUE((told.code & 0xFF) == SQLITE_IOERR || (told.code & 0xFF) == SQLITE_CANTOPEN) << told.code;
    EXPECT_TRUE(told.detail.starts_with("disk I/O error") || told.detail.starts_with("unable to open database file"))
        << told.detail;
  }
  EXPECT_GT(failures, 3);
}

TEST(SnapshotCopy, LooksAtItsTaskBehindTheLastStep) {
  Scene const scene("PRAGMA journal_mode = WAL; CREATE TABLE t(a);");
  std::stop_source task;
  auto const cancel = [&](SnapshotProgress const&) { task.request_stop(); };
  EXPECT_THROW(copySnapshot(*scene.connection, *scene.staging, {}, cancel, {}, task.get_token()), TaskCancelled);
  EXPECT_EQ(rowsAsText(scene.staging->database(), "PRAGMA journal_mode"), "wal");  // complete, and left at that
}

TEST(SnapshotCopy, CountsItsTimeFromTheFirstStep) {
  Scene const scene;
  int validations = 0;
  EXPECT_EQ(failureOf([&] { scene.copy([&] { ++validations; }, {.timeout = std::chrono::duration<double>(0)}); }),
            DatabaseError("Snapshot capture timed out. The database may be changing continuously; try again when it is "
                          "less busy."));
  EXPECT_EQ(validations, 1);
}

}  // namespace
}  // namespace tolva
