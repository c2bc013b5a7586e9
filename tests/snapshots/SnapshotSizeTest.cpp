// SPDX-License-Identifier: Apache-2.0
#include "snapshots/SnapshotSize.hpp"

#include <gtest/gtest.h>

#include <limits>

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
