// SPDX-License-Identifier: Apache-2.0
#include "platform/LockedFiles.hpp"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sqlite3.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <memory>
#include <thread>
#include <vector>

#include "platform/FileIdentity.hpp"
#include "platform/SafeFile.hpp"
#include "support/SQLitePeer.hpp"
#include "support/TemporaryDatabase.hpp"
#include "support/TemporaryFolder.hpp"

namespace tolva {
namespace {

int opened(std::filesystem::path const& path) { return ::open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK); }

bool isOpen(int descriptor) { return ::fcntl(descriptor, F_GETFD) != -1; }

TEST(LockedFiles, ClosesADescriptorOfAFileThatNobodyHolds) {
  TemporaryFolder const folder;
  int const descriptor = opened(folder.write("a", ""));
  LockedFiles::hold(*fileNode(folder.write("b", "")));
  errno = ENOSPC;
  LockedFiles::close(descriptor);
  EXPECT_EQ(errno, ENOSPC);
  EXPECT_FALSE(isOpen(descriptor));
  LockedFiles::letGo(*fileNode(folder / "b"));
}

TEST(LockedFiles, ParksADescriptorUntilTheLastHoldOfItsFileGoes) {
  TemporaryFolder const folder;
  auto const file = folder.write("a", "");
  std::filesystem::create_hard_link(file, folder / "hard");
  FileNode const node = *fileNode(file);
  LockedFiles::hold(node);
  LockedFiles::hold(node);
  int const descriptor = opened(folder / "hard");
  LockedFiles::close(descriptor);
  EXPECT_TRUE(isOpen(descriptor));
  LockedFiles::letGo(node);
  EXPECT_TRUE(isOpen(descriptor));
  LockedFiles::letGo(node);
  EXPECT_FALSE(isOpen(descriptor));

  int const later = opened(file);
  LockedFiles::close(later);
  EXPECT_FALSE(isOpen(later));
}

TEST(LockedFiles, ClosesWhatIsNoRegularFileAtOnce) {
  TemporaryFolder const folder;
  FileNode const node = *fileNode(folder.path());
  LockedFiles::hold(node);
  int const descriptor = opened(folder.path());
  LockedFiles::close(descriptor);
  EXPECT_FALSE(isOpen(descriptor));
  LockedFiles::letGo(node);
}

TEST(LockedFiles, LosesNoDescriptorAmongManyThreads) {
  TemporaryFolder const folder;
  auto const file = folder.write("a", "");
  FileNode const node = *fileNode(file);
  std::array<std::vector<int>, 4> used;
  {
    std::vector<std::jthread> threads;
    for (std::vector<int>& mine : used) {
      threads.emplace_back([&] {
        for (int round = 0; round < 500; ++round) {
          LockedFiles::hold(node);
          int const descriptor = opened(file);
          mine.push_back(descriptor);
          LockedFiles::close(descriptor);
          if (!isOpen(descriptor)) mine.push_back(-1);  // it was not parked although this thread holds the file
          LockedFiles::letGo(node);
        }
      });
    }
  }
  for (std::vector<int> const& mine : used) {
    EXPECT_EQ(mine.size(), 500U);
    for (int const descriptor : mine) EXPECT_FALSE(descriptor < 0 || isOpen(descriptor));
  }
}

// The proof ---------------------------------------------------------------------------------------

struct CloseConnection {
  void operator()(sqlite3* connection) const { sqlite3_close(connection); }
};

TEST(LockedFiles, KeepsTheLocksOfSQLiteThatABareCloseDrops) {
  TemporaryFolder const folder;
  TemporaryDatabase const database(folder, "a.db", "CREATE TABLE t(a)");
  std::filesystem::create_hard_link(database.path(), folder / "hard.db");
  SQLitePeer peer(database.path());
  FileNode const node = *fileNode(database.path());

  LockedFiles::hold(node);
  sqlite3* opening = nullptr;
  ASSERT_EQ(sqlite3_open_v2(database.path().c_str(), &opening, SQLITE_OPEN_READWRITE, nullptr), SQLITE_OK);
  std::unique_ptr<sqlite3, CloseConnection> connection(opening);
  rowsAsText(connection.get(), "BEGIN IMMEDIATE; INSERT INTO t VALUES('ours')");
  EXPECT_EQ(peer.exec("BEGIN IMMEDIATE"), "error 5 database is locked");

  for (char const* const name : {"a.db", "hard.db"}) {
    SCOPED_TRACE(name);
    EXPECT_EQ(SafeFile(folder / name).readUpTo(15),
              (Bytes{'S', 'Q', 'L', 'i', 't', 'e', ' ', 'f', 'o', 'r', 'm', 'a', 't', ' ', '3'}));
    fileIdentity(folder / name, EpochYear::y1970);
    EXPECT_EQ(peer.exec("BEGIN IMMEDIATE"), "error 5 database is locked");
  }

  ::close(opened(folder / "hard.db"));
  EXPECT_EQ(peer.exec("BEGIN IMMEDIATE"), "ok") << "A bare close drops the lock, or this test proves nothing.";

  EXPECT_EQ(peer.exec("ROLLBACK"), "ok");
  rowsAsText(connection.get(), "ROLLBACK");
  connection.reset();
  LockedFiles::letGo(node);
}

}  // namespace
}  // namespace tolva
