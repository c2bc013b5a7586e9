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
#include "snapshots/Planted.hpp"
#include "support/FaultInjector.hpp"

namespace tolva {
namespace {

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
