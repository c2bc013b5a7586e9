// SPDX-License-Identifier: Apache-2.0
#include "snapshots/StoreLock.hpp"

#include <dlfcn.h>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/file.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>

#include <cerrno>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <functional>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "core/SQLiteConnection.hpp"
#include "platform/Descriptor.hpp"
#include "snapshots/LockFailure.hpp"
#include "snapshots/LockHolder.hpp"
#include "support/Descriptors.hpp"
#include "support/Failure.hpp"
#include "support/SQLitePeer.hpp"
#include "support/TemporaryDatabase.hpp"
#include "support/TemporaryFolder.hpp"
#include "support/Unprivileged.hpp"

namespace {

std::function<void(int operation)> beforeLocking;  // what happens just before a call of flock

}  // namespace

#pragma GCC visibility push(default)
extern "C" int flock(int descriptor, int operation) noexcept {
  static auto const next = reinterpret_cast<decltype(&::flock)>(::dlsym(RTLD_NEXT, "flock"));
  if (beforeLocking) beforeLocking(operation);
  return next(descriptor, operation);
}
#pragma GCC visibility pop

namespace tolva {
namespace {

DatabaseError const inUse(
    "Snapshot storage is in use. Close open snapshot tabs or wait for the other operation to finish.");
DatabaseError const beingDeleted("This snapshot is being deleted. Try again.");

TEST(StoreLock, SharesOrExcludes) {
  struct {
    LockKind held;
    LockKind wanted;
    DatabaseError refusal;
  } const cases[] = {
      {LockKind::shared, LockKind::shared, DatabaseError("(nothing failed)", -1)},
      {LockKind::shared, LockKind::exclusive, inUse},
      {LockKind::exclusive, LockKind::shared, beingDeleted},
      {LockKind::exclusive, LockKind::exclusive, inUse},
  };
  TemporaryFolder const folder;
  long const open = openDescriptors();
  for (auto const& now : cases) {
    {
      StoreLock const held(folder / "lock", now.held);
      EXPECT_EQ(failureOf([&] { StoreLock(folder / "lock", now.wanted); }), now.refusal);
    }
    LockHolder const other(folder / "lock", now.held);
    EXPECT_EQ(failureOf([&] { StoreLock(folder / "lock", now.wanted); }), now.refusal) << "in another process";
  }
  EXPECT_EQ(openDescriptors(), open);
}

TEST(StoreLock, EndsWithItsScope) {
  TemporaryFolder const folder;
  { StoreLock const first(folder / "lock", LockKind::exclusive); }
  StoreLock const second(folder / "lock", LockKind::exclusive);
  EXPECT_EQ(folder.names(), std::vector<std::string>{"lock"}) << "the file stays";
}

TEST(StoreLock, MovesToAnotherOwner) {
  TemporaryFolder const folder;
  StoreLock first(folder / "lock", LockKind::exclusive);
  {
    StoreLock const second(std::move(first));
    EXPECT_EQ(failureOf([&] { StoreLock(folder / "lock", LockKind::exclusive); }), inUse);
  }
  StoreLock third(folder / "lock", LockKind::exclusive);
  int const descriptor = third.release();
  EXPECT_EQ(failureOf([&] { StoreLock(folder / "lock", LockKind::exclusive); }), inUse);
  StoreLock::unlockAndClose(descriptor);
  StoreLock const fourth(folder / "lock", LockKind::exclusive);
}

TEST(StoreLock, IsFreeAtOnceWhileAForkedChildStillHasTheDescriptor) {
  TemporaryFolder const folder;
  auto held = std::make_unique<StoreLock>(folder / "lock", LockKind::exclusive);
  LockHolder const child;
  held.reset();
  EXPECT_EQ(failureOf([&] { StoreLock(folder / "lock", LockKind::exclusive); }).code, -1);
}

TEST(StoreLock, IsFreeWhenItsHolderIsKilled) {
  TemporaryFolder const folder;
  LockHolder other(folder / "lock");
  EXPECT_EQ(failureOf([&] { StoreLock(folder / "lock", LockKind::exclusive); }), inUse);
  other.kill();
  StoreLock const lock(folder / "lock", LockKind::exclusive);
}

TEST(StoreLock, IsNoLockOfAFileThatHasLostItsName) {
  struct {
    char const* says;
    std::function<void(std::filesystem::path const&)> harm;
  } const cases[] = {
      {"removed", [](auto const& file) { std::filesystem::remove(file); }},
      {"moved", [](auto const& file) { std::filesystem::rename(file, file.string() + "-moved"); }},
      {"exchanged",
       [](auto const& file) {
         std::filesystem::rename(file, file.string() + "-old");
         std::ofstream(file) << "x";
       }},
      {"exchanged for a link to it",
       [](auto const& file) {
         std::filesystem::rename(file, file.string() + "-old");
         std::filesystem::create_symlink(file.string() + "-old", file);
       }},
  };
  for (auto const& now : cases) {
    SCOPED_TRACE(now.says);
    for (LockKind const kind : {LockKind::exclusive, LockKind::shared}) {
      TemporaryFolder const folder;
      long const open = openDescriptors();
      bool harmed = false;
      beforeLocking = [&](int operation) {
        if (operation != LOCK_UN && !std::exchange(harmed, true)) now.harm(folder / "lock");
      };
      EXPECT_EQ(failureOf([&] { StoreLock(folder / "lock", kind); }), kind == LockKind::shared ? beingDeleted : inUse);
      beforeLocking = {};
      EXPECT_TRUE(harmed);
      EXPECT_EQ(openDescriptors(), open);
    }
  }
}

TEST(StoreLock, EndsWithoutATraceInErrno) {
  TemporaryFolder const folder;
  auto lock = std::make_unique<StoreLock>(folder / "lock", LockKind::exclusive);
  beforeLocking = [](int) { errno = EIO; };
  errno = ENOENT;
  lock.reset();
  EXPECT_EQ(errno, ENOENT);
  beforeLocking = {};
}

TEST(StoreLock, IsInheritedByNoProgram) {
  TemporaryFolder const folder;
  StoreLock const lock(folder / "lock", LockKind::exclusive);
  FILE* const program = ::popen("ls -l /proc/self/fd", "r");
  ASSERT_NE(program, nullptr);
  std::string listed;
  for (int letter = ::fgetc(program); letter != EOF; letter = ::fgetc(program)) listed += static_cast<char>(letter);
  EXPECT_EQ(::pclose(program), 0);
  EXPECT_EQ(listed.find((folder / "lock").string()), std::string::npos) << listed;
}

TEST(StoreLock, MakesAFileForItsOwnerAlone) {
  TemporaryFolder const folder;
  StoreLock const lock(folder / "lock", LockKind::exclusive);
  struct stat status {};
  ASSERT_EQ(::stat((folder / "lock").c_str(), &status), 0);
  EXPECT_EQ(status.st_mode & 07777, 0600u);
  EXPECT_EQ(status.st_size, 0);
}

TEST(StoreLock, RefusesWhatIsNoFileWithoutWaiting) {
  TemporaryFolder const folder;
  std::filesystem::create_directory(folder / "folder");
  ASSERT_EQ(::mkfifo((folder / "pipe").c_str(), 0600), 0);
  std::filesystem::create_symlink(folder / "elsewhere", folder / "link");
  Descriptor const socket(::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0));
  sockaddr_un address{};
  address.sun_family = AF_UNIX;
  std::string const name = folder / "socket";
  name.copy(address.sun_path, sizeof address.sun_path - 1);
  ASSERT_EQ(::bind(socket.get(), reinterpret_cast<sockaddr*>(&address), sizeof address), 0);
  struct {
    std::filesystem::path name;
    std::string message;
  } const cases[] = {
      {folder / "folder", lockFailure(EISDIR)}, {folder / "pipe", lockFailure(EINVAL)},
      {folder / "socket", lockFailure(EINVAL)}, {folder / "link", lockFailure(ELOOP)},
      {"/dev/null", lockFailure(EINVAL)},       {folder / "absent" / "lock", lockFailure(ENOENT)},
  };
  long const open = openDescriptors();
  for (auto const& now : cases) {
    SCOPED_TRACE(now.name);
    EXPECT_EQ(failureOf([&] { StoreLock(now.name, LockKind::exclusive); }), DatabaseError(now.message));
    EXPECT_EQ(failureOf([&] { StoreLock(now.name, LockKind::shared); }), DatabaseError(now.message));
  }
  EXPECT_EQ(openDescriptors(), open);
  EXPECT_FALSE(std::filesystem::exists(folder / "elsewhere"));
}

TEST(StoreLock, TellsWhyAFileCannotBeOpened) {
  TemporaryFolder folder;
  folder.openToEverybody();
  { StoreLock const lock(folder / "lock", LockKind::exclusive); }
  std::filesystem::permissions(folder / "lock", std::filesystem::perms::none);
  EXPECT_EQ(asUnprivileged([&] { return failureOf([&] { StoreLock(folder / "lock", LockKind::shared); }).detail; }),
            lockFailure(EACCES));
}

TEST(StoreLock, LeavesSQLiteItsLocksWhereAnotherNameOfADatabaseIsPlanted) {
  TemporaryFolder const folder;
  TemporaryDatabase const database(folder, "live.sqlite", "CREATE TABLE t(a)");
  std::filesystem::create_hard_link(database.path(), folder / "lock");
  auto const writer = SQLiteConnection::open(database.path(), {.readOnly = false});
  writer->execute("BEGIN IMMEDIATE");
  { StoreLock const lock(folder / "lock", LockKind::exclusive); }
  SQLitePeer peer(database.path());
  EXPECT_EQ(peer.exec("BEGIN IMMEDIATE"), "error 5 database is locked");
}

}  // namespace
}  // namespace tolva
