// SPDX-License-Identifier: Apache-2.0
// The deletion of snapshots.
#include <gtest/gtest.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <functional>
#include <string>
#include <vector>

#include "snapshots/LockFailure.hpp"
#include "snapshots/LockHolder.hpp"
#include "snapshots/Planted.hpp"
#include "snapshots/StoreScene.hpp"
#include "support/Failure.hpp"
#include "support/FaultInjector.hpp"
#include "support/SystemFailure.hpp"
#include "support/Unprivileged.hpp"

namespace tolva {
namespace {

DatabaseError const unsafe("Unsafe snapshot path.");
DatabaseError const inUse(
    "Snapshot storage is in use. Close open snapshot tabs or wait for the other operation to finish.");

TEST(SnapshotServiceDeletion, DeletesOneSnapshotWithAllThatIsInIt) {
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

TEST(SnapshotServiceDeletion, RemovesALinkInASnapshotAndNotWhatItLeadsTo) {
  StoreScene scene;
  Snapshot const goes = scene.plant("goes");
  std::filesystem::create_directory(scene.folder / "precious");
  scene.folder.write("precious/file", "x");
  std::filesystem::create_directory_symlink(scene.folder / "precious", scene.folderOf(goes) / "link");
  scene.service.deleteSnapshot(goes);
  EXPECT_EQ(scene.folder.read("precious/file"), "x");
}

TEST(SnapshotServiceDeletion, KeepsASnapshotThatSomebodyReads) {
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

TEST(SnapshotServiceDeletion, TellsWhatStandsAgainstADeletion) {
  StoreScene scene;
  Snapshot const snapshot = scene.plant("whole");
  auto const lease = scene.folderOf(snapshot) / ".lease";
  std::filesystem::create_symlink("elsewhere", lease);
  EXPECT_EQ(failureOf([&] { scene.service.deleteSnapshot(snapshot); }), unsafe);
  std::filesystem::remove(lease);
  ASSERT_TRUE(plantPipe(lease));
  EXPECT_EQ(failureOf([&] { scene.service.deleteSnapshot(snapshot); }), DatabaseError(lockFailure(EINVAL)));
  std::filesystem::remove(lease);
  std::filesystem::create_directory(lease);
  EXPECT_EQ(failureOf([&] { scene.service.deleteSnapshot(snapshot); }), DatabaseError(lockFailure(EISDIR)));
  std::filesystem::remove(lease);
  if (plantDevice(lease)) {
    EXPECT_EQ(failureOf([&] { scene.service.deleteSnapshot(snapshot); }), DatabaseError(lockFailure(EINVAL)));
  }
  std::filesystem::remove(lease);
  EXPECT_EQ(scene.labels(), "whole");
}

TEST(SnapshotServiceDeletion, LeavesASnapshotThatItMayNotMove) {
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

TEST(SnapshotServiceDeletion, DeletesFoldersThatMayNotBeWritten) {
  StoreScene scene;
  scene.folder.openToEverybody();
  EXPECT_EQ(asUnprivileged([&] {
              scene.plant("kept", 1);
              Snapshot const goes = scene.plant("goes", 2);
              { auto const lease = scene.service.open(goes); }
              auto const more = scene.folderOf(goes) / "more";
              std::filesystem::create_directory(more);
              std::ofstream(more / "file") << "x";
              for (auto const& path : {more, scene.folderOf(goes)})
                std::filesystem::permissions(path, std::filesystem::perms(0500));
              std::string const end = endOf([&] { scene.service.deleteSnapshot(goes); });
              return end + ", " + scene.labels();
            }),
            "(nothing failed), kept");
  EXPECT_EQ(scene.hidden(), std::vector<std::string>());
}

/// One call of a deletion after the other is refused, those that remove the database and try the record included.
TEST(SnapshotServiceDeletion, GoesOnAfterADeletionThatFails) {
  StoreScene scene;
  scene.plant("kept", 1);
  long failures = 0;
  long listed = 0;
  for (long n = 1;; ++n) {
    SCOPED_TRACE(n);
    Snapshot const goes = scene.plant("goes", 2);
    bool const struck = FaultInjector::failing(scene.store.root(), n, EPERM, /*persistent=*/false, [&] {
      try {
        scene.service.deleteSnapshot(goes);
      } catch (std::exception const&) {
        ++failures;
      }
    });
    EXPECT_EQ(scene.service.create(scene.database.path(), "new", {}, {}, noTask).label, "new");
    scene.service.deleteSnapshot(scene.history().front());
    if (scene.labels() == "goes kept") {
      ++listed;
      EXPECT_EQ(rowsAsText(scene.service.open(goes)->databaseURL, "SELECT a FROM t"), "1");
      scene.service.deleteSnapshot(goes);
    }
    ASSERT_EQ(scene.labels(), "kept");
    if (!struck) break;
  }
  EXPECT_GE(listed, 5);
  EXPECT_GT(failures, listed);
}

/// What belongs to another user and is not empty stays, whatever the owner of the store may do.
TEST(SnapshotServiceDeletion, ListsASnapshotThatItCannotDeleteAndGoesOn) {
  if (::geteuid() != 0) GTEST_SKIP() << "needs a second user";
  StoreScene scene;
  scene.folder.openToEverybody();
  auto const plant = [&] { return scene.plant("kept", 1).id.text() + " " + scene.plant("stays", 2).id.text(); };
  std::string const ids = asUnprivileged(plant);
  Snapshot stays;
  stays.databaseID = scene.databaseID();
  stays.id = UUID::parse(ids.substr(37)).value();
  std::filesystem::create_directory(scene.folderOf(stays) / "foreign");
  std::ofstream(scene.folderOf(stays) / "foreign" / "file") << "x";
  EXPECT_EQ(asUnprivileged([&] {
              std::string const end = endOf([&] { scene.service.deleteSnapshot(stays); }).substr(0, 6);
              scene.service.captureBaseline(scene.database.path(), {}, {}, noTask);
              scene.service.create(scene.database.path(), "new", {}, {}, noTask);
              auto const lease = scene.service.open(stays);
              return end + ", " + scene.labels() + ", " + rowsAsText(lease->databaseURL, "SELECT a FROM t");
            }),
            "EACCES, new What Changed baseline stays kept, 1");
  EXPECT_EQ(scene.hidden(), std::vector<std::string>());
}

}  // namespace
}  // namespace tolva
