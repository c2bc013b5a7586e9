// SPDX-License-Identifier: Apache-2.0
#include "snapshots/SnapshotCapture.hpp"

#include <gtest/gtest.h>
#include <sqlite3.h>
#include <sys/stat.h>

#include <chrono>
#include <functional>
#include <set>
#include <stdexcept>

#include "platform/JSONCodec.hpp"
#include "snapshots/SnapshotService.hpp"
#include "snapshots/Untouched.hpp"
#include "support/CaptureScene.hpp"
#include "support/Descriptors.hpp"
#include "support/Failure.hpp"
#include "support/SQLitePeer.hpp"
#include "support/SystemFailure.hpp"

namespace tolva {
namespace {

using namespace std::chrono_literals;
using Names = std::vector<std::string>;

unsigned modeOf(std::filesystem::path const& path) {
  struct stat status {};
  EXPECT_EQ(::lstat(path.c_str(), &status), 0) << path;
  return status.st_mode & 0777;
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

/// Reading a log needs its index, so the companions of a database that nobody has open appear beside it.
TEST(SnapshotCapture, LeavesADatabaseInWALModeWithItsCompanions) {
  struct {
    std::string says;
    std::function<void(SnapshotService&, CaptureScene const&)> read;
  } const cases[] = {
      {"estimate",
       [](SnapshotService& service, CaptureScene const& scene) { service.estimate(scene.database.path(), noTask); }},
      {"create", [](SnapshotService& service,
                    CaptureScene const& scene) { service.create(scene.database.path(), {}, {}, {}, noTask); }},
  };
  for (auto const& each : cases) {
    SCOPED_TRACE(each.says);
    CaptureScene const scene("PRAGMA journal_mode = WAL;" + manyPages);
    std::string const content = scene.folder.read("a.db");
    ASSERT_EQ(scene.folder.names(), Names{"a.db"});
    SnapshotService service(scene.store.root());
    each.read(service, scene);
    EXPECT_EQ(scene.folder.names(), (Names{"a.db", "a.db-shm", "a.db-wal", "store"}));
    EXPECT_TRUE(scene.folder.read("a.db") == content);
    EXPECT_EQ(scene.folder.read("a.db-wal"), "");
  }
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

}  // namespace
}  // namespace tolva
