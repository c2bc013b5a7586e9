// SPDX-License-Identifier: Apache-2.0
#include "snapshots/SnapshotSize.hpp"

#include <gtest/gtest.h>
#include <sqlite3.h>

#include <limits>
#include <string>

#include "core/GuardVFS.hpp"
#include "support/Failure.hpp"
#include "support/TemporaryDatabase.hpp"

namespace tolva {
namespace {

constexpr std::int64_t mebibyte = 1'048'576;
constexpr std::int64_t most = std::numeric_limits<std::int64_t>::max();

TEST(SnapshotSize, IsThatOfAllPages) {
  TemporaryFolder const folder;
  TemporaryDatabase const database(folder, "a.db", "PRAGMA page_size = 1024; CREATE TABLE a(a); CREATE TABLE b(a);");
  auto const connection = SQLiteConnection::open(database.path(), {});
  SnapshotEstimate const estimate = estimateSnapshot(*connection, folder.path(), {});
  EXPECT_EQ(estimate.bytes, 3 * 1024);
  EXPECT_EQ(pageSizeOf(*connection), 1024);
  ASSERT_TRUE(estimate.availableBytes);
  EXPECT_GT(*estimate.availableBytes, 0);
}

TEST(SnapshotSize, KnowsTheRoomOnlyWhereTheStoreIs) {
  TemporaryFolder const folder;
  TemporaryDatabase const database(folder, "a.db", "");
  auto const connection = SQLiteConnection::open(database.path(), {});
  EXPECT_EQ(estimateSnapshot(*connection, folder / "none", {}), (SnapshotEstimate{.bytes = 0, .availableBytes = {}}));
  EXPECT_EQ(estimateSnapshot(*connection, folder / "none", {.availableBytesOverride = 7}),
            (SnapshotEstimate{.bytes = 0, .availableBytes = 7}));
  EXPECT_EQ(estimateSnapshot(*connection, folder.path(), {.availableBytesOverride = 0}),
            (SnapshotEstimate{.bytes = 0, .availableBytes = 0}));
}

/// The file system fails the opening of logs with a code that says more than "unable to open", for a scope.
class LogsRefused {
 public:
  explicit LogsRefused(int code) : vfs_(sqlite3_vfs_find(GuardVFS::name)) {
    code_ = code;
    open_ = vfs_->xOpen;
    vfs_->xOpen = open;
  }
  ~LogsRefused() { vfs_->xOpen = open_; }
  LogsRefused(LogsRefused const&) = delete;
  LogsRefused& operator=(LogsRefused const&) = delete;

 private:
  static int open(sqlite3_vfs* vfs, char const* path, sqlite3_file* file, int flags, int* given) {
    file->pMethods = nullptr;
    return flags & SQLITE_OPEN_WAL ? code_ : open_(vfs, path, file, flags, given);
  }

  static inline int code_ = SQLITE_OK;
  static inline decltype(sqlite3_vfs::xOpen) open_ = nullptr;
  sqlite3_vfs* const vfs_;
};

TEST(SnapshotSize, KeepsTheWholeCodeOfALogThatCannotBeOpened) {
  struct {
    int code;
    std::string detail;
  } const cases[] = {
      {SQLITE_CANTOPEN_CONVPATH,
       R"(SQLite could not read this database. For a WAL database with missing or inaccessible sidecar files, reopen it in its owning application and try again. Snapshot capture requires read-only source access.)"},
      {SQLITE_IOERR_READ, "disk I/O error"},
  };
  TemporaryFolder const folder;
  TemporaryDatabase const database(folder, "a.db", "PRAGMA journal_mode = WAL; CREATE TABLE t(a);");
  for (auto const& each : cases) {
    auto const connection = SQLiteConnection::open(database.path(), {});
    LogsRefused const refused(each.code);
    EXPECT_EQ(failureOf([&] { estimateSnapshot(*connection, folder.path(), {}); }),
              DatabaseError(each.detail, each.code));
  }
}

TEST(SnapshotSize, IsRefusedBeyondWhatCanBeCounted) {
  EXPECT_EQ(databaseSize(most / 65'536, 65'536), most / 65'536 * 65'536);
  EXPECT_EQ(failureOf([] { databaseSize(most / 65'536 + 1, 65'536); }),
            DatabaseError("Database is too large to snapshot."));
}

TEST(SnapshotSize, NeedsATenthMoreAndAtLeast16MiB) {
  struct {
    std::int64_t bytes;
    std::int64_t needed;
  } const cases[] = {
      {0, 16 * mebibyte},
      {4096, 4096 + 16 * mebibyte},
      {160 * mebibyte, 176 * mebibyte},
      {160 * mebibyte + 9, 176 * mebibyte + 9},
      {160 * mebibyte + 10, 176 * mebibyte + 11},
      {1000 * mebibyte, 1100 * mebibyte},
  };
  for (auto const& each : cases) {
    SCOPED_TRACE(each.bytes);
    EXPECT_NO_THROW(requireSpace({.bytes = each.bytes, .availableBytes = each.needed}));
    EXPECT_EQ(
        failureOf([&] { requireSpace({.bytes = each.bytes, .availableBytes = each.needed - 1}); }),
        DatabaseError(
            "Not enough free space for this snapshot. Delete unwanted snapshots or free disk space and try again."));
    EXPECT_NO_THROW(requireSpace({.bytes = each.bytes, .availableBytes = {}}));
  }
  EXPECT_EQ(failureOf([] { requireSpace({.bytes = most, .availableBytes = most}); }).code, 1);
  EXPECT_EQ(failureOf([] { requireSpace({.bytes = 0, .availableBytes = -1}); }).code, 1);
}

}  // namespace
}  // namespace tolva
