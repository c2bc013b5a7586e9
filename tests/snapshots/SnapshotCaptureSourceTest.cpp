// SPDX-License-Identifier: Apache-2.0
// A source that is none, or that becomes another one while it is captured.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sqlite3.h>
#include <sys/stat.h>

#include <filesystem>
#include <functional>
#include <stop_token>
#include <string>

#include "core/MemoryBudget.hpp"
#include "snapshots/SnapshotCapture.hpp"
#include "snapshots/SnapshotService.hpp"
#include "snapshots/Untouched.hpp"
#include "support/AuthorizerOfAll.hpp"
#include "support/CaptureScene.hpp"
#include "support/Failure.hpp"
#include "support/FaultInjector.hpp"
#include "support/SQLitePeer.hpp"
#include "support/SystemFailure.hpp"
#include "support/Unprivileged.hpp"

namespace tolva {
namespace {

using Names = std::vector<std::string>;

// Sources that are none ----------------------------------------------------------------------------

TEST(SnapshotCapture, SaysWhatIsNoDatabase) {
  CaptureScene const scene("");
  std::string text;
  for (int line = 0; line < 100; ++line) text += "this is a text of a few lines\n";
  scene.folder.write("a.db", text);
  EXPECT_EQ(failureOf([&] { scene.capture(); }),
            DatabaseError("Reading source size: file is not a database", SQLITE_NOTADB));
  EXPECT_EQ(scene.names(), Names{});
}

TEST(SnapshotCapture, RefusesWhatIsNoFile) {
  CaptureScene const scene("");
  auto const capture = [&](std::filesystem::path const& source) {
    StoreLock const lock = scene.store.lockCatalog();
    captureSnapshot(scene.store, {}, {source, {}, {}, {}}, noTask);
  };
  ASSERT_EQ(::mkfifo((scene.folder / "pipe").c_str(), 0600), 0);
  for (std::filesystem::path const& source :
       {scene.folder.path(), scene.folder / "pipe", std::filesystem::path("/dev/null")}) {
    EXPECT_EQ(failureOf([&] { capture(source); }), DatabaseError("Cannot identify this database file safely."))
        << source;
  }
  EXPECT_EQ(systemFailureOf([&] { capture(scene.folder / "none.db"); }), "ENOENT none.db");
  EXPECT_EQ(namesIn(scene.store.root()), Names{".catalog-lock"});
}

TEST(SnapshotCapture, SaysThatAFileMayNotBeRead) {
  CaptureScene scene;
  scene.folder.openToEverybody();
  ASSERT_EQ(::chmod(scene.database.path().c_str(), 0), 0);
  std::filesystem::create_directory(scene.folder / "own");
  ASSERT_EQ(::chmod((scene.folder / "own").c_str(), 0777), 0);
  SnapshotStore const store(scene.folder / "own/store");
  EXPECT_EQ(asUnprivileged([&] {
              DatabaseError const failure = failureOf([&] {
                StoreLock const lock = store.lockCatalog();
                captureSnapshot(store, {}, {scene.database.path(), {}, {}, {}}, noTask);
              });
              return std::to_string(failure.code) + " " + failure.detail;
            }),
            "14 unable to open database file");
}

/// A log whose index belongs to somebody else alone.
TEST(SnapshotCapture, SaysWhatToDoAboutALogThatCannotBeRead) {
  CaptureScene scene("PRAGMA journal_mode = WAL; CREATE TABLE t(a);");
  scene.folder.openToEverybody();
  std::filesystem::create_directory(scene.folder / "own");
  ASSERT_EQ(::chmod((scene.folder / "own").c_str(), 0777), 0);
  ASSERT_EQ(::chmod(scene.database.path().c_str(), 0644), 0);
  SQLitePeer peer(scene.database.path());
  ASSERT_EQ(peer.exec("INSERT INTO t VALUES (1)"), "ok");
  ASSERT_EQ(::chmod((scene.folder / "a.db-shm").c_str(), 0), 0);
  SnapshotService service(scene.folder / "own/store");
  auto const told = [&](std::function<void()> const& operation) {
    return asUnprivileged([&] {
      DatabaseError const failure = failureOf(operation);
      return std::to_string(failure.code) + " " + failure.detail;
    });
  };
  EXPECT_EQ(
      told([&] { service.estimate(scene.database.path(), noTask); }),
      R"(14 SQLite could not read this database. For a WAL database with missing or inaccessible sidecar files, reopen it in its owning application and try again. Snapshot capture requires read-only source access.)");
  EXPECT_EQ(
      told([&] { service.create(scene.database.path(), {}, {}, {}, noTask); }),
      R"(14 Reading source size: SQLite could not read this database. For a WAL database with missing or inaccessible sidecar files, reopen it in its owning application and try again. Snapshot capture requires read-only source access.)");
}

/// A writer that was killed in a transaction which had outgrown its memory: the journal has to be rolled back first,
/// and a reader may not.
TEST(SnapshotCapture, RefusesAJournalThatACrashLeft) {
  CaptureScene const scene(manyPages);
  SnapshotService service(scene.store.root());
  {
    SQLitePeer peer(scene.database.path());
    ASSERT_EQ(peer.exec("PRAGMA synchronous = OFF"), "ok");  // it need not survive the machine
    ASSERT_EQ(peer.exec("PRAGMA cache_size = 5"), "ok");
    ASSERT_EQ(peer.exec("BEGIN"), "ok");
    ASSERT_EQ(peer.exec("UPDATE t SET a = 1, pad = randomblob(4000)"), "ok");
    peer.kill();
  }
  ASSERT_TRUE(std::filesystem::exists(scene.folder / "a.db-journal"));
  EXPECT_EQ(failureOf([&] { service.estimate(scene.database.path(), noTask); }),
            DatabaseError("attempt to write a readonly database", SQLITE_READONLY_ROLLBACK));
  EXPECT_EQ(failureOf([&] { service.create(scene.database.path(), {}, {}, {}, noTask); }),
            DatabaseError("Reading source size: attempt to write a readonly database", SQLITE_READONLY_ROLLBACK));
  EXPECT_TRUE(std::filesystem::exists(scene.folder / "a.db-journal"));
  EXPECT_EQ(scene.names(), Names{});
  EXPECT_EQ(rowsAsText(scene.database.path(), "SELECT sum(a) FROM t"), "0");  // rolls it back
  Snapshot const made = service.create(scene.database.path(), {}, {}, {}, noTask);
  EXPECT_EQ(rowsAsText(scene.databaseOf(made), "SELECT sum(a), count(*) FROM t; PRAGMA integrity_check"), "0|600\nok");
}

TEST(SnapshotCapture, NamesTheStageThatFailed) {
  CaptureScene const scene;
  struct {
    std::string pragma;
    int answer;
    DatabaseError failure;
  } const cases[] = {
      {"page_count", SQLITE_DENY, DatabaseError("Reading source size: not authorized", SQLITE_AUTH)},
      {"page_count", SQLITE_IGNORE, DatabaseError("Reading source size: Could not read database size.")},
      {"page_size", SQLITE_IGNORE, DatabaseError("Reading source size: Could not read database size.")},
      {"journal_mode", SQLITE_DENY, DatabaseError("Reading source journal mode: not authorized", SQLITE_AUTH)},
  };
  for (auto const& each : cases) {
    AuthorizerOfAll const authorizer([&](sqlite3*, int action, std::string const& name, std::string const& argument) {
      return action == SQLITE_PRAGMA && name == each.pragma && argument.empty() ? each.answer : SQLITE_OK;
    });
    EXPECT_EQ(failureOf([&] { scene.capture(); }), each.failure) << each.pragma;
  }
  expectUntouched(scene);
}

TEST(SnapshotCapture, LeavesNothingWhenMemoryRunsOut) {
  CaptureScene const scene;
  scene.capture();
  int failed = 0;
  for (std::int64_t bytes = 0; scene.names().size() == 1; bytes += 2'048) {
    MemoryBudget const budget(bytes);
    DatabaseError const failure = failureOf([&] { scene.capture(); });
    if (failure.code == -1) break;
    ++failed;
    ASSERT_EQ(failure.code & 0xFF, SQLITE_NOMEM) << failure.detail;
    ASSERT_EQ(scene.names().size(), 1U) << bytes;
  }
  EXPECT_GT(failed, 10);
  EXPECT_EQ(scene.snapshots().size(), 2U);
}

// A source that changes meanwhile ------------------------------------------------------------------

DatabaseError const replacedMeanwhile(
    "The source file was replaced during capture. Refresh the database and try again.");

TEST(SnapshotCapture, EndsWhenItsSourceDoes) {
  std::string const unsafe = "Cannot identify this database file safely.";
  struct Case {
    std::string says;
    std::function<void(CaptureScene const&)> deed;
    std::string detail;
    std::int32_t code;
  } const cases[] = {
      {"replaced by another database",
       [](CaptureScene const& scene) {
         TemporaryDatabase const other(scene.folder, "other.db", manyPages);
         std::filesystem::rename(other.path(), scene.database.path());
       },
       replacedMeanwhile.detail, 1},
      {"made a link to another database",
       [](CaptureScene const& scene) {
         TemporaryDatabase const other(scene.folder, "other.db", "CREATE TABLE other(a)");
         std::filesystem::remove(scene.database.path());
         std::filesystem::create_symlink(other.path(), scene.database.path());
       },
       replacedMeanwhile.detail, 1},
      {"made a folder",
       [](CaptureScene const& scene) {
         std::filesystem::remove(scene.database.path());
         std::filesystem::create_directory(scene.database.path());
       },
       unsafe, 1},
      {"made a pipe",
       [](CaptureScene const& scene) {
         std::filesystem::remove(scene.database.path());
         ASSERT_EQ(::mkfifo(scene.database.path().c_str(), 0600), 0);
       },
       unsafe, 1},
      {"truncated", [](CaptureScene const& scene) { std::filesystem::resize_file(scene.database.path(), 300 * 4096); },
       "Copying snapshot: database disk image is malformed", SQLITE_CORRUPT},
  };
  for (Case const& each : cases) {
    for (int const call : {2, 3, 4}) {
      SCOPED_TRACE(each.says + " at call " + std::to_string(call));
      CaptureScene const scene(manyPages);
      int calls = 0;
      auto const check = [&] {
        if (++calls == call) each.deed(scene);
      };
      DatabaseError const failure = failureOf([&] { scene.capture({.validateSource = check}); });
      EXPECT_EQ(failure, DatabaseError(each.detail, each.code));
      EXPECT_EQ(scene.names(), Names{});
    }
  }
}

TEST(SnapshotCapture, EndsWhenItsSourceIsDeleted) {
  CaptureScene const scene(manyPages);
  int calls = 0;
  auto const check = [&] {
    if (++calls == 3) std::filesystem::remove(scene.database.path());
  };
  EXPECT_EQ(systemFailureOf([&] { scene.capture({.validateSource = check}); }), "ENOENT a.db");
  EXPECT_EQ(scene.names(), Names{});
}

/// SQLite takes a file without a byte for an empty database and copies that, but where a log tells it the size.
TEST(SnapshotCapture, EndsWhenItsSourceIsEmptied) {
  struct {
    std::string journalMode;
    DatabaseError failure;
  } const cases[] = {
      {"DELETE", replacedMeanwhile},
      {"WAL", DatabaseError("Copying snapshot: database disk image is malformed", SQLITE_CORRUPT)},
  };
  for (auto const& each : cases) {
    for (int const call : {2, 3, 4}) {
      SCOPED_TRACE(each.journalMode + " at call " + std::to_string(call));
      CaptureScene const scene("PRAGMA journal_mode = " + each.journalMode + ";" + manyPages);
      int calls = 0;
      auto const check = [&] {
        if (++calls == call) std::filesystem::resize_file(scene.database.path(), 0);
      };
      EXPECT_EQ(failureOf([&] { scene.capture({.validateSource = check}); }), each.failure);
      EXPECT_EQ(scene.names(), Names{});
    }
  }
}

/// As a program does it that writes a file anew in its place.
TEST(SnapshotCapture, EndsWhenItsSourceWasEmptyForAWhile) {
  CaptureScene const scene(manyPages);
  std::string const content = scene.folder.read("a.db");
  int calls = 0;
  auto const empty = [&] {
    if (++calls == 3) std::filesystem::resize_file(scene.database.path(), 0);
  };
  auto const refill = [&](SnapshotProgress const& last) {
    EXPECT_EQ(last.totalPages, 0);
    scene.folder.write("a.db", content);
  };
  EXPECT_EQ(failureOf([&] { scene.capture({.progress = refill, .validateSource = empty}); }), replacedMeanwhile);
  expectUntouched(scene);
}

TEST(SnapshotCapture, EndsWhenItsSourceIsEmptiedBehindTheLastStep) {
  CaptureScene const scene(manyPages);
  auto const empty = [&](SnapshotProgress const& told) {
    if (told.copiedPages == told.totalPages) std::filesystem::resize_file(scene.database.path(), 0);
  };
  EXPECT_EQ(failureOf([&] { scene.capture({.progress = empty}); }), replacedMeanwhile);
  EXPECT_EQ(scene.names(), Names{});
}

TEST(SnapshotCapture, OfAnEmptySourceIsEmpty) {
  CaptureScene const scene;
  std::filesystem::resize_file(scene.database.path(), 0);
  int calls = 0;
  Snapshot const made = scene.capture({.validateSource = [&] { ++calls; }});
  EXPECT_EQ(calls, 3);
  EXPECT_EQ(rowsAsText(scene.databaseOf(made), "SELECT count(*) FROM sqlite_schema; PRAGMA integrity_check"), "0\nok");
}

/// Filled for the first time meanwhile.
TEST(SnapshotCapture, HoldsWhatAnEmptySourceWasFilledWith) {
  CaptureScene const scene("");
  ASSERT_EQ(std::filesystem::file_size(scene.database.path()), 0U);
  SQLitePeer peer(scene.database.path());
  int calls = 0;
  auto const fill = [&] {
    if (++calls == 2) {
      ASSERT_EQ(peer.exec("CREATE TABLE t(a)"), "ok");
    }
  };
  Snapshot const made = scene.capture({.validateSource = fill});
  EXPECT_EQ(rowsAsText(scene.databaseOf(made), "SELECT name FROM sqlite_schema"), "t");
}

/// A task that is cancelled says so, whatever has become of the source.
TEST(SnapshotCapture, IsCancelledRatherThanReplaced) {
  int cancelled = 0;
  for (long n = 1;; ++n) {
    SCOPED_TRACE("call " + std::to_string(n));
    CaptureScene const scene("PRAGMA journal_mode = WAL; CREATE TABLE t(a);");  // a copy that takes a step to leave it
    TemporaryDatabase const other(scene.folder, "other.db", "CREATE TABLE other(a)");
    { StoreLock const made = scene.store.lockCatalog(); }
    std::stop_source task;
    auto const harm = [&] {
      task.request_stop();
      std::filesystem::rename(other.path(), scene.database.path());
    };
    DatabaseError failure("", -1);  // which is that there was none
    bool const came = FaultInjector::before(scene.store.root(), n, harm, [&] {
      try {
        failure = failureOf([&] { scene.capture({.task = task.get_token()}); });
      } catch (TaskCancelled const&) {
        ++cancelled;
      }
    });
    EXPECT_EQ(failure.code, -1) << failure.detail;
    if (!came) break;
  }
  EXPECT_GT(cancelled, 10);
}

/// The very file, at another place: it is still what was copied.
TEST(SnapshotCapture, GoesOnWhenItsSourceIsMovedBehindALink) {
  CaptureScene const scene(manyPages);
  int calls = 0;
  auto const check = [&] {
    if (++calls != 3) return;
    std::filesystem::rename(scene.database.path(), scene.folder / "moved.db");
    std::filesystem::create_symlink("moved.db", scene.database.path());
  };
  Snapshot const made = scene.capture({.validateSource = check});
  EXPECT_EQ(made.sourcePath, scene.database.path().string());
  EXPECT_EQ(rowsAsText(scene.databaseOf(made), "SELECT count(*) FROM t"), "600");
}

/// The file that SQLite opened is not the one that was identified, although that has its name again at the end.
TEST(SnapshotCapture, NoticesAnotherFileThatHadTheNameForAWhile) {
  CaptureScene const scene(manyPages);
  TemporaryDatabase const other(scene.folder, "other.db", "CREATE TABLE other(a)");
  auto const swap = [&] {
    ASSERT_EQ(::renameat2(AT_FDCWD, scene.database.path().c_str(), AT_FDCWD, other.path().c_str(), RENAME_EXCHANGE), 0);
  };
  { StoreLock const made = scene.store.lockCatalog(); }
  // The calls are the lock's opening, the making of the folder for the source, which is identified by then, its flush.
  EXPECT_TRUE(FaultInjector::before(scene.store.root(), 3, swap, [&] {
    int calls = 0;
    auto const check = [&] {
      if (++calls == 2) swap();
    };
    EXPECT_EQ(failureOf([&] { scene.capture({.validateSource = check}); }), replacedMeanwhile);
  }));
  EXPECT_EQ(scene.names(), Names{});
}

}  // namespace
}  // namespace tolva
