// SPDX-License-Identifier: Apache-2.0
#include "support/TemporaryFolder.hpp"

#include <gtest/gtest-spi.h>
#include <gtest/gtest.h>

#include <memory>

namespace tolva {
namespace {

TEST(TemporaryFolder, IsGoneWithItsContentAfterTheTest) {
  std::filesystem::path path;
  {
    TemporaryFolder const folder;
    path = folder.path();
    folder.write("a", "1");
    std::filesystem::create_directories(folder / "b/c");
    EXPECT_EQ(folder.names(), (std::vector<std::string>{"a", "b"}));
    EXPECT_EQ(folder.read("a"), "1");
    EXPECT_EQ(folder.read("z"), "(no z)");
  }
  EXPECT_FALSE(std::filesystem::exists(path));
}

TEST(TemporaryFolder, FailsTheTestThatLeavesAHiddenFileAtAnyDepth) {
  auto folder = std::make_unique<TemporaryFolder>();
  std::filesystem::create_directory(*folder / "deep");
  folder->write("deep/.staged", "");
  EXPECT_NONFATAL_FAILURE(folder.reset(), "The test leaves deep/.staged behind.");
}

TEST(TemporaryFolder, LetsAnAllowedLeftoverStay) {
  TemporaryFolder folder;
  folder.write(".lock", "");
  folder.allowLeftover(".lock");
}

}  // namespace
}  // namespace tolva
