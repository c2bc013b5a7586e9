// SPDX-License-Identifier: Apache-2.0
// The baseline of a database and what changed since.
#include <gtest/gtest.h>

#include <fstream>
#include <functional>
#include <map>
#include <stop_token>
#include <string>
#include <vector>

#include "snapshots/BaselinePointer.hpp"
#include "snapshots/StoreLock.hpp"
#include "snapshots/StoreScene.hpp"
#include "support/Descriptors.hpp"
#include "support/Failure.hpp"
#include "support/FaultInjector.hpp"
#include "support/SystemFailure.hpp"

namespace tolva {
namespace {

DatabaseError const changed("The baseline changed in another window. Refresh What Changed before continuing.");
DatabaseError const isBaseline(
    "This is the What Changed baseline. Clear or replace the baseline in What Changed before deleting it.");

/// A store with a baseline in it, or not.
struct BaselineScene : StoreScene {
  UUID seen;  // the baseline, by who compares

  BaselineSelection baseline() { return service.baseline(database.path(), noTask); }
  Snapshot capture(std::optional<UUID> const& replacing = {}, SnapshotProgressReport const& progress = {}) {
    return service.captureBaseline(database.path(), replacing, progress, noTask);
  }
  PreparedSnapshotComparison prepare(UUID const& expected, SnapshotProgressReport const& progress = {}) {
    return service.prepareChanges(database.path(), expected, progress, noTask);
  }
  void clear(UUID const& expected) { service.clearBaseline(database.path(), expected, noTask); }

  BaselinePointer pointer() const { return BaselinePointer(store, databaseFolder()); }
};

/// Puts another file in the place of the database, as a program does that writes a copy and renames it.
void replaceSource(StoreScene const& scene) {
  auto const copy = scene.folder / "copy.sqlite";
  std::filesystem::copy_file(scene.database.path(), copy);
  std::filesystem::rename(copy, scene.database.path());
}

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

// A task that is cancelled ------------------------------------------------------------------------

/// Cancels the task of `operation` before each of its calls that change the store, and has `check` look at the store.
void cancelAtEachCall(std::function<void(BaselineScene&)> const& prepare,
                      std::function<void(BaselineScene&, std::stop_token)> const& operation,
                      std::function<void(BaselineScene&, bool cancelled)> const& check) {
  int cancelledCalls = 0;
  for (long n = 1;; ++n) {
    SCOPED_TRACE("call " + std::to_string(n));
    BaselineScene scene;
    prepare(scene);
    std::stop_source task;
    bool cancelled = false;
    bool const came = FaultInjector::before(
        scene.folder / "store", n, [&] { task.request_stop(); },
        [&] {
          try {
            operation(scene, task.get_token());
          } catch (TaskCancelled const&) {
            cancelled = true;
          }
        });
    if (!came) break;
    cancelledCalls += cancelled ? 1 : 0;
    EXPECT_EQ(scene.hidden(), std::vector<std::string>());
    check(scene, cancelled);
  }
  EXPECT_GT(cancelledCalls, 0);
}

TEST(SnapshotServiceBaseline, IsNotSetByATaskThatIsCancelledAtAnyMoment) {
  cancelAtEachCall([](BaselineScene& scene) { scene.seen = scene.capture().id; },
                   [](BaselineScene& scene, std::stop_token task) {
                     scene.service.captureBaseline(scene.database.path(), scene.seen, {}, task);
                   },
                   [](BaselineScene& scene, bool cancelled) {
                     EXPECT_EQ(scene.baseline().id == scene.seen, cancelled);
                     EXPECT_TRUE(scene.baseline().snapshot.has_value());
                   });
}

TEST(SnapshotServiceBaseline, IsNotForgottenByATaskThatIsCancelled) {
  cancelAtEachCall([](BaselineScene& scene) { scene.seen = scene.capture().id; },
                   [](BaselineScene& scene, std::stop_token task) {
                     scene.service.clearBaseline(scene.database.path(), scene.seen, task);
                   },
                   [](BaselineScene& scene, bool cancelled) { EXPECT_EQ(scene.baseline().id.has_value(), cancelled); });
}

TEST(SnapshotServiceBaseline, HoldsNothingForAComparisonThatIsCancelledAtAnyMoment) {
  cancelAtEachCall([](BaselineScene& scene) { scene.seen = scene.capture().id; },
                   [](BaselineScene& scene, std::stop_token task) {
                     scene.service.prepareChanges(scene.database.path(), scene.seen, {}, task);
                   },
                   [](BaselineScene& scene, bool) {
                     scene.clear(scene.seen);
                     for (Snapshot const& snapshot : scene.history()) scene.service.deleteSnapshot(snapshot);
                     EXPECT_TRUE(std::filesystem::is_empty(scene.databaseFolder()));
                   });
}

// A source that is replaced ------------------------------------------------------------------------

/// What `operation` ends with when the source is replaced before each of its calls that change the store, each with the
/// number of such calls.
std::map<std::string, int> endsOfReplacements(std::function<void(BaselineScene&)> const& prepare,
                                              std::function<void(BaselineScene&)> const& operation) {
  std::map<std::string, int> ends;
  for (long n = 1;; ++n) {
    BaselineScene scene;
    prepare(scene);
    bool came = false;
    std::string end = "success";
    try {
      came = FaultInjector::before(
          scene.folder / "store", n, [&] { replaceSource(scene); },
          [&] {
            try {
              operation(scene);
            } catch (DatabaseError const& error) {
              end = error.detail;
            }
          });
    } catch (std::exception const& error) {
      end = error.what();
    }
    if (!came) return ends;
    ++ends[end];
    EXPECT_EQ(scene.hidden(), std::vector<std::string>()) << "call " << n;
    scene.history();
    scene.baseline();
  }
}

std::string const duringCapture = "The source file was replaced during capture. Refresh the database and try again.";

TEST(SnapshotServiceBaseline, IsNotSetForASourceThatWasReplacedMeanwhile) {
  auto ends =
      endsOfReplacements([](BaselineScene& scene) { scene.history(); }, [](BaselineScene& scene) { scene.capture(); });
  EXPECT_GT(ends[duringCapture], 0);
  EXPECT_GT(ends["The source was replaced. Refresh before capturing a baseline."], 0);
  EXPECT_GT(ends["success"], 0) << "before it was looked at, or when all was done";
  EXPECT_EQ(ends.size(), 3U) << testing::PrintToString(ends);
}

TEST(SnapshotServiceBaseline, IsNotComparedWithASourceThatWasReplacedMeanwhile) {
  auto ends = endsOfReplacements([](BaselineScene& scene) { scene.seen = scene.capture().id; },
                                 [](BaselineScene& scene) { scene.prepare(scene.seen); });
  EXPECT_GT(ends[duringCapture], 0);
  EXPECT_GT(ends["The source file was replaced. Capture a new baseline before comparing."], 0);
  EXPECT_GT(ends[changed.detail], 0) << "the new file has no baseline";
  EXPECT_GT(ends["success"], 0) << "both are leased already";
  EXPECT_EQ(ends.size(), 4U) << testing::PrintToString(ends);
}

}  // namespace
}  // namespace tolva
