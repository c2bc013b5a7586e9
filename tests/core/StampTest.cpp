// SPDX-License-Identifier: Apache-2.0
#include "core/Stamp.hpp"

#include <gtest/gtest.h>
#include <sys/stat.h>

#include <cerrno>
#include <string>

#include "support/TemporaryFolder.hpp"

namespace tolva {
namespace {

TEST(Stamp, HoldsWhatTheSystemSaysOfTheFile) {
  TemporaryFolder const folder;
  std::filesystem::path const file = folder.write("t.db", "12345");
  struct stat status {};
  ASSERT_EQ(stat(file.c_str(), &status), 0);
  Stamp const expected{.device = status.st_dev,
                       .inode = status.st_ino,
                       .bytes = 5,
                       .seconds = status.st_mtim.tv_sec,
                       .nanoseconds = status.st_mtim.tv_nsec,
                       .changedSeconds = status.st_ctim.tv_sec,
                       .changedNanoseconds = status.st_ctim.tv_nsec};
  EXPECT_EQ(Stamp::of(file), expected);
  std::filesystem::create_symlink("t.db", folder / "link.db");
  EXPECT_EQ(Stamp::of(folder / "link.db"), expected);
}

TEST(Stamp, HoldsNothingButTheErrorWhereTheFileCannotBeLookedAt) {
  TemporaryFolder const folder;
  folder.write("file", "x");
  std::filesystem::create_symlink("ring", folder / "ring");
  EXPECT_EQ(Stamp::of(folder / "none"), Stamp{.error = ENOENT});
  EXPECT_EQ(Stamp::of(folder / "file/below"), Stamp{.error = ENOTDIR});
  EXPECT_EQ(Stamp::of(folder / "ring"), Stamp{.error = ELOOP});
}

TEST(Stamp, TakesNoFileForOneWhoseNameHasMoreBehindANUL) {
  TemporaryFolder const folder;
  folder.write("file", "x");
  EXPECT_EQ(Stamp::of((folder / "file").string() + '\0' + "more"), Stamp{.error = ENOENT});
}

}  // namespace
}  // namespace tolva
