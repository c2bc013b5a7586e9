// SPDX-License-Identifier: Apache-2.0
// One store in the hands of several processes and windows.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sched.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>
#include <cstdio>
#include <filesystem>
#include <functional>
#include <sstream>
#include <string>
#include <system_error>
#include <thread>
#include <utility>
#include <vector>

#include "platform/Descriptor.hpp"
#include "snapshots/StoreScene.hpp"
#include "support/Failure.hpp"
#include "support/FaultInjector.hpp"
#include "support/SystemFailure.hpp"

namespace tolva {
namespace {

std::string const inUse =
    "Snapshot storage is in use. Close open snapshot tabs or wait for the other operation to finish.";

/// A forked child that does `body`, and its exit status.
class OtherProcess {
 public:
  explicit OtherProcess(std::function<int()> const& body) : process_(::fork()) {
    if (process_ != 0) return;
    ::alarm(120);
    int status = 99;
    try {
      status = body();
    } catch (...) {
    }
    ::_exit(status);
  }

  ~OtherProcess() {
    if (process_ < 0) return;
    ::kill(process_, SIGKILL);
    ::waitpid(process_, nullptr, 0);
  }
  OtherProcess(OtherProcess const&) = delete;
  OtherProcess& operator=(OtherProcess const&) = delete;

  int end() {
    int status = 0;
    ::waitpid(std::exchange(process_, -1), &status, 0);
    return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
  }

 private:
  pid_t process_;
};

/// Opens and reads `snapshot` until it is gone, and says so to `opened` the first time. 0 if it was always whole.
int readUntilGone(SnapshotStore const& store, Snapshot const& snapshot, Descriptor opened) {
  SnapshotService service(store.root());
  for (;; ::sched_yield()) {
    try {
      auto const lease = service.open(snapshot);
      if (rowsAsText(lease->databaseURL, "SELECT count(*) FROM t; PRAGMA integrity_check") != "1\nok") return 1;
      if (opened && ::write(opened.get(), "x", 1) != 1) return 4;
      opened.reset();
    } catch (DatabaseError const& error) {
      if (error.detail != inUse) return 2;
    } catch (std::filesystem::filesystem_error const& error) {
      return error.code() == std::errc::no_such_file_or_directory ? 0 : 3;
    }
  }
}

TEST(SnapshotServicePeers, ASnapshotIsReadWholeOrGone) {
  for (int round = 0; round < 10; ++round) {
    StoreScene scene;
    Snapshot const snapshot = scene.plant("contested");
    int ends[2];
    ASSERT_EQ(::pipe2(ends, O_CLOEXEC), 0);
    Descriptor const opened(ends[0]);
    Descriptor tell(ends[1]);
    OtherProcess reader([&] { return readUntilGone(scene.store, snapshot, std::move(tell)); });
    tell.reset();
    char answer = 0;
    ASSERT_EQ(::read(opened.get(), &answer, 1), 1) << "the other process never opened it";
    for (bool deleted = false; !deleted; ::sched_yield()) {
      auto const failure = failureOf([&] { scene.service.deleteSnapshot(snapshot); });
      deleted = failure.code == -1;
      if (!deleted) {
        ASSERT_EQ(failure.detail, inUse);
      }
    }
    EXPECT_EQ(reader.end(), 0);
    EXPECT_EQ(scene.labels(), "");
    EXPECT_EQ(scene.hidden(), std::vector<std::string>());
  }
}

/// What `operation` of another window ends with, which has a service and a thread of its own.
std::string inAnotherWindow(SnapshotStore const& store, std::function<void(SnapshotService&)> const& operation) {
  std::string end;
  std::jthread([&] {
    SnapshotService service(store.root());
    end = failureOf([&] { operation(service); }).detail;
  }).join();
  return end;
}

TEST(SnapshotServicePeers, ACaptureHasTheStoreForItsWholeLength) {
  StoreScene scene;
  Snapshot const old = scene.plant("old");
  std::vector<std::string> ends;
  auto const progress = [&](SnapshotProgress const&) {
    for (std::function<void(SnapshotService&)> const& operation : {
             std::function<void(SnapshotService&)>(
                 [&](SnapshotService& service) { service.history(scene.database.path(), noTask); }),
             std::function<void(SnapshotService&)>([&](SnapshotService& service) { service.open(old); }),
             std::function<void(SnapshotService&)>([&](SnapshotService& service) { service.deleteSnapshot(old); }),
             std::function<void(SnapshotService&)>([&](SnapshotService& service) { service.rename(old, "x"); }),
         })
      ends.push_back(inAnotherWindow(scene.store, operation));
  };
  scene.service.create(scene.database.path(), "new", progress, {}, noTask);
  ASSERT_GE(ends.size(), 4U);
  for (std::string const& end : ends) EXPECT_EQ(end, inUse);
  EXPECT_EQ(scene.labels(), "new old") << "the capture was not disturbed";
}

/// The number of the call in `trace` that follows the last `name`, and then the first `next`.
long callBehind(std::string const& trace, std::string const& name, std::string const& next) {
  std::istringstream words(trace);
  long number = 0;
  long found = 0;
  bool behind = false;
  for (std::string word; words >> word;) {
    ++number;
    if (word == name) {
      behind = true;
      found = 0;
    } else if (behind && found == 0 && word == next) {
      found = number;
    }
  }
  return found;
}

TEST(SnapshotServicePeers, ASnapshotThatIsDeletedAtOnceBecomesNoBaseline) {
  StoreScene scene;
  Snapshot const old = scene.service.captureBaseline(scene.database.path(), {}, {}, noTask);
  Snapshot shadow;
  std::string trace;
  {
    FaultInjector const calls(scene.store.root());
    shadow = scene.service.captureBaseline(scene.database.path(), old.id, {}, noTask);
    trace = calls.trace();
  }
  std::function<void()> const deleteNewest = [&] {
    for (auto const& entry : std::filesystem::directory_iterator(scene.databaseFolder())) {
      std::string const name = entry.path().filename();
      if (UUID::parse(name) && name != old.id.text() && name != shadow.id.text()) std::filesystem::remove_all(entry);
    }
  };
  long const lockedAgain = callBehind(trace, "renameat2", "open");
  ASSERT_GT(lockedAgain, 0) << trace;
  EXPECT_TRUE(FaultInjector::before(scene.store.root(), lockedAgain, deleteNewest, [&] {
    EXPECT_EQ(systemFailureOf([&] { scene.service.captureBaseline(scene.database.path(), shadow.id, {}, noTask); }),
              "ENOENT metadata.json");
  }));
  EXPECT_EQ(scene.service.baseline(scene.database.path(), noTask).snapshot, shadow);
  EXPECT_EQ(scene.history().size(), 2U);
}

TEST(SnapshotServicePeers, LeasesAloneDoNotHoldTheStore) {
  StoreScene scene;
  Snapshot const snapshot = scene.service.captureBaseline(scene.database.path(), {}, {}, noTask);
  auto const prepared = scene.service.prepareChanges(scene.database.path(), snapshot.id, {}, noTask);
  EXPECT_EQ(
      inAnotherWindow(scene.store, [&](SnapshotService& service) { service.history(scene.database.path(), noTask); }),
      "(nothing failed)")
      << "leases alone do not hold the store";
}

/// The files that a program started now gets from this process.
std::string inherited() {
  FILE* const program = ::popen("ls -l /proc/self/fd", "r");
  if (!program) return "(no program)";
  std::string listed;
  for (int letter = ::fgetc(program); letter != EOF; letter = ::fgetc(program)) listed += static_cast<char>(letter);
  ::pclose(program);
  return listed;
}

TEST(SnapshotServicePeers, NoProgramInheritsAnythingOfTheStore) {
  StoreScene scene;
  auto const lease = scene.service.open(scene.plant("read"));
  std::string seen;
  auto const look = [&](auto const&...) { seen += inherited(); };
  scene.service.create(scene.database.path(), {}, look, look, noTask);
  EXPECT_NE(seen.find("->"), std::string::npos);
  EXPECT_EQ(seen.find(scene.folder.path().string()), std::string::npos) << seen;
}

}  // namespace
}  // namespace tolva
