// SPDX-License-Identifier: Apache-2.0
#include "snapshots/SnapshotSource.hpp"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <string>

#include "core/SQLiteConnection.hpp"
#include "platform/FileIdentity.hpp"
#include "platform/SHA256.hpp"
#include "support/Failure.hpp"
#include "support/SQLitePeer.hpp"
#include "support/SystemFailure.hpp"
#include "support/TemporaryDatabase.hpp"
#include "support/TemporaryFolder.hpp"
#include "support/Unprivileged.hpp"
#include "support/WorkingFolder.hpp"

namespace tolva {
namespace {

TEST(SnapshotSource, IsTheFileAndItsPath) {
  TemporaryFolder const folder;
  auto const path = folder.write("live.sqlite", "");
  SnapshotSource const source = snapshotSource(path);
  EXPECT_EQ(source.path, path);
  EXPECT_EQ(source.sourceIdentity, fileIdentity(path, EpochYear::y1970));
  EXPECT_EQ(source.databaseID, sha256Text(path.string() + "\n" + source.sourceIdentity));
  EXPECT_EQ(source.databaseID.size(), 64U);
}

TEST(SnapshotSource, CountsTheBirthOfAFileFrom1970) {
  TemporaryFolder const folder;
  auto const path = folder.write("live.sqlite", "");
  std::string const identity = snapshotSource(path).sourceIdentity;
  std::string const birth = identity.substr(identity.rfind(':') + 1);
  struct statx status {};
  ASSERT_EQ(::statx(AT_FDCWD, path.c_str(), 0, STATX_BTIME, &status), 0);
  if ((status.stx_mask & STATX_BTIME) == 0) {
    EXPECT_EQ(birth, "0.0");
  } else {
    EXPECT_EQ(birth.substr(0, birth.find('.')), std::to_string(status.stx_btime.tv_sec));
  }
}

TEST(SnapshotSource, IsTheSameByEachWayToTheFile) {
  TemporaryFolder const folder;
  std::filesystem::create_directory(folder / "real");
  auto const path = folder.write("real/live.sqlite", "");
  std::filesystem::create_symlink("real", folder / "folder");
  std::filesystem::create_symlink("real/live.sqlite", folder / "link.sqlite");
  WorkingFolder const inside(folder.path());
  SnapshotSource const expected = snapshotSource(path);
  for (std::filesystem::path const& way :
       {std::filesystem::path("real/live.sqlite"), folder / "folder" / "live.sqlite", folder / "link.sqlite",
        folder / "real" / "." / ".." / "real" / "live.sqlite"}) {
    SCOPED_TRACE(way);
    EXPECT_EQ(snapshotSource(way), expected);
  }
}

TEST(SnapshotSource, IsAnotherOneElsewhereAndForAnotherFile) {
  TemporaryFolder const folder;
  auto const path = folder.write("live.sqlite", "");
  SnapshotSource const source = snapshotSource(path);
  std::filesystem::create_hard_link(path, folder / "second.sqlite");
  SnapshotSource const elsewhere = snapshotSource(folder / "second.sqlite");
  EXPECT_EQ(elsewhere.sourceIdentity, source.sourceIdentity);
  EXPECT_NE(elsewhere.databaseID, source.databaseID);
  folder.write("new.sqlite", "");
  std::filesystem::rename(folder / "new.sqlite", path);
  EXPECT_NE(snapshotSource(path).sourceIdentity, source.sourceIdentity);
  EXPECT_NE(snapshotSource(path).databaseID, source.databaseID);
}

TEST(SnapshotSource, StaysWhileTheFileIsWritten) {
  TemporaryDatabase const database("CREATE TABLE t(a)");
  SnapshotSource const source = snapshotSource(database.path());
  database.run("INSERT INTO t VALUES (1); VACUUM; PRAGMA journal_mode=WAL");
  EXPECT_EQ(snapshotSource(database.path()), source);
}

TEST(SnapshotSource, KeepsTheBytesOfAPathThatIsNoText) {
  TemporaryFolder const folder;
  auto const first = folder.write("a\xFF.sqlite", "");
  auto const second = folder.write("a\xFE.sqlite", "");
  EXPECT_EQ(snapshotSource(first).path, first);
  EXPECT_NE(snapshotSource(first).databaseID, snapshotSource(second).databaseID);
}

TEST(SnapshotSource, RefusesAnythingButAFile) {
  TemporaryFolder const folder;
  std::filesystem::create_directory(folder / "folder");
  ASSERT_EQ(::mkfifo((folder / "pipe").c_str(), 0600), 0);
  std::filesystem::create_symlink("folder", folder / "link");
  for (std::filesystem::path const& path : {folder / "folder", folder / "folder/", folder / "pipe", folder / "link",
                                            std::filesystem::path("/dev/null"), std::filesystem::path("/")}) {
    SCOPED_TRACE(path);
    EXPECT_EQ(failureOf([&] { snapshotSource(path); }), DatabaseError("Cannot identify this database file safely."));
  }
}

TEST(SnapshotSource, PassesOnWhyAFileCannotBeLookedUp) {
  TemporaryFolder folder;
  folder.openToEverybody();
  std::filesystem::create_symlink("itself", folder / "itself");
  std::filesystem::create_symlink("nowhere", folder / "dangling");
  auto const path = folder.write("live.sqlite", "");
  EXPECT_EQ(systemFailureOf([&] { snapshotSource(folder / "absent"); }), "ENOENT absent");
  EXPECT_EQ(systemFailureOf([&] { snapshotSource(folder / "dangling"); }), "ENOENT nowhere");
  EXPECT_EQ(systemFailureOf([&] { snapshotSource(path.string() + std::string("\0x", 2)); }).substr(0, 6), "ENOENT");
  EXPECT_EQ(systemFailureOf([&] { snapshotSource(path / "below"); }), "ENOTDIR below");
  std::filesystem::create_directory(folder / "closed");
  folder.write("closed/live.sqlite", "");
  std::filesystem::permissions(folder / "closed", std::filesystem::perms::none);
  EXPECT_EQ(asUnprivileged([&] { return systemFailureOf([&] { snapshotSource(folder / "closed" / "live.sqlite"); }); }),
            "EACCES live.sqlite");
  std::filesystem::permissions(folder / "closed", std::filesystem::perms::owner_all);
}

TEST(SnapshotSource, NeedsNoRightToReadTheFile) {
  TemporaryFolder folder;
  folder.openToEverybody();
  auto const path = folder.write("live.sqlite", "");
  std::filesystem::permissions(path, std::filesystem::perms::none);
  EXPECT_EQ(asUnprivileged([&] { return snapshotSource(path).databaseID; }), snapshotSource(path).databaseID);
}

TEST(SnapshotSource, LeavesSQLiteItsLocks) {
  TemporaryDatabase const database("CREATE TABLE t(a)");
  auto const writer = SQLiteConnection::open(database.path(), {.readOnly = false});
  writer->execute("BEGIN IMMEDIATE");
  snapshotSource(database.path());
  SQLitePeer peer(database.path());
  EXPECT_EQ(peer.exec("BEGIN IMMEDIATE"), "error 5 database is locked");
}

}  // namespace
}  // namespace tolva
