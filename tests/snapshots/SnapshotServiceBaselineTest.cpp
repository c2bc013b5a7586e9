// SPDX-License-Identifier: Apache-2.0
// The baseline of a database and what changed since.
#include <gtest/gtest.h>

#include <fstream>
#include <functional>
#include <stop_token>
#include <string>
#include <vector>

#include "snapshots/BaselineScene.hpp"
#include "snapshots/StoreLock.hpp"
#include "support/Descriptors.hpp"
#include "support/Failure.hpp"
#include "support/SystemFailure.hpp"

namespace tolva {
namespace {

DatabaseError const isBaseline(
    "This is the What Changed baseline. Clear or replace the baseline in What Changed before deleting it.");

// Selecting ---------------------------------------------------------------------------------------

TEST(SnapshotServiceBaseline, HasThreeStates) {
  BaselineScene scene;
  EXPECT_EQ(scene.baseline(), BaselineSelection());
  Snapshot const snapshot = scene.capture();
  EXPECT_EQ(scene.baseline(), (BaselineSelection{snapshot.id, snapshot}));
  std::filesystem::remove_all(scene.folderOf(snapshot));
  EXPECT_EQ(scene.baseline(), (BaselineSelection{snapshot.id, std::nullopt}));
  scene.clear(snapshot.id);
  EXPECT_EQ(scene.baseline(), BaselineSelection());
}

TEST(SnapshotServiceBaseline, IsBrokenWithoutItsRecordOrItsDatabase) {
  for (char const* name : {"metadata.json", "database.sqlite"}) {
    SCOPED_TRACE(name);
    BaselineScene scene;
    Snapshot const snapshot = scene.capture();
    std::filesystem::remove(scene.folderOf(snapshot) / name);
    EXPECT_EQ(scene.baseline(), (BaselineSelection{snapshot.id, std::nullopt}));
  }
}

TEST(SnapshotServiceBaseline, ReportsARecordThatIsThereAndCannotBeRead) {
  BaselineScene scene;
  Snapshot const snapshot = scene.capture();
  auto const file = scene.folderOf(snapshot) / "metadata.json";
  std::ofstream(file) << std::string(65'536, ' ');
  EXPECT_EQ(failureOf([&] { scene.baseline(); }), DatabaseError("Snapshot metadata is too large."));
  std::filesystem::remove(file);
  std::filesystem::create_symlink("nowhere", file);
  EXPECT_EQ(failureOf([&] { scene.baseline(); }), DatabaseError("Unsafe snapshot path."));
}

TEST(SnapshotServiceBaseline, FollowsItsLabel) {
  BaselineScene scene;
  Snapshot const renamed = scene.service.rename(scene.capture(), "another");
  EXPECT_EQ(scene.baseline().snapshot, renamed);
}

TEST(SnapshotServiceBaseline, BelongsToOneFileAtOnePath) {
  BaselineScene scene;
  Snapshot const snapshot = scene.capture();
  replaceSource(scene);
  EXPECT_EQ(scene.baseline(), BaselineSelection());
  EXPECT_EQ(failureOf([&] { scene.prepare(snapshot.id); }), changed);
  EXPECT_EQ(failureOf([&] { scene.clear(snapshot.id); }), changed);
  EXPECT_EQ(scene.capture().label, "What Changed baseline");
}

// Capturing ---------------------------------------------------------------------------------------

TEST(SnapshotServiceBaseline, TakesASnapshotAndNamesIt) {
  BaselineScene scene;
  std::vector<SnapshotProgress> told;
  Snapshot const snapshot = scene.capture({}, [&](SnapshotProgress const& progress) { told.push_back(progress); });
  EXPECT_EQ(snapshot.label, "What Changed baseline");
  EXPECT_EQ(scene.history(), std::vector<Snapshot>{snapshot});
  ASSERT_FALSE(told.empty());
  EXPECT_EQ(told.back().copiedPages, told.back().totalPages);
}

TEST(SnapshotServiceBaseline, ReplacesTheOneThatWasSeen) {
  BaselineScene scene;
  Snapshot const old = scene.capture();
  EXPECT_EQ(failureOf([&] { scene.capture(); }), changed) << "another window has set one";
  EXPECT_EQ(failureOf([&] { scene.capture(UUID::make()); }), changed);
  EXPECT_EQ(scene.history().size(), 1U) << "refused before a capture";
  Snapshot const next = scene.capture(old.id);
  EXPECT_EQ(scene.baseline().id, next.id);
  EXPECT_EQ(scene.history(), (std::vector<Snapshot>{next, old})) << "the former one stays";
}

TEST(SnapshotServiceBaseline, ReplacesABrokenOne) {
  BaselineScene scene;
  Snapshot const old = scene.capture();
  std::filesystem::remove_all(scene.folderOf(old));
  Snapshot const next = scene.capture(old.id);
  EXPECT_EQ(scene.baseline(), (BaselineSelection{next.id, next}));
}

/// Does `meanwhile` once, when the copy is made.
SnapshotProgressReport once(std::function<void()> const& meanwhile) {
  return [meanwhile, done = false](SnapshotProgress const&) mutable {
    if (!done) meanwhile();
    done = true;
  };
}

TEST(SnapshotServiceBaseline, LeavesTheOneThatAnotherWindowSetDuringTheCapture) {
  BaselineScene scene;
  Snapshot const old = scene.capture();
  UUID const other = UUID::make();
  EXPECT_EQ(failureOf([&] { scene.capture(old.id, once([&] { scene.pointer().set(other); })); }), changed);
  EXPECT_EQ(scene.baseline().id, other);
  EXPECT_EQ(scene.labels(), "What Changed baseline What Changed baseline") << "the new snapshot stays in the history";
}

TEST(SnapshotServiceBaseline, IsNotSetByATaskThatIsCancelledDuringTheCapture) {
  BaselineScene scene;
  std::stop_source task;
  EXPECT_THROW(scene.service.captureBaseline(
                   scene.database.path(), {}, [&](SnapshotProgress const&) { task.request_stop(); }, task.get_token()),
               TaskCancelled);
  EXPECT_EQ(scene.baseline(), BaselineSelection());
  EXPECT_EQ(scene.hidden(), std::vector<std::string>());
}

TEST(SnapshotServiceBaseline, GivesEachFailureOfTheCaptureAsItIs) {
  BaselineScene scene;
  SnapshotService full(scene.store.root(), {.availableBytesOverride = 0});
  EXPECT_EQ(failureOf([&] { full.captureBaseline(scene.database.path(), {}, {}, noTask); }),
            DatabaseError("Not enough free space for this snapshot. Delete unwanted snapshots or free disk space and "
                          "try again."));
  EXPECT_EQ(systemFailureOf([&] { scene.service.captureBaseline(scene.folder / "absent", {}, {}, noTask); }),
            "ENOENT absent");
  EXPECT_EQ(scene.baseline(), BaselineSelection());
}

// Clearing ----------------------------------------------------------------------------------------

TEST(SnapshotServiceBaseline, IsForgottenOnlyByWhoSawIt) {
  BaselineScene scene;
  Snapshot const snapshot = scene.capture();
  EXPECT_EQ(failureOf([&] { scene.clear(UUID::make()); }), changed);
  EXPECT_EQ(scene.baseline().id, snapshot.id);
  scene.clear(snapshot.id);
  EXPECT_EQ(scene.baseline(), BaselineSelection());
  EXPECT_EQ(scene.history(), std::vector<Snapshot>{snapshot}) << "its snapshot stays";
  EXPECT_EQ(failureOf([&] { scene.clear(snapshot.id); }), changed) << "there is none any more";
}

TEST(SnapshotServiceBaseline, KeepsItsSnapshotFromBeingDeleted) {
  BaselineScene scene;
  Snapshot const snapshot = scene.capture();
  Snapshot const other = scene.plant("other");
  auto const lease = scene.service.open(snapshot);
  EXPECT_EQ(failureOf([&] { scene.service.deleteSnapshot(snapshot); }), isBaseline) << "told before the reader";
  scene.service.deleteSnapshot(other);
  Snapshot const next = scene.capture(snapshot.id);
  EXPECT_EQ(failureOf([&] { scene.service.deleteSnapshot(next); }), isBaseline);
  scene.clear(next.id);
  scene.service.deleteSnapshot(next);
  EXPECT_EQ(scene.history(), std::vector<Snapshot>{snapshot});
}

TEST(SnapshotServiceBaseline, StopsEachOperationOfADatabaseWhosePointerCannotBeRead) {
  struct {
    std::string text;
    std::string message;
  } const pointers[] = {
      {std::string(4097, ' '), "Baseline metadata is too large."},
      {R"({"version":2,"snapshotID":"00112233-4455-6677-8899-AABBCCDDEEFF"})",
       "Unsupported baseline metadata version."},
  };
  BaselineScene scene;
  Snapshot const snapshot = scene.plant("whole");
  for (auto const& now : pointers) {
    std::ofstream(scene.databaseFolder() / "baseline.json") << now.text;
    DatabaseError const failure(now.message);
    EXPECT_EQ(failureOf([&] { scene.baseline(); }), failure);
    EXPECT_EQ(failureOf([&] { scene.capture(); }), failure);
    EXPECT_EQ(failureOf([&] { scene.clear(snapshot.id); }), failure);
    EXPECT_EQ(failureOf([&] { scene.prepare(snapshot.id); }), failure);
    EXPECT_EQ(failureOf([&] { scene.service.deleteSnapshot(snapshot); }), failure);
    EXPECT_EQ(scene.labels(), "whole");
  }
}

TEST(SnapshotServiceBaseline, RefusesALinkForItsPointer) {
  BaselineScene scene;
  Snapshot const snapshot = scene.plant("whole");
  std::filesystem::create_symlink(scene.folder / "outside", scene.databaseFolder() / "baseline.json");
  DatabaseError const unsafe("Unsafe snapshot path.");
  EXPECT_EQ(failureOf([&] { scene.baseline(); }), unsafe);
  EXPECT_EQ(failureOf([&] { scene.capture(); }), unsafe);
  EXPECT_EQ(failureOf([&] { scene.clear(snapshot.id); }), unsafe);
  EXPECT_EQ(failureOf([&] { scene.prepare(snapshot.id); }), unsafe);
  EXPECT_EQ(failureOf([&] { scene.service.deleteSnapshot(snapshot); }), unsafe);
  EXPECT_FALSE(std::filesystem::exists(scene.folder / "outside"));
}

// Comparing ---------------------------------------------------------------------------------------

TEST(SnapshotServiceBaseline, LeasesThenAndNow) {
  BaselineScene scene;
  Snapshot const then = scene.capture();
  scene.database.run("INSERT INTO t VALUES (2)");
  {
    auto const prepared = scene.prepare(then.id);
    EXPECT_EQ(prepared.before->snapshot, then);
    EXPECT_EQ(prepared.after->snapshot.label, "What Changed current");
    EXPECT_EQ(rowsAsText(prepared.before->databaseURL, "SELECT a FROM t"), "1");
    EXPECT_EQ(rowsAsText(prepared.after->databaseURL, "SELECT a FROM t"), "1\n2");
    EXPECT_EQ(failureOf([&] { scene.service.deleteSnapshot(prepared.after->snapshot); }).detail.substr(0, 27),
              "Snapshot storage is in use.");
  }
  EXPECT_EQ(scene.history().size(), 2U) << "each comparison adds one snapshot";
  scene.service.deleteSnapshot(scene.history().front());
}

TEST(SnapshotServiceBaseline, KeepsItsLeaseDuringTheCapture) {
  BaselineScene scene;
  Snapshot const then = scene.capture();
  bool locked = false;
  scene.prepare(then.id, [&](SnapshotProgress const&) {
    locked = failureOf([&] { StoreLock(scene.folderOf(then) / ".lease", LockKind::exclusive); }).code == 1;
  });
  EXPECT_TRUE(locked);
  scene.clear(then.id);
  scene.service.deleteSnapshot(then);
}

TEST(SnapshotServiceBaseline, ComparesOnlyWithTheOneThatWasSeen) {
  BaselineScene scene;
  EXPECT_EQ(failureOf([&] { scene.prepare(UUID::make()); }), changed);
  Snapshot const snapshot = scene.capture();
  EXPECT_EQ(failureOf([&] { scene.prepare(UUID::make()); }), changed);
  EXPECT_EQ(scene.history(), std::vector<Snapshot>{snapshot}) << "refused before a capture";
}

TEST(SnapshotServiceBaseline, TellsWhatABrokenOneLacks) {
  BaselineScene scene;
  Snapshot const snapshot = scene.capture();
  std::filesystem::remove(scene.folderOf(snapshot) / "database.sqlite");
  EXPECT_EQ(failureOf([&] { scene.prepare(snapshot.id); }), DatabaseError("The snapshot database is missing."));
  std::filesystem::remove_all(scene.folderOf(snapshot));
  EXPECT_EQ(systemFailureOf([&] { scene.prepare(snapshot.id); }), "ENOENT metadata.json");
  EXPECT_TRUE(scene.history().empty());
}

TEST(SnapshotServiceBaseline, LeavesNothingHeldWhenTheCaptureFails) {
  BaselineScene scene;
  Snapshot const snapshot = scene.capture();
  long const open = openDescriptors();
  std::stop_source task;
  EXPECT_THROW(
      scene.service.prepareChanges(
          scene.database.path(), snapshot.id, [&](SnapshotProgress const&) { task.request_stop(); }, task.get_token()),
      TaskCancelled);
  EXPECT_EQ(openDescriptors(), open);
  scene.clear(snapshot.id);
  scene.service.deleteSnapshot(snapshot);
}

}  // namespace
}  // namespace tolva
