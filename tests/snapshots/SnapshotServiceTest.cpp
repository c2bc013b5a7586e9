// SPDX-License-Identifier: Apache-2.0
// The history of snapshots, and the whole store.
#include "snapshots/SnapshotService.hpp"

#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <fstream>
#include <functional>
#include <map>
#include <string>
#include <thread>
#include <vector>

#include "core/SQLiteConnection.hpp"
#include "platform/ApplicationFolders.hpp"
#include "snapshots/LockFailure.hpp"
#include "snapshots/LockHolder.hpp"
#include "snapshots/Planted.hpp"
#include "snapshots/StoreScene.hpp"
#include "support/Descriptors.hpp"
#include "support/Environment.hpp"
#include "support/Failure.hpp"
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

// The history -------------------------------------------------------------------------------------

TEST(SnapshotService, ListsTheNewestFirst) {
  StoreScene scene;
  scene.plant("second", 20);
  scene.plant("third", 30);
  scene.plant("first", 10);
  EXPECT_EQ(scene.labels(), "third second first");
}

TEST(SnapshotService, ListsSnapshotsOfOneMomentInTheOrderOfTheirFolder) {
  StoreScene scene;
  std::map<std::string, std::string> labels;  // by the name of the folder
  for (char const* label : {"a", "b", "c", "d"}) labels[scene.plant(label, 10).id.text()] = label;
  std::string expected;
  for (auto const& entry : std::filesystem::directory_iterator(scene.databaseFolder()))
    expected += (expected.empty() ? "" : " ") + labels[entry.path().filename()];
  EXPECT_EQ(scene.labels(), expected);
  scene.plant("newer", 11);
  scene.plant("older", 9);
  EXPECT_EQ(scene.labels().substr(0, 6), "newer ");
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
      {"a folder named in lower case",
       [](auto const& folder) {
         std::string name = folder.filename();
         std::ranges::transform(name, name.begin(), [](char c) { return c >= 'A' && c <= 'Z' ? char(c + 32) : c; });
         std::filesystem::rename(folder, folder.parent_path() / name);
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
            ::geteuid() == 0 ? lockFailure(EACCES) : "(nothing failed)");
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

TEST(SnapshotService, RemovesWhatAKilledRenamingLeftAndOnlyThat) {
  StoreScene scene;
  Snapshot const snapshot = scene.plant("old");
  auto const left = scene.folderOf(snapshot) / ".partial-00112233-4455-6677-8899-AABBCCDDEEFF";
  auto const other = scene.folderOf(snapshot) / ".partial-notes";
  std::ofstream(left) << "half a record";
  std::ofstream(other) << "notes";
  scene.service.rename(snapshot, "new");
  EXPECT_FALSE(std::filesystem::exists(left));
  EXPECT_TRUE(std::filesystem::remove(other));
  std::filesystem::create_symlink("elsewhere", left);
  EXPECT_EQ(scene.service.rename(snapshot, "newer").label, "newer") << "what cannot be removed is in nobody's way";
  EXPECT_TRUE(std::filesystem::remove(left));
}

TEST(SnapshotService, NamesASnapshotThatSomebodyReads) {
  StoreScene scene;
  Snapshot const snapshot = scene.plant("old");
  auto const lease = scene.service.open(snapshot);
  EXPECT_EQ(scene.service.rename(snapshot, "new").label, "new");
  EXPECT_EQ(lease->snapshot.label, "old") << "a lease keeps what was read";
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

TEST(SnapshotService, WaitsForNoSourceThatIsNoFile) {
  StoreScene scene;
  ASSERT_TRUE(plantPipe(scene.folder / "pipe"));
  for (std::filesystem::path const& source : {scene.folder / "pipe", scene.folder.path()}) {
    SCOPED_TRACE(source);
    EXPECT_EQ(failureOf([&] { scene.service.estimate(source, noTask); }).code & 0xFF, 14);
    EXPECT_EQ(failureOf([&] { scene.service.create(source, {}, {}, {}, noTask); }),
              DatabaseError("Cannot identify this database file safely."));
  }
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
