// SPDX-License-Identifier: Apache-2.0
// How a capture goes on, and what ends it but its source.
#include <gtest/gtest.h>
#include <sqlite3.h>

#include <algorithm>
#include <chrono>
#include <sstream>
#include <stdexcept>
#include <thread>

#include "snapshots/SnapshotCapture.hpp"
#include "snapshots/Untouched.hpp"
#include "support/CaptureScene.hpp"
#include "support/Failure.hpp"
#include "support/FaultInjector.hpp"
#include "support/SQLitePeer.hpp"

namespace tolva {
namespace {

using namespace std::chrono_literals;
using Names = std::vector<std::string>;

// Progress ----------------------------------------------------------------------------------------

TEST(SnapshotCapture, TellsItsProgressAtTheEnd) {
  CaptureScene const scene;
  std::vector<SnapshotProgress> told;
  scene.capture({.progress = [&](SnapshotProgress const& progress) { told.push_back(progress); }});
  EXPECT_EQ(told, (std::vector<SnapshotProgress>{{.copiedPages = 2, .totalPages = 2}}));
}

TEST(SnapshotCapture, TellsItsProgressAboutSixTimesASecond) {
  CaptureScene const scene(manyPages);
  std::int64_t const pages = std::stoll(scene.database.rows("PRAGMA page_count"));
  std::vector<SnapshotProgress> told;
  auto const note = [&](SnapshotProgress const& progress) { told.push_back(progress); };
  scene.capture({.progress = note, .validateSource = [] { std::this_thread::sleep_for(160ms); }});
  EXPECT_EQ(told, (std::vector<SnapshotProgress>{{256, pages}, {512, pages}, {pages, pages}}));
}

TEST(SnapshotCapture, EndsWhenTheReportOfProgressFails) {
  CaptureScene const scene;
  EXPECT_THROW(scene.capture({.progress = [](auto const&) { throw std::runtime_error("no"); }}), std::runtime_error);
  EXPECT_EQ(failureOf([&] { scene.capture({.progress = [](auto const&) { throw DatabaseError("no", 5); }}); }),
            DatabaseError("Copying snapshot: no", 5));
  expectUntouched(scene);
}

// Cancelling --------------------------------------------------------------------------------------

TEST(SnapshotCapture, EndsOnceItsTaskIsCancelled) {
  CaptureScene const scene(manyPages);
  for (int cancelling = 1; cancelling <= 4; ++cancelling) {
    SCOPED_TRACE(cancelling);
    std::stop_source task;
    int calls = 0;
    auto const check = [&] {
      if (++calls == cancelling) task.request_stop();
    };
    EXPECT_THROW(scene.capture({.validateSource = check, .task = task.get_token()}), TaskCancelled);
    EXPECT_EQ(calls, std::max(cancelling, 2));  // a task that is cancelled at first is noticed in the copying
  }
  expectUntouched(scene);
}

TEST(SnapshotCapture, EndsWhenItsTaskIsCancelledFromTheReportOfItsLastStep) {
  CaptureScene const scene;
  std::stop_source task;
  EXPECT_THROW(scene.capture({.progress = [&](auto const&) { task.request_stop(); }, .task = task.get_token()}),
               TaskCancelled);
  expectUntouched(scene);
}

/// What comes behind the copying is seen by its calls to the system; the database is protected last.
TEST(SnapshotCapture, LooksAtItsTaskOnceMoreBeforeTheLastCheck) {
  CaptureScene const scene;
  scene.capture();
  std::istringstream trace([&] {
    FaultInjector const calls(scene.store.root());
    scene.capture();
    return calls.trace();
  }());
  long number = 1;
  for (std::string call; trace >> call && call != "fchmodat";) ++number;
  std::stop_source task;
  int calls = 0;
  auto const capture = [&] {
    EXPECT_THROW(scene.capture({.validateSource = [&] { ++calls; }, .task = task.get_token()}), TaskCancelled);
  };
  EXPECT_TRUE(FaultInjector::before(
      scene.store.root(), number, [&] { task.request_stop(); }, capture));
  EXPECT_EQ(calls, 2);
  EXPECT_EQ(scene.names().size(), 2U);
}

/// The check comes behind the last look at the task: the move is the commit.
TEST(SnapshotCapture, IsKeptWhenItsTaskIsCancelledFromTheLastCheck) {
  CaptureScene const scene;
  std::stop_source task;
  int calls = 0;
  auto const check = [&] {
    if (++calls == 3) task.request_stop();
  };
  Snapshot const made = scene.capture({.validateSource = check, .task = task.get_token()});
  EXPECT_EQ(scene.names(), Names{made.id.text()});
}

TEST(SnapshotCapture, EndsWhenAnotherThreadCancelsItAtALock) {
  CaptureScene const scene(manyPages);
  SQLitePeer peer(scene.database.path());
  std::stop_source task;
  std::jthread canceller;
  int calls = 0;
  auto const check = [&] {
    if (++calls == 2) {
      ASSERT_EQ(peer.exec("BEGIN EXCLUSIVE"), "ok");
    }
    if (calls == 4) canceller = std::jthread([&] { task.request_stop(); });
  };
  EXPECT_THROW(scene.capture({.validateSource = check, .task = task.get_token()}), TaskCancelled);
  ASSERT_EQ(peer.exec("COMMIT"), "ok");
  expectUntouched(scene);
}

// Space -------------------------------------------------------------------------------------------

TEST(SnapshotCapture, NeedsRoomForTheCopyAndMore) {
  CaptureScene const scene;
  std::int64_t const needed = 2 * 4096 + 16'777'216;
  EXPECT_EQ(
      failureOf([&] { scene.capture({.limits = {.availableBytesOverride = needed - 1}}); }),
      DatabaseError(
          "Not enough free space for this snapshot. Delete unwanted snapshots or free disk space and try again."));
  EXPECT_EQ(scene.names(), Names{});
  Snapshot const made = scene.capture({.limits = {.availableBytesOverride = needed}});
  EXPECT_EQ(scene.names(), Names{made.id.text()});
}

TEST(SnapshotCapture, StopsAtTheLimitOfPages) {
  CaptureScene const scene(manyPages);
  std::int64_t const pages = std::stoll(scene.database.rows("PRAGMA page_count"));
  EXPECT_EQ(failureOf([&] { scene.capture({.limits = {.destinationPageLimit = pages - 1}}); }),
            DatabaseError("Copying snapshot: database or disk is full", SQLITE_FULL));
  EXPECT_EQ(scene.names(), Names{});
  scene.capture({.limits = {.destinationPageLimit = pages}});
  EXPECT_EQ(scene.snapshots().size(), 1U);
}

// Time --------------------------------------------------------------------------------------------

std::string const timedOut =
    "Copying snapshot: Snapshot capture timed out. The database may be changing continuously; try again when it is "
    "less busy.";

TEST(SnapshotCapture, HasNoTimeAtAll) {
  CaptureScene const scene;
  for (double const seconds : {0.0, -1.0}) {
    int calls = 0;
    EXPECT_EQ(failureOf([&] {
                scene.capture({.validateSource = [&] { ++calls; },
                               .limits = {.timeout = std::chrono::duration<double>(seconds)}});
              }),
              DatabaseError(timedOut));
    EXPECT_EQ(calls, 2);
  }
  expectUntouched(scene);
}

/// 20 ms pass between two steps, so 0.7 seconds have room for 35 of them at most.
TEST(SnapshotCapture, GivesUpALockedSource) {
  CaptureScene const scene(manyPages);
  SQLitePeer peer(scene.database.path());
  int calls = 0;
  auto const check = [&] {
    if (++calls == 2) {
      ASSERT_EQ(peer.exec("BEGIN EXCLUSIVE"), "ok");
    }
  };
  EXPECT_EQ(failureOf([&] { scene.capture({.validateSource = check, .limits = {.timeout = 0.7s}}); }),
            DatabaseError(timedOut));
  EXPECT_GE(calls, 3);  // after each step that found the lock, and two before the first
  EXPECT_LE(calls, 37);
  ASSERT_EQ(peer.exec("COMMIT"), "ok");
  expectUntouched(scene);
}

TEST(SnapshotCapture, GoesOnOnceALockHasPassed) {
  CaptureScene const scene(manyPages);
  SQLitePeer peer(scene.database.path());
  int calls = 0;
  auto const check = [&] {
    ++calls;
    if (calls == 3) {
      ASSERT_EQ(peer.exec("BEGIN EXCLUSIVE"), "ok");
    }
    if (calls == 5) {
      ASSERT_EQ(peer.exec("COMMIT"), "ok");
    }
  };
  Snapshot const made = scene.capture({.validateSource = check});
  EXPECT_EQ(calls, 7);  // two of them in place of a step that the lock prevented
  EXPECT_EQ(rowsAsText(scene.databaseOf(made), "SELECT count(*) FROM t; PRAGMA integrity_check"), "600\nok");
}

TEST(SnapshotCapture, SaysThatASourceIsLockedFromTheBeginning) {
  CaptureScene const scene;
  SQLitePeer peer(scene.database.path());
  ASSERT_EQ(peer.exec("BEGIN EXCLUSIVE"), "ok");
  EXPECT_EQ(failureOf([&] { scene.capture(); }), DatabaseError("Reading source size: database is locked", SQLITE_BUSY));
  ASSERT_EQ(peer.exec("COMMIT"), "ok");
  expectUntouched(scene);
}

}  // namespace
}  // namespace tolva
