// SPDX-License-Identifier: Apache-2.0
#include <gtest/gtest.h>

#include <functional>

#include "snapshots/SnapshotService.hpp"
#include "snapshots/SnapshotSource.hpp"
#include "support/NoTask.hpp"
#include "support/PowerLoss.hpp"
#include "support/TemporaryDatabase.hpp"

namespace tolva {
namespace {

constexpr char const* store = "Tolva/Snapshots";  // on the disk

/// A source beside the folder that holds the store, which loses the power.
struct Scene {
  explicit Scene(std::string const& mode)
      : database(folder, "a.db", "PRAGMA journal_mode = " + mode + "; CREATE TABLE t(a); INSERT INTO t VALUES (7);") {
    folder.allowLeftover(".catalog-lock");
    folder.allowLeftover(".lease");
    std::filesystem::create_directory(disk);
    std::filesystem::create_directory(replayed);
  }

  Snapshot create(SnapshotService& on) const { return on.create(database.path(), "old", {}, {}, noTask); }
  std::vector<Snapshot> history(SnapshotService& of) const { return of.history(database.path(), noTask); }

  /// What a person finds after each loss: a history that can be listed, of whole snapshots, and a store that works.
  void afterEachLoss(
      std::function<void()> const& operation,
      std::function<void(SnapshotService&, std::vector<Snapshot> const&, bool completed)> const& check,
      std::function<void()> const& earlier = [] {}) {
    std::vector<PowerLoss> const losses = PowerLoss::during(disk, earlier, operation);
    EXPECT_GE(losses.size(), 3U);
    for (PowerLoss const& loss : losses) {
      SCOPED_TRACE(loss.says);
      loss.restore(replayed);
      SnapshotService after(replayed / store);
      std::vector<Snapshot> const found = history(after);
      for (Snapshot const& snapshot : found) {
        EXPECT_EQ(rowsAsText(after.open(snapshot)->databaseURL, "SELECT a FROM t; PRAGMA integrity_check"), "7\nok");
      }
      check(after, found, loss.completed);
      create(after);
      EXPECT_EQ(history(after).size(), found.size() + 1);
    }
  }

  /// What a process leaves that is killed before it has put the folders that it made on the disk.
  void makeFolders() const {
    std::filesystem::create_directories(disk / store / snapshotSource(database.path()).databaseID);
  }

  TemporaryFolder folder;
  TemporaryDatabase const database;
  std::filesystem::path const disk = folder / "disk";
  std::filesystem::path const replayed = folder / "replayed";
  SnapshotService service{disk / store};
};

class SnapshotPowerLoss : public testing::TestWithParam<std::string> {};

TEST_P(SnapshotPowerLoss, LeavesTheFirstSnapshotWholeOrNone) {
  Scene scene(GetParam());
  Snapshot made;
  scene.afterEachLoss([&] { made = scene.create(scene.service); },
                      [&](SnapshotService&, std::vector<Snapshot> const& found, bool completed) {
                        EXPECT_TRUE(found.empty() ? !completed : found == std::vector{made}) << found.size();
                      });
}

TEST_P(SnapshotPowerLoss, LeavesEarlierSnapshotsBesideANewOne) {
  Scene scene(GetParam());
  Snapshot const earlier = scene.create(scene.service);
  Snapshot made;
  scene.afterEachLoss(
      [&] { made = scene.create(scene.service); },
      [&](SnapshotService&, std::vector<Snapshot> const& found, bool completed) {
        EXPECT_TRUE((!completed && found == std::vector{earlier}) || found == (std::vector{made, earlier}));
      });
}

TEST_P(SnapshotPowerLoss, LeavesTheFirstSnapshotInFoldersThatAKilledProcessMade) {
  Scene scene(GetParam());
  Snapshot made;
  scene.afterEachLoss([&] { made = scene.create(scene.service); },
                      [&](SnapshotService&, std::vector<Snapshot> const& found, bool completed) {
                        EXPECT_TRUE(found.empty() ? !completed : found == std::vector{made}) << found.size();
                      },
                      [&] { scene.makeFolders(); });
}

INSTANTIATE_TEST_SUITE_P(InEachJournalMode, SnapshotPowerLoss, testing::Values("DELETE", "WAL"),
                         [](auto const& mode) { return mode.param; });

TEST(SnapshotPowerLossOfTheCatalog, LeavesTheOldLabelOrTheNew) {
  Scene scene("DELETE");
  Snapshot const earlier = scene.create(scene.service);
  Snapshot renamed = earlier;
  renamed.label = "new";
  scene.afterEachLoss([&] { scene.service.rename(earlier, "new"); },
                      [&](SnapshotService&, std::vector<Snapshot> const& found, bool completed) {
                        EXPECT_TRUE((!completed && found == std::vector{earlier}) || found == std::vector{renamed});
                      });
}

TEST(SnapshotPowerLossOfTheCatalog, LeavesADeletedSnapshotWholeOrGone) {
  Scene scene("DELETE");
  Snapshot const first = scene.create(scene.service);
  Snapshot const second = scene.create(scene.service);
  scene.afterEachLoss(
      [&] { scene.service.deleteSnapshot(first); },
      [&](SnapshotService&, std::vector<Snapshot> const& found, bool completed) {
        EXPECT_TRUE((!completed && found == (std::vector{second, first})) || found == std::vector{second});
      });
}

TEST(SnapshotPowerLossOfTheCatalog, LeavesTheOldBaselineOrTheNew) {
  Scene scene("DELETE");
  Snapshot const old = scene.service.captureBaseline(scene.database.path(), {}, {}, noTask);
  Snapshot made;
  scene.afterEachLoss([&] { made = scene.service.captureBaseline(scene.database.path(), old.id, {}, noTask); },
                      [&](SnapshotService& after, std::vector<Snapshot> const&, bool completed) {
                        BaselineSelection const found = after.baseline(scene.database.path(), noTask);
                        EXPECT_TRUE((!completed && found == BaselineSelection{old.id, old}) ||
                                    found == (BaselineSelection{made.id, made}));
                      });
}

TEST(SnapshotPowerLossOfTheCatalog, LeavesTheFirstBaselineOrNone) {
  Scene scene("DELETE");
  Snapshot made;
  scene.afterEachLoss(
      [&] { made = scene.service.captureBaseline(scene.database.path(), {}, {}, noTask); },
      [&](SnapshotService& after, std::vector<Snapshot> const&, bool completed) {
        BaselineSelection const found = after.baseline(scene.database.path(), noTask);
        EXPECT_TRUE((!completed && found == BaselineSelection{}) || found == (BaselineSelection{made.id, made}));
      });
}

TEST(SnapshotPowerLossOfTheCatalog, LeavesTheFirstBaselineInFoldersThatAKilledProcessMade) {
  Scene scene("DELETE");
  Snapshot made;
  scene.afterEachLoss(
      [&] { made = scene.service.captureBaseline(scene.database.path(), {}, {}, noTask); },
      [&](SnapshotService& after, std::vector<Snapshot> const&, bool completed) {
        BaselineSelection const found = after.baseline(scene.database.path(), noTask);
        EXPECT_TRUE((!completed && found == BaselineSelection{}) || found == (BaselineSelection{made.id, made}));
      },
      [&] { scene.makeFolders(); });
}

TEST(SnapshotPowerLossOfTheCatalog, LeavesABaselineThatIsClearedOrNone) {
  Scene scene("DELETE");
  Snapshot const old = scene.service.captureBaseline(scene.database.path(), {}, {}, noTask);
  scene.afterEachLoss(
      [&] { scene.service.clearBaseline(scene.database.path(), old.id, noTask); },
      [&](SnapshotService& after, std::vector<Snapshot> const&, bool completed) {
        BaselineSelection const found = after.baseline(scene.database.path(), noTask);
        EXPECT_TRUE((!completed && found == (BaselineSelection{old.id, old})) || found == BaselineSelection{});
      });
}

}  // namespace
}  // namespace tolva
