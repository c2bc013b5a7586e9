// SPDX-License-Identifier: Apache-2.0
// What comes between the calls to the system that a baseline takes.
#include <gtest/gtest.h>

#include <filesystem>
#include <functional>
#include <map>
#include <set>
#include <stop_token>
#include <string>
#include <vector>

#include "snapshots/BaselineScene.hpp"
#include "snapshots/LockFailure.hpp"
#include "support/Failure.hpp"
#include "support/FaultInjector.hpp"
#include "support/SystemFailure.hpp"

namespace tolva {
namespace {

// A task that is cancelled ------------------------------------------------------------------------

/// The folder of the snapshot that is new since `seen` was the baseline, "" for none.
std::filesystem::path newFolder(BaselineScene const& scene) {
  for (auto const& entry : std::filesystem::directory_iterator(scene.databaseFolder())) {
    auto const id = UUID::parse(entry.path().filename().string());
    if (id && *id != scene.seen) return entry.path();
  }
  return {};
}

/// How far an operation has come, by what it leaves.
std::string reached(BaselineScene const& scene) {
  std::filesystem::path const made = newFolder(scene);
  if (made.empty()) return "not captured";
  return std::filesystem::exists(made / ".lease") ? "leased" : "captured";
}

/// Cancels the task of `operation` before each of its calls that change the store, has `check` look at the store, and
/// returns the ends that this has.
std::set<std::string> endsOfCancelling(std::function<void(BaselineScene&, std::stop_token)> const& operation,
                                       std::function<void(BaselineScene&, bool cancelled)> const& check) {
  std::set<std::string> ends;
  for (long n = 1;; ++n) {
    SCOPED_TRACE("call " + std::to_string(n));
    BaselineScene scene;
    scene.seen = scene.capture().id;
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
    if (!came) return ends;
    ends.insert((cancelled ? "cancelled, " : "done, ") + reached(scene));
    EXPECT_EQ(scene.hidden(), std::vector<std::string>());
    check(scene, cancelled);
  }
}

/// It looks at its task behind the capture, before it asks for the catalog again, and once more with the lease in hand.
TEST(SnapshotServiceBaseline, IsNotSetByATaskThatIsCancelledAtAnyMoment) {
  auto const ends = endsOfCancelling(
      [](BaselineScene& scene, std::stop_token task) {
        scene.service.captureBaseline(scene.database.path(), scene.seen, {}, task);
      },
      [](BaselineScene& scene, bool cancelled) {
        EXPECT_EQ(scene.baseline().id == scene.seen, cancelled);
        EXPECT_TRUE(scene.baseline().snapshot.has_value());
        EXPECT_EQ(scene.history().size(), newFolder(scene).empty() ? 1U : 2U) << "what is captured stays";
      });
  EXPECT_EQ(ends, (std::set<std::string>{"cancelled, not captured", "cancelled, captured", "cancelled, leased",
                                         "done, leased"}));
}

TEST(SnapshotServiceBaseline, IsNotForgottenByATaskThatIsCancelled) {
  auto const ends = endsOfCancelling(
      [](BaselineScene& scene, std::stop_token task) {
        scene.service.clearBaseline(scene.database.path(), scene.seen, task);
      },
      [](BaselineScene& scene, bool cancelled) { EXPECT_EQ(scene.baseline().id.has_value(), cancelled); });
  EXPECT_EQ(ends, (std::set<std::string>{"cancelled, not captured", "done, not captured"}));
}

TEST(SnapshotServiceBaseline, IsNotComparedForATaskThatIsCancelledAtAnyMoment) {
  auto const ends = endsOfCancelling(
      [](BaselineScene& scene, std::stop_token task) {
        scene.service.prepareChanges(scene.database.path(), scene.seen, {}, task);
      },
      [](BaselineScene& scene, bool) {
        scene.clear(scene.seen);  // nothing is held
        for (Snapshot const& snapshot : scene.history()) scene.service.deleteSnapshot(snapshot);
        EXPECT_TRUE(std::filesystem::is_empty(scene.databaseFolder()));
      });
  EXPECT_EQ(ends, (std::set<std::string>{"cancelled, not captured", "cancelled, captured", "done, leased"}));
}

// A snapshot that is deleted -----------------------------------------------------------------------

/// The catalog is anybody's between the capture and the setting of the pointer.
TEST(SnapshotServiceBaseline, IsNotSetToASnapshotThatIsDeletedMeanwhile) {
  std::set<std::string> ends;
  bool came = true;
  for (long n = 1; came; ++n) {
    BaselineScene scene;
    scene.seen = scene.capture().id;
    std::string deleted;
    std::string told;
    std::string const system = systemFailureOf([&] {
      came = FaultInjector::before(
          scene.folder / "store", n,
          [&] {
            deleted = reached(scene);
            if (deleted == "captured") std::filesystem::remove_all(newFolder(scene));
          },
          [&] { told = failureOf([&] { scene.capture(scene.seen); }).detail; });
    });
    if (deleted != "captured") continue;
    ends.insert(told.empty() ? system : told);
    EXPECT_EQ(scene.baseline().id, scene.seen) << "call " << n;
    EXPECT_EQ(scene.labels(), "What Changed baseline") << "call " << n;
  }
  EXPECT_EQ(ends, (std::set<std::string>{"ENOENT metadata.json", lockFailure(ENOENT)}));
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
