// SPDX-License-Identifier: Apache-2.0
#include "platform/DurableFolder.hpp"

#include <gtest/gtest.h>
#include <sys/stat.h>

#include <cerrno>
#include <filesystem>
#include <string>
#include <vector>

#include "support/FaultInjector.hpp"
#include "support/SystemFailure.hpp"
#include "support/TemporaryFolder.hpp"
#include "support/Unprivileged.hpp"
#include "support/WorkingFolder.hpp"

namespace tolva {
namespace {

TEST(DurableFolder, IsMadeWithAllThatIsMissingAboveIt) {
  TemporaryFolder const folder;
  WorkingFolder const inside(folder.path());
  for (std::filesystem::path const& path : {folder / "a" / "b" / "c", folder / "d" / "e/", folder / "f",
                                            std::filesystem::path("g/h"), std::filesystem::path("i"), folder / "f"}) {
    SCOPED_TRACE(path);
    makeDurableFolder(path);
    struct stat status {};
    ASSERT_EQ(::stat(path.c_str(), &status), 0);
    EXPECT_EQ(status.st_mode & 07777, 0700u);
  }
  EXPECT_EQ(folder.names(), (std::vector<std::string>{"a", "d", "f", "g", "i"}));
}

TEST(DurableFolder, IsOnTheDiskBeforeTheNextOneIsMade) {
  TemporaryFolder const folder;
  FaultInjector const injector(folder.path());
  makeDurableFolder(folder / "a" / "b");
  EXPECT_EQ(injector.trace(), "mkdir fsync mkdir fsync");
  makeDurableFolder(folder / "a" / "b");
  EXPECT_EQ(injector.calls(), 4) << "what is there already is left alone";
}

TEST(DurableFolder, TakesALinkToAFolderForOne) {
  TemporaryFolder const folder;
  std::filesystem::create_directory(folder / "real");
  std::filesystem::create_directory_symlink("real", folder / "link");
  makeDurableFolder(folder / "link");
  makeDurableFolder(folder / "link" / "new");
  EXPECT_TRUE(std::filesystem::is_directory(folder / "real" / "new"));
}

TEST(DurableFolder, IsNotLeftBehindWhenItsNameCannotBePutOnTheDisk) {
  TemporaryFolder const folder;
  EXPECT_TRUE(FaultInjector::failing(folder.path(), 4, EIO, false, [&] {
    EXPECT_EQ(systemFailureOf([&] { makeDurableFolder(folder / "a" / "b"); }).substr(0, 3), "EIO");
  }));
  EXPECT_TRUE(std::filesystem::is_empty(folder / "a"));
}

TEST(DurableFolder, TellsWhatStandsInItsWay) {
  TemporaryFolder folder;
  folder.openToEverybody();
  folder.write("file", "");
  std::filesystem::create_symlink("nowhere", folder / "dangling");
  EXPECT_EQ(systemFailureOf([&] { makeDurableFolder(folder / "file"); }), "EEXIST file");
  EXPECT_EQ(systemFailureOf([&] { makeDurableFolder(folder / "file" / "below"); }), "EEXIST file");
  EXPECT_EQ(systemFailureOf([&] { makeDurableFolder(folder / "dangling"); }), "EEXIST dangling");
  std::filesystem::create_directory(folder / "closed");
  std::filesystem::permissions(folder / "closed", std::filesystem::perms::none);
  EXPECT_EQ(asUnprivileged([&] { return systemFailureOf([&] { makeDurableFolder(folder / "closed" / "new"); }); }),
            "EACCES new");
  std::filesystem::permissions(folder / "closed", std::filesystem::perms::owner_all);
  EXPECT_EQ(systemFailureOf([&] { flushFolder(folder / "absent"); }), "ENOENT absent");
  EXPECT_EQ(systemFailureOf([&] { flushFolder(folder / "file"); }), "ENOTDIR file");
}

TEST(DurableFolder, NeedsNoRightToReadTheFolderThatItIsMadeIn) {
  TemporaryFolder folder;
  folder.openToEverybody();
  std::filesystem::create_directory(folder / "drop");
  std::filesystem::permissions(folder / "drop", std::filesystem::perms(0333));
  EXPECT_EQ(asUnprivileged([&] { return systemFailureOf([&] { makeDurableFolder(folder / "drop" / "new"); }); }),
            "(nothing failed)");
  std::filesystem::permissions(folder / "drop", std::filesystem::perms::owner_all);
}

}  // namespace
}  // namespace tolva
