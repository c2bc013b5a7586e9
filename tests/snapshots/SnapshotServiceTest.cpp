// SPDX-License-Identifier: Apache-2.0
// The history of snapshots and the reading of one.
#include "snapshots/SnapshotService.hpp"

#include <gtest/gtest.h>
#include <sys/stat.h>
#include <sys/sysmacros.h>
#include <unistd.h>

#include <atomic>
#include <fstream>
#include <functional>
#include <string>
#include <thread>
#include <vector>

#include "core/SQLiteConnection.hpp"
#include "core/SQLiteStatement.hpp"
#include "platform/ApplicationFolders.hpp"
#include "snapshots/LockHolder.hpp"
#include "snapshots/StoreScene.hpp"
#include "support/Descriptors.hpp"
#include "support/Environment.hpp"
#include "support/Failure.hpp"
#include "support/JSONFailure.hpp"
#include "support/SystemFailure.hpp"
#include "support/Unprivileged.hpp"

namespace tolva {
namespace {

DatabaseError const unsafe("Unsafe snapshot path.");
DatabaseError const inUse(
    "Snapshot storage is in use. Close open snapshot tabs or wait for the other operation to finish.");

std::stop_token cancelledTask() {
  std::stop_source source;
  source.request_stop();
  return source.get_token();
}

/// What an operation ends with, whatever kind of error it is.
std::string endOf(std::function<void()> const& operation) {
  try {
    operation();
  } catch (std::filesystem::filesystem_error const&) {
    return systemFailureOf(operation);
  } catch (std::exception const& error) {
    return error.what();
  }
  return "(nothing failed)";
}

/// Makes something at `path` that is neither a file nor a folder; false where the system does not let it.
bool plantPipe(std::filesystem::path const& path) { return ::mkfifo(path.c_str(), 0600) == 0; }
bool plantDevice(std::filesystem::path const& path) {
  return ::mknod(path.c_str(), S_IFCHR | 0600, makedev(1, 5)) == 0;
}

// The history -------------------------------------------------------------------------------------

TEST(SnapshotService, ListsTheNewestFirst) {
  StoreScene scene;
  scene.plant("second", 20);
  scene.plant("third", 30);
  scene.plant("first", 10);
  EXPECT_EQ(scene.labels(), "third second first");
}

TEST(SnapshotService, ListsWhatItCreated) {
  StoreScene scene;
  Snapshot const created = scene.service.create(scene.database.path(), " mine ", {}, {}, noTask);
  EXPECT_EQ(scene.history(), std::vector<Snapshot>{created});
  EXPECT_EQ(created.label, "mine");
}

TEST(SnapshotService, HasAnEmptyHistoryBeforeTheFirstSnapshot) {
  StoreScene scene;
  EXPECT_EQ(scene.history(), std::vector<Snapshot>());
  EXPECT_EQ(scene.folder.names(), (std::vector<std::string>{"live.sqlite", "store"}));
  EXPECT_FALSE(std::filesystem::exists(scene.databaseFolder())) << "a listing makes no folder for the source";
}

TEST(SnapshotService, KeepsTheHistoriesOfSourcesApart) {
  StoreScene scene;
  scene.plant("mine");
  TemporaryDatabase const other(scene.folder, "other.sqlite", "CREATE TABLE t(a)");
  EXPECT_TRUE(scene.service.history(other.path(), noTask).empty());
  std::filesystem::rename(other.path(), scene.database.path());
  EXPECT_TRUE(scene.history().empty()) << "a new file at the same path";
}

TEST(SnapshotService, ListsOnlyFoldersThatAreNamedByAUUIDAlone) {
  StoreScene scene;
  scene.plant("whole");
  for (char const* name : {"notes", ".hidden", ".partial-", ".partial-notes", "00112233-4455-6677-8899-AABBCCDDEEFF-x"})
    std::filesystem::create_directory(scene.databaseFolder() / name);
  EXPECT_EQ(scene.labels(), "whole");
  for (char const* name : {"notes", ".hidden", ".partial-", ".partial-notes"}) {
    EXPECT_TRUE(std::filesystem::exists(scene.databaseFolder() / name)) << name;
    std::filesystem::remove(scene.databaseFolder() / name);
  }
}

TEST(SnapshotService, RemovesWhatACrashLeftAndOnlyThat) {
  StoreScene scene;
  Snapshot const whole = scene.plant("whole");
  std::filesystem::path const left = scene.databaseFolder() / ".partial-00112233-4455-6677-8899-AABBCCDDEEFF";
  std::filesystem::copy(scene.folderOf(whole), left);
  std::filesystem::path const lower = scene.databaseFolder() / ".partial-10112233-4455-6677-8899-aabbccddeeff";
  std::filesystem::create_directory(lower);
  EXPECT_EQ(scene.labels(), "whole");
  EXPECT_EQ(scene.hidden(), std::vector<std::string>());
}

TEST(SnapshotService, FailsAsAWholeWhereOneRecordCannotBeRead) {
  struct {
    char const* says;
    std::function<void(std::filesystem::path const&)> harm;
    std::string failure;
  } const cases[] = {
      {"no record", [](auto const& folder) { std::filesystem::remove(folder / "metadata.json"); },
       "ENOENT metadata.json"},
      {"a record of another folder",
       [](auto const& folder) {
         std::filesystem::rename(folder, folder.parent_path() / "00112233-4455-6677-8899-AABBCCDDEEFF");
       },
       "Invalid snapshot metadata."},
      {"a file named as a snapshot",
       [](auto const& folder) {
         std::filesystem::remove_all(folder);
         std::ofstream(folder) << "x";
       },
       "ENOTDIR metadata.json"},
      {"a link named as a snapshot",
       [](auto const& folder) {
         std::filesystem::rename(folder, folder.parent_path().parent_path() / "moved");
         std::filesystem::create_directory_symlink(folder.parent_path().parent_path() / "moved", folder);
       },
       "Unsafe snapshot path."},
      {"a link for a record",
       [](auto const& folder) {
         std::filesystem::rename(folder / "metadata.json", folder / "record");
         std::filesystem::create_symlink("record", folder / "metadata.json");
       },
       "Unsafe snapshot path."},
      {"a pipe for a record",
       [](auto const& folder) {
         std::filesystem::remove(folder / "metadata.json");
         plantPipe(folder / "metadata.json");
       },
       "EINVAL metadata.json"},
      {"a folder for a record",
       [](auto const& folder) {
         std::filesystem::remove(folder / "metadata.json");
         std::filesystem::create_directory(folder / "metadata.json");
       },
       "EINVAL metadata.json"},
  };
  for (auto const& now : cases) {
    SCOPED_TRACE(now.says);
    StoreScene scene;
    scene.plant("good", 1);
    now.harm(scene.folderOf(scene.plant("bad", 2)));
    EXPECT_EQ(endOf([&] { scene.history(); }), now.failure);
  }
}

TEST(SnapshotService, RefusesWhatIsPlantedAsTheFolderOfASource) {
  StoreScene scene;
  std::filesystem::create_directories(scene.store.root());
  std::filesystem::create_directory_symlink(scene.folder.path(), scene.databaseFolder());
  EXPECT_EQ(failureOf([&] { scene.history(); }), unsafe);
  EXPECT_EQ(failureOf([&] { scene.service.create(scene.database.path(), {}, {}, {}, noTask); }), unsafe);
  std::filesystem::remove(scene.databaseFolder());
  ASSERT_TRUE(plantPipe(scene.databaseFolder()));
  EXPECT_EQ(endOf([&] { scene.history(); }).substr(0, 7), "ENOTDIR");
  EXPECT_EQ(endOf([&] { scene.service.create(scene.database.path(), {}, {}, {}, noTask); }).substr(0, 6), "EEXIST");
  EXPECT_EQ(scene.folder.names(), (std::vector<std::string>{"live.sqlite", "store"}));
}

TEST(SnapshotService, RefusesALinkThatIsNamedAsACrashedCapture) {
  StoreScene scene;
  scene.plant("whole");
  std::filesystem::create_directory(scene.folder / "precious");
  auto const link = scene.databaseFolder() / ".partial-00112233-4455-6677-8899-AABBCCDDEEFF";
  std::filesystem::create_directory_symlink(scene.folder / "precious", link);
  EXPECT_EQ(failureOf([&] { scene.history(); }), unsafe);
  EXPECT_TRUE(std::filesystem::exists(scene.folder / "precious"));
  std::filesystem::remove(link);
}

TEST(SnapshotService, PassesOnThatASourceCannotBeIdentified) {
  StoreScene scene;
  EXPECT_EQ(systemFailureOf([&] { scene.service.history(scene.folder / "absent", noTask); }), "ENOENT absent");
  EXPECT_EQ(failureOf([&] { scene.service.history(scene.folder.path(), noTask); }),
            DatabaseError("Cannot identify this database file safely."));
}

TEST(SnapshotService, ReadsNothingOfAStoreThatItMayNotRead) {
  StoreScene scene;
  scene.folder.openToEverybody();
  Snapshot const whole = scene.plant("whole");
  std::filesystem::permissions(scene.store.root(), std::filesystem::perms::owner_all);
  EXPECT_EQ(asUnprivileged([&] { return endOf([&] { scene.history(); }); }),
            ::geteuid() == 0 ? "Cannot lock snapshot storage: Permission denied" : "(nothing failed)");
  std::filesystem::permissions(scene.store.root(), std::filesystem::perms::all);
  std::filesystem::permissions(scene.databaseFolder(), std::filesystem::perms::none);
  std::filesystem::permissions(scene.store.root(), std::filesystem::perms::all);
  EXPECT_EQ(asUnprivileged([&] { return endOf([&] { scene.history(); }); }).substr(0, 6), "EACCES");
  EXPECT_EQ(asUnprivileged([&] { return endOf([&] { scene.service.open(whole); }); }).substr(0, 6), "EACCES");
  std::filesystem::permissions(scene.databaseFolder(), std::filesystem::perms::all);
}

// Naming ------------------------------------------------------------------------------------------

TEST(SnapshotService, ChangesTheLabelAndNothingElse) {
  StoreScene scene;
  Snapshot expected = scene.plant("old", 7);
  Snapshot passed = expected;
  passed.sourcePath = "/elsewhere";
  passed.size = -1;
  passed.label = "unseen";
  expected.label = "new";
  EXPECT_EQ(scene.service.rename(passed, "\t new\n"), expected);
  EXPECT_EQ(scene.history(), std::vector<Snapshot>{expected});
  expected.label.reset();
  EXPECT_EQ(scene.service.rename(passed, " \n "), expected);
  EXPECT_EQ(scene.history(), std::vector<Snapshot>{expected});
}

TEST(SnapshotService, TakesALabelOfAtMost240Bytes) {
  StoreScene scene;
  Snapshot const snapshot = scene.plant("old");
  EXPECT_EQ(scene.service.rename(snapshot, " " + std::string(240, 'x') + " ").label, std::string(240, 'x'));
  EXPECT_EQ(failureOf([&] { scene.service.rename(snapshot, std::string(241, 'y')); }),
            DatabaseError("Use a snapshot name of at most 240 UTF-8 bytes."));
  EXPECT_EQ(scene.labels(), std::string(240, 'x'));
}

TEST(SnapshotService, NamesASnapshotThatSomebodyReads) {
  StoreScene scene;
  Snapshot const snapshot = scene.plant("old");
  auto const lease = scene.service.open(snapshot);
  EXPECT_EQ(scene.service.rename(snapshot, "new").label, "new");
  EXPECT_EQ(lease->snapshot.label, "old") << "a lease keeps what was read";
}

// Deleting ----------------------------------------------------------------------------------------

TEST(SnapshotService, DeletesOneSnapshotWithAllThatIsInIt) {
  StoreScene scene;
  scene.plant("stays", 1);
  Snapshot const goes = scene.plant("goes", 2);
  scene.service.open(goes);
  std::filesystem::create_directory(scene.folderOf(goes) / "more");
  std::ofstream(scene.folderOf(goes) / "more" / "file") << "x";
  scene.service.deleteSnapshot(goes);
  EXPECT_EQ(scene.labels(), "stays");
  EXPECT_FALSE(std::filesystem::exists(scene.folderOf(goes)));
  EXPECT_EQ(scene.hidden(), std::vector<std::string>());
}

TEST(SnapshotService, RemovesALinkInASnapshotAndNotWhatItLeadsTo) {
  StoreScene scene;
  Snapshot const goes = scene.plant("goes");
  std::filesystem::create_directory(scene.folder / "precious");
  scene.folder.write("precious/file", "x");
  std::filesystem::create_directory_symlink(scene.folder / "precious", scene.folderOf(goes) / "link");
  scene.service.deleteSnapshot(goes);
  EXPECT_EQ(scene.folder.read("precious/file"), "x");
}

TEST(SnapshotService, KeepsASnapshotThatSomebodyReads) {
  StoreScene scene;
  Snapshot const snapshot = scene.plant("read");
  auto first = scene.service.open(snapshot);
  auto second = scene.service.open(snapshot);
  EXPECT_EQ(failureOf([&] { scene.service.deleteSnapshot(snapshot); }), inUse);
  first.reset();
  EXPECT_EQ(failureOf([&] { scene.service.deleteSnapshot(snapshot); }), inUse);
  EXPECT_EQ(scene.labels(), "read");
  second.reset();
  scene.service.deleteSnapshot(snapshot);
  EXPECT_EQ(scene.labels(), "");
}

TEST(SnapshotService, TellsWhatStandsAgainstADeletion) {
  StoreScene scene;
  Snapshot const snapshot = scene.plant("whole");
  auto const lease = scene.folderOf(snapshot) / ".lease";
  std::filesystem::create_symlink("elsewhere", lease);
  EXPECT_EQ(failureOf([&] { scene.service.deleteSnapshot(snapshot); }), unsafe);
  std::filesystem::remove(lease);
  ASSERT_TRUE(plantPipe(lease));
  EXPECT_EQ(failureOf([&] { scene.service.deleteSnapshot(snapshot); }),
            DatabaseError("Cannot lock snapshot storage: Invalid argument"));
  std::filesystem::remove(lease);
  std::filesystem::create_directory(lease);
  EXPECT_EQ(failureOf([&] { scene.service.deleteSnapshot(snapshot); }),
            DatabaseError("Cannot lock snapshot storage: Is a directory"));
  std::filesystem::remove(lease);
  if (plantDevice(lease)) {
    EXPECT_EQ(failureOf([&] { scene.service.deleteSnapshot(snapshot); }),
              DatabaseError("Cannot lock snapshot storage: Invalid argument"));
  }
  std::filesystem::remove(lease);
  EXPECT_EQ(scene.labels(), "whole");
}

TEST(SnapshotService, LeavesASnapshotThatItMayNotMove) {
  StoreScene scene;
  Snapshot const snapshot = scene.plant("whole");
  { auto const lease = scene.service.open(snapshot); }
  scene.folder.openToEverybody();
  for (auto const& path : {scene.store.root(), scene.folderOf(snapshot), scene.folderOf(snapshot) / ".lease",
                           scene.store.root() / ".catalog-lock"})
    std::filesystem::permissions(path, std::filesystem::perms::all);
  std::filesystem::permissions(scene.databaseFolder(), std::filesystem::perms(0555));
  EXPECT_EQ(asUnprivileged([&] { return endOf([&] { scene.service.deleteSnapshot(snapshot); }); }).substr(0, 6),
            "EACCES");
  std::filesystem::permissions(scene.databaseFolder(), std::filesystem::perms(0700));
  EXPECT_EQ(scene.labels(), "whole");
}

// Finding -----------------------------------------------------------------------------------------

TEST(SnapshotService, FindsNothingByARecordThatWasMadeUp) {
  StoreScene scene;
  Snapshot const real = scene.plant("real");
  Snapshot none = real;
  none.id = UUID::make();
  Snapshot outside = real;
  outside.databaseID = "../../../etc";
  struct {
    Snapshot passed;
    std::string failure;
  } const cases[] = {
      {none, "ENOENT metadata.json"},
      {outside, "Invalid snapshot database identifier."},
      {Snapshot{}, "Invalid snapshot database identifier."},
  };
  for (auto const& now : cases) {
    EXPECT_EQ(endOf([&] { scene.service.open(now.passed); }), now.failure);
    EXPECT_EQ(endOf([&] { scene.service.rename(now.passed, "x"); }), now.failure);
    EXPECT_EQ(endOf([&] { scene.service.deleteSnapshot(now.passed); }), now.failure);
  }
  EXPECT_EQ(scene.history(), std::vector<Snapshot>{real});
}

TEST(SnapshotService, RefusesALinkForTheFolderOfASnapshot) {
  StoreScene scene;
  Snapshot const snapshot = scene.plant("whole");
  auto const moved = scene.folder / "moved";
  std::filesystem::rename(scene.folderOf(snapshot), moved);
  std::filesystem::create_directory_symlink(moved, scene.folderOf(snapshot));
  EXPECT_EQ(failureOf([&] { scene.service.open(snapshot); }), unsafe);
  EXPECT_EQ(failureOf([&] { scene.service.rename(snapshot, "x"); }), unsafe);
  EXPECT_EQ(failureOf([&] { scene.service.deleteSnapshot(snapshot); }), unsafe);
  EXPECT_TRUE(std::filesystem::exists(moved / "database.sqlite"));
}

// Reading -----------------------------------------------------------------------------------------

TEST(SnapshotService, LeasesASnapshotByItsRecordOrItsFile) {
  StoreScene scene;
  Snapshot const snapshot = scene.plant("read");
  Snapshot passed = snapshot;
  passed.label = "made up";
  auto const byRecord = scene.service.open(passed);
  EXPECT_EQ(byRecord->snapshot, snapshot) << "the stored record, not the passed one";
  EXPECT_EQ(byRecord->databaseURL, scene.folderOf(snapshot) / "database.sqlite");
  EXPECT_GE(byRecord->descriptor, 0);
  auto const byFile = scene.service.open(byRecord->databaseURL);
  EXPECT_EQ(byFile->snapshot, snapshot);
  EXPECT_EQ(byFile->databaseURL, byRecord->databaseURL);
  auto const connection = SQLiteConnection::open(byFile->databaseURL, {.readOnly = true});
  EXPECT_EQ(rowsAsText(byFile->databaseURL, "SELECT a FROM t"), "1");
}

TEST(SnapshotService, TakesTheFileThroughALinkFromOutside) {
  StoreScene scene;
  Snapshot const snapshot = scene.plant("read");
  std::filesystem::create_symlink(scene.folderOf(snapshot) / "database.sqlite", scene.folder / "link");
  EXPECT_EQ(scene.service.open(scene.folder / "link")->snapshot, snapshot);
}

TEST(SnapshotService, EndsALeaseWithItsObject) {
  StoreScene scene;
  Snapshot const snapshot = scene.plant("read");
  long const open = openDescriptors();
  {
    auto const lease = scene.service.open(snapshot);
    EXPECT_EQ(openDescriptors(), open + 1);
  }
  EXPECT_EQ(openDescriptors(), open);
  struct stat status {};
  ASSERT_EQ(::stat((scene.folderOf(snapshot) / ".lease").c_str(), &status), 0);
  EXPECT_EQ(status.st_mode & 07777, 0600u);
}

TEST(SnapshotService, EndsALeaseAtOnceWhileAForkedChildStillHasIt) {
  StoreScene scene;
  Snapshot const snapshot = scene.plant("read");
  auto lease = scene.service.open(snapshot);
  LockHolder const child;
  lease.reset();
  scene.service.deleteSnapshot(snapshot);
  EXPECT_EQ(scene.labels(), "");
}

TEST(SnapshotService, RefusesAFileThatIsNoCompletedSnapshot) {
  StoreScene scene;
  Snapshot const snapshot = scene.plant("read");
  auto const staging = scene.databaseFolder() / ".partial-00112233-4455-6677-8899-AABBCCDDEEFF";
  std::filesystem::copy(scene.folderOf(snapshot), staging);
  auto const nested = scene.store.root() / "deep" / snapshot.databaseID / UUID::make().text();
  std::filesystem::create_directories(nested.parent_path());
  std::filesystem::copy(scene.folderOf(snapshot), nested);
  struct {
    std::filesystem::path file;
    std::string failure;
  } const cases[] = {
      {scene.database.path(), "Unsafe snapshot path."},
      {scene.store.root(), "Unsafe snapshot path."},
      {scene.folderOf(snapshot) / "metadata.json", "Not a completed snapshot database."},
      {scene.folderOf(snapshot), "Not a completed snapshot database."},
      {scene.folderOf(snapshot) / "Database.sqlite", "Not a completed snapshot database."},
      {scene.folderOf(snapshot) / "database.sqlite-wal", "Not a completed snapshot database."},
      {staging / "database.sqlite", "Invalid snapshot metadata."},
      {nested / "database.sqlite", "Invalid snapshot metadata."},
      {scene.databaseFolder() / "database.sqlite", "ENOENT metadata.json"},
      {scene.store.root() / "database.sqlite", "ENOENT metadata.json"},
  };
  for (auto const& now : cases) {
    SCOPED_TRACE(now.file);
    EXPECT_EQ(endOf([&] { scene.service.open(now.file); }), now.failure);
  }
  std::filesystem::remove_all(staging);
}

TEST(SnapshotService, TellsThatTheDatabaseOfASnapshotIsMissing) {
  StoreScene scene;
  Snapshot const snapshot = scene.plant("empty");
  auto const file = scene.folderOf(snapshot) / "database.sqlite";
  DatabaseError const missing("The snapshot database is missing.");
  std::filesystem::remove(file);
  EXPECT_EQ(failureOf([&] { scene.service.open(snapshot); }), missing);
  EXPECT_EQ(failureOf([&] { scene.service.open(file); }), missing);
  std::filesystem::create_directory(file);
  EXPECT_EQ(failureOf([&] { scene.service.open(snapshot); }), missing);
  std::filesystem::remove(file);
  ASSERT_TRUE(plantPipe(file));
  EXPECT_EQ(failureOf([&] { scene.service.open(snapshot); }), missing);
  std::filesystem::remove(file);
  std::filesystem::create_symlink(scene.database.path(), file);
  EXPECT_EQ(failureOf([&] { scene.service.open(snapshot); }), unsafe);
  EXPECT_EQ(scene.labels(), "empty") << "the history needs the record only";
  EXPECT_FALSE(std::filesystem::exists(scene.folderOf(snapshot) / ".lease"));
}

TEST(SnapshotService, TellsWhatStandsAgainstALease) {
  StoreScene scene;
  Snapshot const snapshot = scene.plant("read");
  auto const lease = scene.folderOf(snapshot) / ".lease";
  {
    StoreLock const foreign(lease, LockKind::exclusive);
    EXPECT_EQ(failureOf([&] { scene.service.open(snapshot); }),
              DatabaseError("This snapshot is being deleted. Try again."));
  }
  std::filesystem::remove(lease);
  std::filesystem::create_symlink("elsewhere", lease);
  EXPECT_EQ(failureOf([&] { scene.service.open(snapshot); }), unsafe);
  std::filesystem::remove(lease);
  ASSERT_TRUE(plantPipe(lease));
  EXPECT_EQ(failureOf([&] { scene.service.open(snapshot); }),
            DatabaseError("Cannot lock snapshot storage: Invalid argument"));
  std::filesystem::remove(lease);
}

// The whole store ---------------------------------------------------------------------------------

TEST(SnapshotService, IsRefusedAtOnceWhileAnotherProcessHasTheStore) {
  StoreScene scene;
  Snapshot const snapshot = scene.plant("whole");
  auto const& source = scene.database.path();
  struct {
    char const* says;
    std::function<void()> operation;
  } const operations[] = {
      {"estimate", [&] { scene.service.estimate(source, noTask); }},
      {"create", [&] { scene.service.create(source, {}, {}, {}, noTask); }},
      {"history", [&] { scene.history(); }},
      {"rename", [&] { scene.service.rename(snapshot, "x"); }},
      {"delete", [&] { scene.service.deleteSnapshot(snapshot); }},
      {"open", [&] { scene.service.open(snapshot); }},
      {"open by file", [&] { scene.service.open(scene.folderOf(snapshot) / "database.sqlite"); }},
      {"open of no snapshot", [&] { scene.service.open(scene.folder / "nothing"); }},
      {"baseline", [&] { scene.service.baseline(source, noTask); }},
      {"captureBaseline", [&] { scene.service.captureBaseline(source, {}, {}, noTask); }},
      {"clearBaseline", [&] { scene.service.clearBaseline(source, snapshot.id, noTask); }},
      {"prepareChanges", [&] { scene.service.prepareChanges(source, snapshot.id, {}, noTask); }},
  };
  scene.history();
  long const open = openDescriptors();
  LockHolder other(scene.store.root() / ".catalog-lock");
  for (auto const& now : operations) {
    SCOPED_TRACE(now.says);
    EXPECT_EQ(failureOf(now.operation), inUse);
  }
  EXPECT_EQ(openDescriptors(), open);
  other.kill();
  EXPECT_EQ(scene.labels(), "whole") << "the lock of a killed process is free";
}

TEST(SnapshotService, KeepsASnapshotThatAnotherProcessReads) {
  StoreScene scene;
  Snapshot const snapshot = scene.plant("read");
  LockHolder reader(scene.folderOf(snapshot) / ".lease", LockKind::shared);
  EXPECT_EQ(failureOf([&] { scene.service.deleteSnapshot(snapshot); }), inUse);
  EXPECT_EQ(scene.service.open(snapshot)->snapshot, snapshot) << "two may read";
  reader.kill();
  scene.service.deleteSnapshot(snapshot);
  EXPECT_EQ(scene.labels(), "");
}

TEST(SnapshotService, StartsNothingForATaskThatIsCancelled) {
  StoreScene scene;
  auto const& source = scene.database.path();
  auto const task = cancelledTask();
  UUID const id = UUID::make();
  EXPECT_THROW(scene.service.estimate(source, task), TaskCancelled);
  EXPECT_THROW(scene.service.create(source, {}, {}, {}, task), TaskCancelled);
  EXPECT_THROW(scene.service.history(source, task), TaskCancelled);
  EXPECT_THROW(scene.service.baseline(source, task), TaskCancelled);
  EXPECT_THROW(scene.service.captureBaseline(source, {}, {}, task), TaskCancelled);
  EXPECT_THROW(scene.service.clearBaseline(source, id, task), TaskCancelled);
  EXPECT_THROW(scene.service.prepareChanges(source, id, {}, task), TaskCancelled);
  EXPECT_FALSE(std::filesystem::exists(scene.store.root())) << "not even the store is made";
}

TEST(SnapshotService, TakesOneCallAtATime) {
  StoreScene scene;
  Snapshot const snapshot = scene.plant("whole");
  std::vector<std::jthread> threads;
  std::atomic<int> failures = 0;
  for (int count = 0; count < 4; ++count) {
    threads.emplace_back([&] {
      for (int turn = 0; turn < 20; ++turn) {
        try {
          scene.history();
          scene.service.open(snapshot);
        } catch (std::exception const&) {
          ++failures;
        }
      }
    });
  }
  threads.clear();
  EXPECT_EQ(failures, 0) << "calls of one service wait for each other and never meet its own lock";
}

TEST(SnapshotService, EstimatesWhatASnapshotTakes) {
  StoreScene scene("PRAGMA page_size=8192; CREATE TABLE t(a); INSERT INTO t VALUES (zeroblob(100000))");
  auto const estimate = scene.service.estimate(scene.database.path(), noTask);
  EXPECT_EQ(estimate.bytes, static_cast<std::int64_t>(std::filesystem::file_size(scene.database.path())));
  EXPECT_TRUE(estimate.availableBytes.has_value());
  SnapshotService limited(scene.store.root(), {.availableBytesOverride = 12});
  EXPECT_EQ(limited.estimate(scene.database.path(), noTask).availableBytes, 12);
  EXPECT_FALSE(std::filesystem::exists(scene.databaseFolder()));
  EXPECT_EQ(failureOf([&] { scene.service.estimate(scene.folder / "absent", noTask); }).code & 0xFF, 14);
}

TEST(SnapshotService, WorksOnAStoreGivenThroughALinkOrWithASlash) {
  StoreScene scene;
  Snapshot const snapshot = scene.plant("whole");
  std::filesystem::create_directory_symlink("store", scene.folder / "link");
  for (std::filesystem::path const& root : {scene.folder / "link", scene.folder / "link/", scene.folder / "store/"}) {
    SCOPED_TRACE(root);
    SnapshotService service(root);
    EXPECT_EQ(service.history(scene.database.path(), noTask), std::vector<Snapshot>{snapshot});
    EXPECT_EQ(service.open(root / snapshot.databaseID / snapshot.id.text() / "database.sqlite")->databaseURL,
              scene.folderOf(snapshot) / "database.sqlite");
  }
}

TEST(SnapshotService, KnowsTheUsersOwnStore) {
  TemporaryFolder folder;
  Environment const data("XDG_DATA_HOME", folder.path());
  auto const store = applicationSupport() / "Snapshots";
  EXPECT_TRUE(SnapshotService::isManagedSnapshot(store / "a" / "database.sqlite"));
  EXPECT_FALSE(SnapshotService::isManagedSnapshot(store));
  EXPECT_FALSE(SnapshotService::isManagedSnapshot(folder / "live.sqlite"));
  std::filesystem::create_directories(store);
  std::filesystem::create_directory_symlink(store, folder / "link");
  EXPECT_TRUE(SnapshotService::isManagedSnapshot(folder / "link" / "database.sqlite"));
}

TEST(SnapshotService, SharesOneServiceOnTheUsersOwnStore) {
  TemporaryFolder folder;
  folder.allowLeftover(".catalog-lock");
  folder.allowLeftover(".lease");
  Environment const data("XDG_DATA_HOME", folder.path());
  TemporaryDatabase const database(folder, "live.sqlite", "CREATE TABLE t(a)");
  EXPECT_EQ(&SnapshotService::shared(), &SnapshotService::shared());
  Snapshot const snapshot = SnapshotService::shared().create(database.path(), {}, {}, {}, noTask);
  auto const file = SnapshotService::shared().open(snapshot)->databaseURL;
  EXPECT_TRUE(SnapshotService::isManagedSnapshot(file));
  EXPECT_EQ(file, folder / "Tolva" / "Snapshots" / snapshot.databaseID / snapshot.id.text() / "database.sqlite");
  EXPECT_EQ(failureOf([&] { SQLiteConnection::open(file, {.readOnly = false}); }),
            DatabaseError("Historical snapshots cannot be modified.", 8));
}

}  // namespace
}  // namespace tolva
