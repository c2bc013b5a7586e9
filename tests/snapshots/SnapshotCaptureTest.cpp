// SPDX-License-Identifier: Apache-2.0
#include "snapshots/SnapshotCapture.hpp"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sqlite3.h>
#include <sys/stat.h>

#include <set>
#include <sstream>
#include <stdexcept>
#include <string_view>
#include <thread>

#include "core/MemoryBudget.hpp"
#include "platform/JSONCodec.hpp"
#include "support/CaptureScene.hpp"
#include "support/Descriptors.hpp"
#include "support/Failure.hpp"
#include "support/FaultInjector.hpp"
#include "support/SQLitePeer.hpp"
#include "support/SystemFailure.hpp"
#include "support/Unprivileged.hpp"

namespace tolva {
namespace {

using namespace std::chrono_literals;
using Names = std::vector<std::string>;

unsigned modeOf(std::filesystem::path const& path) {
  struct stat status {};
  EXPECT_EQ(::lstat(path.c_str(), &status), 0) << path;
  return status.st_mode & 0777;
}

Names namesIn(std::filesystem::path const& folder) {
  Names names;
  for (auto const& entry : std::filesystem::directory_iterator(folder)) names.push_back(entry.path().filename());
  std::ranges::sort(names);
  return names;
}

/// That a capture that failed has left nothing, and that the next one goes well.
void expectUntouched(CaptureScene const& scene) {
  EXPECT_EQ(scene.names(), Names{});
  EXPECT_EQ(SQLitePeer(scene.database.path()).exec("BEGIN EXCLUSIVE"), "ok") << "a lock is left";
  Snapshot const next = scene.capture();
  EXPECT_EQ(scene.names(), Names{next.id.text()});
}

// What is captured --------------------------------------------------------------------------------

TEST(SnapshotCapture, IsACompleteCopyWithItsRecord) {
  CaptureScene const scene;
  auto const before = std::chrono::system_clock::now();
  Snapshot const made = scene.capture({.label = " Before \n"});
  SnapshotSource const source = snapshotSource(scene.database.path());
  EXPECT_EQ(made.version, 1);
  EXPECT_EQ(made.databaseID, source.databaseID);
  EXPECT_EQ(made.sourcePath, scene.database.path().string());
  EXPECT_EQ(made.sourceIdentity, source.sourceIdentity);
  EXPECT_GE(made.started, before - 1ms);  // a date in JSON is that coarse
  EXPECT_GE(made.timestamp, made.started);
  EXPECT_LE(made.timestamp, std::chrono::system_clock::now() + 1ms);
  EXPECT_EQ(made.label, "Before");
  EXPECT_EQ(made.size, static_cast<std::int64_t>(std::filesystem::file_size(scene.databaseOf(made))));
  EXPECT_EQ(made.sqliteVersion, sqlite3_libversion());
  EXPECT_EQ(made.journalMode, "delete");
  EXPECT_EQ(made.pageSize, 4096);
  EXPECT_EQ(namesIn(scene.folderOf(made)), (Names{"database.sqlite", "metadata.json"}));
  EXPECT_EQ(rowsAsText(scene.databaseOf(made), "SELECT a FROM t; PRAGMA integrity_check; PRAGMA journal_mode"),
            "1\n2\nok\ndelete");
}

TEST(SnapshotCapture, IsReadAgainAsItWasReturned) {
  CaptureScene const scene;
  Snapshot const made = scene.capture({.label = "Bef\xffore"});
  EXPECT_EQ(made.label, "Bef\uFFFDore");
  EXPECT_EQ(readSnapshotRecord(scene.store, scene.folderOf(made)), made);
}

TEST(SnapshotCapture, IsRecordedInThisVeryForm) {
  CaptureScene const scene;
  std::string path;
  for (char const letter : scene.database.path().string()) path.append(letter == '/' ? "\\/" : std::string(1, letter));
  for (std::string const label : {"", "A \"b\"/c"}) {
    Snapshot const made = scene.capture({.label = label});
    std::string const text =
        scene.folder.read(scene.folderOf(made).lexically_relative(scene.folder.path()) / "metadata.json");
    EXPECT_EQ(text, "{\"version\":1,\"id\":\"" + made.id.text() + "\",\"databaseID\":\"" + made.databaseID +
                        "\",\"sourcePath\":\"" + path + "\",\"sourceIdentity\":\"" + made.sourceIdentity +
                        "\",\"started\":" + encodeJSON(made.started) + ",\"timestamp\":" + encodeJSON(made.timestamp) +
                        (label.empty() ? "" : ",\"label\":\"A \\\"b\\\"\\/c\"") +
                        ",\"size\":8192,\"sqliteVersion\":\"" + sqlite3_libversion() +
                        "\",\"journalMode\":\"delete\",\"pageSize\":4096}");
  }
}

TEST(SnapshotCapture, IsForItsOwnerAloneAndForNobodyToWrite) {
  CaptureScene const scene;
  Snapshot const made = scene.capture();
  EXPECT_EQ(modeOf(scene.store.root()), 0700U);
  EXPECT_EQ(modeOf(scene.store.root() / ".catalog-lock"), 0600U);
  EXPECT_EQ(modeOf(scene.sourceFolder()), 0700U);
  EXPECT_EQ(modeOf(scene.folderOf(made)), 0700U);
  EXPECT_EQ(modeOf(scene.databaseOf(made)), 0400U);
}

TEST(SnapshotCapture, OfADatabaseInWALModeIsOneFile) {
  CaptureScene const scene("PRAGMA journal_mode = WAL;" + manyPages);
  SQLitePeer peer(scene.database.path());
  ASSERT_EQ(peer.exec("INSERT INTO t VALUES (7, NULL)"), "ok");  // is in the log
  ASSERT_TRUE(std::filesystem::exists(scene.folder / "a.db-wal"));
  Snapshot const made = scene.capture();
  EXPECT_EQ(made.journalMode, "wal");
  EXPECT_EQ(namesIn(scene.folderOf(made)), (Names{"database.sqlite", "metadata.json"}));
  EXPECT_EQ(rowsAsText(scene.databaseOf(made), "SELECT sum(a), count(*) FROM t; PRAGMA journal_mode"), "7|601\ndelete");
  EXPECT_EQ(namesIn(scene.folderOf(made)), (Names{"database.sqlite", "metadata.json"}));
}

TEST(SnapshotCapture, KeepsWhatADatabaseIs) {
  struct {
    std::string sql;
    std::int64_t pageSize;
    std::string
        answer;  // to "PRAGMA encoding; PRAGMA user_version; PRAGMA auto_vacuum; SELECT count(*) FROM sqlite_schema"
  } const cases[] = {
      {"", 4096, "UTF-8\n0\n0\n0"},
      {"PRAGMA page_size = 512; CREATE TABLE t(a); PRAGMA user_version = 7;", 512, "UTF-8\n7\n0\n1"},
      {"PRAGMA page_size = 65536; CREATE TABLE t(a);", 65'536, "UTF-8\n0\n0\n1"},
      {"PRAGMA encoding = 'UTF-16le'; CREATE TABLE t(a);", 4096, "UTF-16le\n0\n0\n1"},
      {"PRAGMA auto_vacuum = FULL; CREATE TABLE t(a);", 4096, "UTF-8\n0\n1\n1"},
  };
  for (auto const& each : cases) {
    SCOPED_TRACE(each.sql);
    CaptureScene const scene(each.sql);
    Snapshot const made = scene.capture();
    EXPECT_EQ(made.pageSize, each.pageSize);
    EXPECT_EQ(rowsAsText(scene.databaseOf(made),
                         "PRAGMA encoding; PRAGMA user_version; PRAGMA auto_vacuum; SELECT "
                         "count(*) FROM sqlite_schema; PRAGMA integrity_check"),
              each.answer + "\nok");
  }
}

TEST(SnapshotCapture, BelongsToTheFileAtTheEndOfALink) {
  CaptureScene const scene;
  std::filesystem::create_symlink("a.db", scene.folder / "link.db");
  StoreLock const lock = scene.store.lockCatalog();
  Snapshot const made = captureSnapshot(scene.store, {}, {scene.folder / "link.db", {}, {}, {}}, noTask);
  EXPECT_EQ(made.sourcePath, scene.database.path().string());
  EXPECT_EQ(made.databaseID, snapshotSource(scene.database.path()).databaseID);
}

TEST(SnapshotCapture, LeavesItsSourceAsItIs) {
  CaptureScene const scene(manyPages);
  struct stat before {
  }, after{};
  std::string const content = scene.folder.read("a.db");
  ASSERT_EQ(::stat(scene.database.path().c_str(), &before), 0);
  scene.capture();
  ASSERT_EQ(::stat(scene.database.path().c_str(), &after), 0);
  EXPECT_EQ(before.st_mtim.tv_nsec, after.st_mtim.tv_nsec);
  EXPECT_TRUE(scene.folder.read("a.db") == content);
  EXPECT_EQ(scene.folder.names(), (Names{"a.db", "store"}));
}

TEST(SnapshotCapture, LeavesNoDescriptorAndNoLock) {
  CaptureScene const scene(manyPages);
  scene.capture();
  long const before = openDescriptors();
  scene.capture();
  EXPECT_EQ(openDescriptors(), before);
  EXPECT_THROW(scene.capture({.validateSource = [] { throw std::runtime_error("no"); }}), std::runtime_error);
  EXPECT_EQ(openDescriptors(), before);
  SQLitePeer peer(scene.database.path());
  EXPECT_EQ(peer.exec("BEGIN EXCLUSIVE"), "ok");
}

TEST(SnapshotCapture, StandsBesideEarlierOnes) {
  CaptureScene const scene;
  std::set<std::string> expected;
  for (int capture = 0; capture < 3; ++capture) expected.insert(scene.capture().id.text());
  EXPECT_EQ(scene.names(), Names(expected.begin(), expected.end()));
  EXPECT_EQ(scene.snapshots().size(), 3U);
}

// The label ---------------------------------------------------------------------------------------

TEST(SnapshotCapture, TrimsItsLabel) {
  struct {
    std::optional<std::string> given;
    std::optional<std::string> kept;
  } const cases[] = {
      {std::nullopt, std::nullopt},
      {"", std::nullopt},
      {" \t\r\n\u00A0\u3000", std::nullopt},
      {"\n a b \u2028", "a b"},
      {std::string(240, 'x'), std::string(240, 'x')},
      {" " + std::string(240, 'x') + "\n", std::string(240, 'x')},
  };
  CaptureScene const scene;
  for (auto const& each : cases) EXPECT_EQ(scene.capture({.label = each.given}).label, each.kept);
}

TEST(SnapshotCapture, RefusesALongLabelBeforeAnythingIsMade) {
  CaptureScene const scene;
  for (std::string const& label : {std::string(241, 'x'), "  " + std::string(239, 'x') + "\u00e4"}) {
    int validations = 0;
    EXPECT_EQ(failureOf([&] { scene.capture({.label = label, .validateSource = [&] { ++validations; }}); }),
              DatabaseError("Use a snapshot name of at most 240 UTF-8 bytes."));
    EXPECT_EQ(validations, 1);
    EXPECT_EQ(namesIn(scene.store.root()), Names{".catalog-lock"});
  }
  expectUntouched(scene);
}

// The caller's check ------------------------------------------------------------------------------

/// What the store holds when the check is called: the staging folder's files with "!" behind a protected database.
std::string seen(CaptureScene const& scene) {
  std::string text;
  for (std::string const& name : scene.names()) {
    if (!name.starts_with(".partial-")) return "published";
    EXPECT_TRUE(UUID::parse(name.substr(9))) << name;
    EXPECT_EQ(name.substr(9), UUID::parse(name.substr(9))->text());
    auto const folder = scene.sourceFolder() / name;
    EXPECT_EQ(modeOf(folder), 0700U);
    for (std::string const& file : namesIn(folder)) {
      if (file == "database.sqlite") text += modeOf(folder / file) == 0400 ? "database!" : "database";
      if (file == "metadata.json") text += " record";
    }
  }
  return text;
}

TEST(SnapshotCapture, AsksTheCallerAtItsFourPoints) {
  CaptureScene const scene(manyPages);
  Names calls;
  scene.capture({.validateSource = [&] { calls.push_back(seen(scene)); }});
  // First; before the first step; after each of two steps but not after the third and last; before the move.
  EXPECT_EQ(calls, (Names{"", "database", "database", "database", "database! record"}));
}

TEST(SnapshotCapture, AsksTheCallerBeforeItLooksAtTheSource) {
  CaptureScene const scene;
  std::filesystem::remove(scene.database.path());
  EXPECT_EQ(failureOf([&] { scene.capture({.validateSource = [] { throw DatabaseError("first"); }}); }),
            DatabaseError("first"));
  EXPECT_EQ(systemFailureOf([&] { scene.capture(); }), "ENOENT a.db");
}

TEST(SnapshotCapture, TellsTheCallersFailureAsItStands) {
  CaptureScene const scene(manyPages);
  for (int failing = 1; failing <= 5; ++failing) {
    SCOPED_TRACE(failing);
    int calls = 0;
    EXPECT_EQ(failureOf([&] {
                scene.capture({.validateSource = [&] {
                  if (++calls == failing) throw DatabaseError("The view is old.", 77);
                }});
              }),
              DatabaseError("The view is old.", 77));
    EXPECT_EQ(calls, failing);
    calls = 0;
    EXPECT_THROW(scene.capture({.validateSource =
                                    [&] {
                                      if (++calls == failing) throw std::runtime_error("other");
                                    }}),
                 std::runtime_error);
    EXPECT_EQ(scene.names(), Names{});
  }
  expectUntouched(scene);
}

// Progress ----------------------------------------------------------------------------------------

TEST(SnapshotCapture, TellsItsProgressAtTheEnd) {
  CaptureScene const scene;
  std::vector<SnapshotProgress> told;
  scene.capture({.progress = [&](SnapshotProgress const& progress) { told.push_back(progress); }});
  EXPECT_EQ(told, (std::vector<SnapshotProgress>{{.copiedPages = 2, .totalPages = 2}}));
}

TEST(SnapshotCapture, TellsItsProgressAboutSixTimesASecond) {
  CaptureScene const scene(manyPages);
  std::int64_t const pages = std::stoll(scene.database.rows("PRAGMA page_count"));
  std::vector<SnapshotProgress> told;
  auto const note = [&](SnapshotProgress const& progress) { told.push_back(progress); };
  scene.capture({.progress = note, .validateSource = [] { std::this_thread::sleep_for(160ms); }});
  EXPECT_EQ(told, (std::vector<SnapshotProgress>{{256, pages}, {512, pages}, {pages, pages}}));
}

TEST(SnapshotCapture, EndsWhenTheReportOfProgressFails) {
  CaptureScene const scene;
  EXPECT_THROW(scene.capture({.progress = [](auto const&) { throw std::runtime_error("no"); }}), std::runtime_error);
  EXPECT_EQ(failureOf([&] { scene.capture({.progress = [](auto const&) { throw DatabaseError("no", 5); }}); }),
            DatabaseError("Copying snapshot: no", 5));
  expectUntouched(scene);
}

// Cancelling --------------------------------------------------------------------------------------

TEST(SnapshotCapture, EndsOnceItsTaskIsCancelled) {
  CaptureScene const scene(manyPages);
  for (int cancelling = 1; cancelling <= 4; ++cancelling) {
    SCOPED_TRACE(cancelling);
    std::stop_source task;
    int calls = 0;
    auto const check = [&] {
      if (++calls == cancelling) task.request_stop();
    };
    EXPECT_THROW(scene.capture({.validateSource = check, .task = task.get_token()}), TaskCancelled);
    EXPECT_EQ(calls, std::max(cancelling, 2));  // a task that is cancelled at first is noticed in the copying
  }
  expectUntouched(scene);
}

TEST(SnapshotCapture, EndsWhenItsTaskIsCancelledFromTheReportOfItsLastStep) {
  CaptureScene const scene;
  std::stop_source task;
  EXPECT_THROW(scene.capture({.progress = [&](auto const&) { task.request_stop(); }, .task = task.get_token()}),
               TaskCancelled);
  expectUntouched(scene);
}

/// What comes behind the copying is seen by its calls to the system; the database is protected last.
TEST(SnapshotCapture, LooksAtItsTaskOnceMoreBeforeTheLastCheck) {
  CaptureScene const scene;
  scene.capture();
  std::istringstream trace([&] {
    FaultInjector const calls(scene.store.root());
    scene.capture();
    return calls.trace();
  }());
  long number = 1;
  for (std::string call; trace >> call && call != "fchmodat";) ++number;
  std::stop_source task;
  int calls = 0;
  auto const capture = [&] {
    EXPECT_THROW(scene.capture({.validateSource = [&] { ++calls; }, .task = task.get_token()}), TaskCancelled);
  };
  EXPECT_TRUE(FaultInjector::before(
      scene.store.root(), number, [&] { task.request_stop(); }, capture));
  EXPECT_EQ(calls, 2);
  EXPECT_EQ(scene.names().size(), 2U);
}

/// The check comes behind the last look at the task: the move is the commit.
TEST(SnapshotCapture, IsKeptWhenItsTaskIsCancelledFromTheLastCheck) {
  CaptureScene const scene;
  std::stop_source task;
  int calls = 0;
  auto const check = [&] {
    if (++calls == 3) task.request_stop();
  };
  Snapshot const made = scene.capture({.validateSource = check, .task = task.get_token()});
  EXPECT_EQ(scene.names(), Names{made.id.text()});
}

TEST(SnapshotCapture, EndsWhenAnotherThreadCancelsItAtALock) {
  CaptureScene const scene(manyPages);
  SQLitePeer peer(scene.database.path());
  std::stop_source task;
  std::jthread canceller;
  int calls = 0;
  auto const check = [&] {
    if (++calls == 2) {
      ASSERT_EQ(peer.exec("BEGIN EXCLUSIVE"), "ok");
    }
    if (calls == 4) canceller = std::jthread([&] { task.request_stop(); });
  };
  EXPECT_THROW(scene.capture({.validateSource = check, .task = task.get_token()}), TaskCancelled);
  ASSERT_EQ(peer.exec("COMMIT"), "ok");
  expectUntouched(scene);
}

// Space -------------------------------------------------------------------------------------------

TEST(SnapshotCapture, NeedsRoomForTheCopyAndMore) {
  CaptureScene const scene;
  std::int64_t const needed = 2 * 4096 + 16'777'216;
  EXPECT_EQ(
      failureOf([&] { scene.capture({.limits = {.availableBytesOverride = needed - 1}}); }),
      DatabaseError(
          "Not enough free space for this snapshot. Delete unwanted snapshots or free disk space and try again."));
  EXPECT_EQ(scene.names(), Names{});
  Snapshot const made = scene.capture({.limits = {.availableBytesOverride = needed}});
  EXPECT_EQ(scene.names(), Names{made.id.text()});
}

TEST(SnapshotCapture, StopsAtTheLimitOfPages) {
  CaptureScene const scene(manyPages);
  std::int64_t const pages = std::stoll(scene.database.rows("PRAGMA page_count"));
  EXPECT_EQ(failureOf([&] { scene.capture({.limits = {.destinationPageLimit = pages - 1}}); }),
            DatabaseError("Copying snapshot: database or disk is full", SQLITE_FULL));
  EXPECT_EQ(scene.names(), Names{});
  scene.capture({.limits = {.destinationPageLimit = pages}});
  EXPECT_EQ(scene.snapshots().size(), 1U);
}

// Time --------------------------------------------------------------------------------------------

std::string const timedOut =
    "Copying snapshot: Snapshot capture timed out. The database may be changing continuously; try again when it is "
    "less busy.";

TEST(SnapshotCapture, HasNoTimeAtAll) {
  CaptureScene const scene;
  for (double const seconds : {0.0, -1.0}) {
    int calls = 0;
    EXPECT_EQ(failureOf([&] {
                scene.capture({.validateSource = [&] { ++calls; },
                               .limits = {.timeout = std::chrono::duration<double>(seconds)}});
              }),
              DatabaseError(timedOut));
    EXPECT_EQ(calls, 2);
  }
  expectUntouched(scene);
}

TEST(SnapshotCapture, GivesUpALockedSource) {
  CaptureScene const scene(manyPages);
  SQLitePeer peer(scene.database.path());
  int calls = 0;
  auto const check = [&] {
    if (++calls == 2) {
      ASSERT_EQ(peer.exec("BEGIN EXCLUSIVE"), "ok");
    }
  };
  EXPECT_EQ(failureOf([&] { scene.capture({.validateSource = check, .limits = {.timeout = 0.4s}}); }),
            DatabaseError(timedOut));
  EXPECT_GE(calls, 3);  // after each step that found the lock
  ASSERT_EQ(peer.exec("COMMIT"), "ok");
  expectUntouched(scene);
}

TEST(SnapshotCapture, GoesOnOnceALockHasPassed) {
  CaptureScene const scene(manyPages);
  SQLitePeer peer(scene.database.path());
  int calls = 0;
  auto const check = [&] {
    ++calls;
    if (calls == 3) {
      ASSERT_EQ(peer.exec("BEGIN EXCLUSIVE"), "ok");
    }
    if (calls == 5) {
      ASSERT_EQ(peer.exec("COMMIT"), "ok");
    }
  };
  Snapshot const made = scene.capture({.validateSource = check});
  EXPECT_EQ(calls, 7);  // two of them in place of a step that the lock prevented
  EXPECT_EQ(rowsAsText(scene.databaseOf(made), "SELECT count(*) FROM t; PRAGMA integrity_check"), "600\nok");
}

TEST(SnapshotCapture, SaysThatASourceIsLockedFromTheBeginning) {
  CaptureScene const scene;
  SQLitePeer peer(scene.database.path());
  ASSERT_EQ(peer.exec("BEGIN EXCLUSIVE"), "ok");
  EXPECT_EQ(failureOf([&] { scene.capture(); }), DatabaseError("Reading source size: database is locked", SQLITE_BUSY));
  ASSERT_EQ(peer.exec("COMMIT"), "ok");
  expectUntouched(scene);
}

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
  SnapshotStore const store(scene.folder / "own/store");
  EXPECT_EQ(
      asUnprivileged([&] {
        DatabaseError const failure = failureOf([&] {
          StoreLock const lock = store.lockCatalog();
          captureSnapshot(store, {}, {scene.database.path(), {}, {}, {}}, noTask);
        });
        return std::to_string(failure.code & 0xFF) + " " + failure.detail;
      }),
      R"(14 Reading source size: SQLite could not read this database. For a WAL database with missing or inaccessible sidecar files, reopen it in its owning application and try again. Snapshot capture requires read-only source access.)");
}

/// Answers for one pragma of every connection that is opened, for a scope. One at a time.
class PragmaAnswered {
 public:
  PragmaAnswered(std::string pragma, int answer) {
    pragma_ = std::move(pragma);
    answer_ = answer;
    EXPECT_EQ(sqlite3_auto_extension(entry()), SQLITE_OK);
  }
  ~PragmaAnswered() { sqlite3_cancel_auto_extension(entry()); }
  PragmaAnswered(PragmaAnswered const&) = delete;
  PragmaAnswered& operator=(PragmaAnswered const&) = delete;

 private:
  static void (*entry())() { return reinterpret_cast<void (*)()>(install); }

  static int install(sqlite3* connection, char const**, void const*) {
    return sqlite3_set_authorizer(connection, answer, nullptr);
  }

  static int answer(void*, int action, char const* name, char const* argument, char const*, char const*) {
    return action == SQLITE_PRAGMA && name == pragma_ && !argument ? answer_ : SQLITE_OK;
  }

  static inline std::string pragma_;
  static inline int answer_ = SQLITE_OK;
};

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
    PragmaAnswered const answered(each.pragma, each.answer);
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

TEST(SnapshotCapture, EndsWhenItsSourceDoes) {
  std::string const replaced = "The source file was replaced during capture. Refresh the database and try again.";
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
       replaced, 1},
      {"made a link to another database",
       [](CaptureScene const& scene) {
         TemporaryDatabase const other(scene.folder, "other.db", "CREATE TABLE other(a)");
         std::filesystem::remove(scene.database.path());
         std::filesystem::create_symlink(other.path(), scene.database.path());
       },
       replaced, 1},
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

/// A file without a byte is an empty database: one state, which is what the source holds by then.
TEST(SnapshotCapture, OfASourceThatIsEmptiedIsEmpty) {
  for (int const call : {2, 3, 4}) {
    CaptureScene const scene(manyPages);
    int calls = 0;
    auto const check = [&] {
      if (++calls == call) std::filesystem::resize_file(scene.database.path(), 0);
    };
    Snapshot const made = scene.capture({.validateSource = check});
    EXPECT_EQ(rowsAsText(scene.databaseOf(made), "SELECT count(*) FROM sqlite_schema; PRAGMA integrity_check"),
              "0\nok");
  }
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
    EXPECT_EQ(failureOf([&] { scene.capture({.validateSource = check}); }),
              DatabaseError("The source file was replaced during capture. Refresh the database and try again."));
  }));
  EXPECT_EQ(scene.names(), Names{});
}

}  // namespace
}  // namespace tolva
