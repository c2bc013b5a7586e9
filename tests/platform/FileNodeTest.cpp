// SPDX-License-Identifier: Apache-2.0
#include "platform/FileNode.hpp"

#include <fcntl.h>
#include <gtest/gtest.h>

#include "platform/Descriptor.hpp"
#include "support/TemporaryFolder.hpp"

namespace tolva {
namespace {

Descriptor folderAt(std::filesystem::path const& path) {
  return Descriptor(::open(path.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
}

TEST(FileNode, IsOneForAllNamesOfAFile) {
  TemporaryFolder const folder;
  auto const file = folder.write("a", "");
  std::filesystem::create_hard_link(file, folder / "hard");
  std::filesystem::create_symlink("a", folder / "soft");
  Descriptor const opened(::open(file.c_str(), O_RDONLY | O_CLOEXEC));
  Descriptor const place = folderAt(folder.path());

  auto const node = fileNode(file);
  ASSERT_TRUE(node);
  EXPECT_EQ(fileNode(folder / "hard"), node);
  EXPECT_EQ(fileNode(folder / "soft"), node);
  EXPECT_EQ(fileNode(opened.get()), node);
  EXPECT_EQ(fileNode(place.get(), "a"), node);
  EXPECT_NE(fileNode(place.get(), "soft"), node);  // in an open folder a link is itself
  EXPECT_NE(fileNode(folder.write("b", "")), node);
}

TEST(FileNode, IsNothingWhereThereIsNoFile) {
  TemporaryFolder const folder;
  std::filesystem::create_symlink("absent", folder / "dangling");
  EXPECT_EQ(fileNode(folder / "absent"), std::nullopt);
  EXPECT_EQ(fileNode(folder / "dangling"), std::nullopt);
  EXPECT_EQ(fileNode(folderAt(folder.path()).get(), "absent"), std::nullopt);
  EXPECT_EQ(fileNode(-1), std::nullopt);
}

}  // namespace
}  // namespace tolva
