// SPDX-License-Identifier: Apache-2.0
// What the operations on whole snapshots leave behind when the disk fails, or the process dies, at any of their calls.
#include <gtest/gtest.h>

#include <algorithm>
#include <cerrno>
#include <functional>
#include <string>
#include <vector>

#include "snapshots/BaselinePointer.hpp"
#include "snapshots/DescriptorLimit.hpp"
#include "snapshots/StoreScene.hpp"
#include "support/FaultInjector.hpp"
#include "support/Sanitizer.hpp"

namespace tolva {
namespace {

using Told = FaultOutcome::Told;

constexpr long mostPoints = sanitized ? 40 : 250;  // of the two operations that capture

/// A store with two snapshots of one row each, the older of which may be the baseline.
struct FaultScene : StoreScene {
  Snapshot older;
  Snapshot newer;

  void prepare(bool withBaseline = false) {
    std::filesystem::remove_all(store.root());
    older = plant("older", 10);
    newer = plant("newer", 20);
    if (withBaseline) pointer().set(older.id);
  }

  BaselinePointer pointer() const { return BaselinePointer(store, databaseFolder()); }

  /// Looks at the whole store as the next user does, who may find `hiddenFiles` in it.
  std::vector<Snapshot> inspect(std::size_t hiddenFiles = 0) {
    auto const listed = history();
    for (Snapshot const& snapshot : listed) {
      auto const lease = service.open(snapshot);
      EXPECT_EQ(rowsAsText(lease->databaseURL, "PRAGMA integrity_check"), "ok");
      EXPECT_EQ(rowsAsText(lease->databaseURL, "SELECT a FROM t"), "1");
    }
    service.baseline(database.path(), noTask);
    auto const left = hidden();
    EXPECT_LE(left.size(), hiddenFiles) << testing::PrintToString(left);
    return listed;
  }

  void clearAndDeleteAll() {
    service.clearBaseline(database.path(), older.id, noTask);
    for (Snapshot const& snapshot : history()) service.deleteSnapshot(snapshot);
    EXPECT_TRUE(std::filesystem::is_empty(databaseFolder()));
  }
};

bool holds(std::vector<Snapshot> const& listed, UUID const& id) {
  return std::any_of(listed.begin(), listed.end(), [&](Snapshot const& snapshot) { return snapshot.id == id; });
}

TEST(SnapshotServiceFaults, ARecordHasItsOldLabelOrItsNewOne) {
  FaultScene scene;
  forEachFault(
      scene.folder.path(), [&] { scene.prepare(); }, [&] { scene.service.rename(scene.newer, "renamed"); },
      [&](FaultMode mode, long, FaultOutcome const& outcome) {
        auto const listed = scene.inspect(/*hiddenFiles=*/mode == FaultMode::kill ? 1 : 0);
        ASSERT_EQ(listed.size(), 2U);
        EXPECT_EQ(listed[1], scene.older);
        EXPECT_TRUE(listed[0].label == "newer" || listed[0].label == "renamed");
        if (outcome.told == Told::success) {
          EXPECT_EQ(listed[0].label, "renamed");
        }
        EXPECT_EQ(scene.service.rename(scene.newer, "renamed").label, "renamed");
        EXPECT_EQ(scene.hidden(), std::vector<std::string>());
      });
}

TEST(SnapshotServiceFaults, ASnapshotIsDeletedWholeOrNotAtAll) {
  FaultScene scene;
  std::string fates;  // of one that could not be deleted because one call failed
  forEachFault(
      scene.folder.path(), [&] { scene.prepare(); }, [&] { scene.service.deleteSnapshot(scene.newer); },
      [&](FaultMode mode, long, FaultOutcome const& outcome) {
        auto const listed = scene.inspect();
        EXPECT_TRUE(holds(listed, scene.older.id));
        bool const stays = holds(listed, scene.newer.id);
        if (outcome.told == Told::success) {
          EXPECT_FALSE(stays);
        }
        if (mode == FaultMode::error) fates += stays ? "s" : outcome.told == Told::failure ? "g" : ".";
        if (stays) scene.service.deleteSnapshot(scene.newer);
        EXPECT_EQ(scene.labels(), "older");
      });
  EXPECT_EQ(fates, "sssssssgg") << "it is listed until its database is removed";
}

TEST(SnapshotServiceFaults, ALeaseIsTakenOrNothingIsHeld) {
  FaultScene scene;
  forEachFault(
      scene.folder.path(), [&] { scene.prepare(); }, [&] { scene.service.open(scene.newer); },
      [&](FaultMode, long, FaultOutcome const&) {
        EXPECT_EQ(scene.inspect().size(), 2U);
        scene.service.deleteSnapshot(scene.newer);
      });
}

TEST(SnapshotServiceFaults, ABaselineIsTheOldOneOrTheNew) {
  FaultScene scene;
  forEachFault(
      scene.folder.path(), [&] { scene.prepare(/*withBaseline=*/true); },
      [&] { scene.service.captureBaseline(scene.database.path(), scene.older.id, {}, noTask); },
      [&](FaultMode, long, FaultOutcome const& outcome) {
        auto const listed = scene.inspect();
        EXPECT_TRUE(listed.size() == 2 || listed.size() == 3) << listed.size();
        EXPECT_TRUE(holds(listed, scene.older.id) && holds(listed, scene.newer.id));
        auto const baseline = scene.service.baseline(scene.database.path(), noTask);
        ASSERT_TRUE(baseline.snapshot.has_value());
        if (outcome.told == Told::success) {
          EXPECT_NE(baseline.id, scene.older.id);
        }
        if (baseline.id != scene.older.id) {
          EXPECT_EQ(baseline.snapshot, listed.front());
        }
        Snapshot const next = scene.service.captureBaseline(scene.database.path(), baseline.id, {}, noTask);
        EXPECT_EQ(scene.service.baseline(scene.database.path(), noTask).snapshot, next);
      },
      mostPoints);
}

TEST(SnapshotServiceFaults, ABaselineIsForgottenOrStays) {
  FaultScene scene;
  forEachFault(
      scene.folder.path(), [&] { scene.prepare(/*withBaseline=*/true); },
      [&] { scene.service.clearBaseline(scene.database.path(), scene.older.id, noTask); },
      [&](FaultMode, long, FaultOutcome const& outcome) {
        EXPECT_EQ(scene.inspect().size(), 2U);
        auto const id = scene.service.baseline(scene.database.path(), noTask).id;
        EXPECT_TRUE(!id || id == scene.older.id);
        if (outcome.told == Told::success) {
          EXPECT_FALSE(id.has_value());
        }
        if (id) scene.service.clearBaseline(scene.database.path(), *id, noTask);
        scene.service.deleteSnapshot(scene.older);
      });
}

TEST(SnapshotServiceFaults, AComparisonIsPreparedOrNothingIsHeld) {
  FaultScene scene;
  auto const prepare = [&] { scene.service.prepareChanges(scene.database.path(), scene.older.id, {}, noTask); };
  forEachFault(
      scene.folder.path(), [&] { scene.prepare(/*withBaseline=*/true); }, prepare,
      [&](FaultMode, long, FaultOutcome const& outcome) {
        auto const listed = scene.inspect();
        EXPECT_TRUE(listed.size() == 2 || listed.size() == 3) << listed.size();
        if (outcome.told == Told::success) {
          EXPECT_EQ(listed.front().label, "What Changed current");
        }
        EXPECT_EQ(scene.service.baseline(scene.database.path(), noTask).id, scene.older.id);
        prepare();
        scene.clearAndDeleteAll();
      },
      mostPoints);
}

TEST(SnapshotServiceFaults, ACaptureLeavesNothingWhereDescriptorsRunOut) {
  if (sanitized) GTEST_SKIP() << "The sanitizers need descriptors of their own to look at a pointer.";
  FaultScene scene;
  scene.prepare();
  int failures = 0;
  for (bool failed = true; failed; ++failures) {
    SCOPED_TRACE(std::to_string(failures) + " free");
    failed = false;
    try {
      DescriptorLimit const limit(failures);
      scene.service.create(scene.database.path(), "new", {}, {}, noTask);
    } catch (std::exception const&) {
      failed = true;
    }
    EXPECT_EQ(scene.hidden(), std::vector<std::string>());
  }
  EXPECT_GT(failures, 4);
  EXPECT_EQ(scene.history().size(), 3U);
}

TEST(SnapshotServiceFaults, AHistoryIsWholeOrFails) {
  FaultScene scene;
  scene.prepare();
  for (long n = 1;; ++n) {
    SCOPED_TRACE("read " + std::to_string(n));
    FaultInjector const injector(scene.store.root(), {.at = n, .error = EIO, .reads = true});
    std::size_t listed = 0;
    bool failed = false;
    try {
      listed = scene.history().size();
    } catch (std::filesystem::filesystem_error const& error) {
      failed = error.code().value() == EIO;
    }
    if (injector.calls() < n) {
      EXPECT_EQ(listed, 2U);
      EXPECT_GT(n, 2) << "both records are read";
      break;
    }
    EXPECT_TRUE(failed);
  }
}

}  // namespace
}  // namespace tolva
