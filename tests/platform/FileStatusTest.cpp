// SPDX-License-Identifier: Apache-2.0
#include "platform/FileStatus.hpp"

#include <gtest/gtest.h>

#include "support/SystemFailure.hpp"
#include "support/TemporaryFolder.hpp"

namespace tolva {
namespace {

TEST(FileStatus, TellsSizeTimeAndKindOfWhatANameLeadsTo) {
  using namespace std::chrono;
  TemporaryFolder const folder;
  auto const file = folder.write("a", "seven..");
  auto const moment = sys_seconds(seconds(1'794'778'860));
  std::filesystem::last_write_time(file, file_clock::from_sys(moment));
  std::filesystem::create_symlink("a", folder / "link");
  FileStatus const status = fileStatus(folder / "link");
  EXPECT_EQ(status, fileStatus(file));
  EXPECT_EQ(status.node, fileNode(file));
  EXPECT_EQ(status.size, 7);
  EXPECT_EQ(status.modified, moment);
  EXPECT_TRUE(status.regular);
  EXPECT_EQ(status.links, 1);
  EXPECT_FALSE(fileStatus(folder.path()).regular);
}

TEST(FileStatus, PassesTheSystemsOwnErrorOn) {
  TemporaryFolder const folder;
  EXPECT_EQ(systemFailureOf([&] { fileStatus(folder / "absent"); }), "ENOENT absent");
}

}  // namespace
}  // namespace tolva
