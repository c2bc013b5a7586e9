// SPDX-License-Identifier: Apache-2.0
#include "core/FileObservation.hpp"

#include <gtest/gtest.h>

#include "support/TemporaryFolder.hpp"
#include "support/Unprivileged.hpp"

namespace tolva {
namespace {

TEST(FileObservation, TellsThreeCasesApart) {
  FileObservation const cases[] = {FileObservation::present(0), FileObservation::present(1), FileObservation::missing(),
                                   FileObservation::unavailable()};
  for (FileObservation const& one : cases) {
    for (FileObservation const& other : cases) EXPECT_EQ(one == other, &one == &other);
  }
  EXPECT_EQ(*cases[1].bytes(), 1);
  EXPECT_FALSE(cases[2].bytes());
  EXPECT_TRUE(cases[2].isMissing());
  EXPECT_FALSE(cases[2].isUnavailable());
  EXPECT_TRUE(cases[3].isUnavailable());
}

TEST(FileObservation, ReadsTheSizeOfWhatIsThere) {
  TemporaryFolder const folder;
  EXPECT_EQ(FileObservation::read(folder.write("empty", "")), FileObservation::present(0));
  EXPECT_EQ(FileObservation::read(folder.write("five", "12345")), FileObservation::present(5));
  EXPECT_TRUE(FileObservation::read(folder.path()).bytes());
}

TEST(FileObservation, IsMissingWhereNoSuchFileCanBe) {
  TemporaryFolder const folder;
  folder.write("file", "x");
  EXPECT_EQ(FileObservation::read(folder / "none"), FileObservation::missing());
  EXPECT_EQ(FileObservation::read(folder / "none/below"), FileObservation::missing());
  EXPECT_EQ(FileObservation::read(folder / "file/below"), FileObservation::missing());
  EXPECT_EQ(FileObservation::read(""), FileObservation::missing());
  EXPECT_EQ(FileObservation::read(folder.path().string() + "/file" + '\0'), FileObservation::missing());
}

TEST(FileObservation, IsOfALinkItself) {
  TemporaryFolder const folder;
  folder.write("file", "12345");
  std::filesystem::create_symlink("none", folder / "broken");
  std::filesystem::create_symlink("file", folder / "whole");
  EXPECT_EQ(FileObservation::read(folder / "broken"), FileObservation::present(4));
  EXPECT_EQ(FileObservation::read(folder / "whole"), FileObservation::present(4));
}

TEST(FileObservation, IsUnavailableForEveryOtherFailure) {
  TemporaryFolder folder;
  folder.openToEverybody();
  std::filesystem::create_directory(folder / "closed");
  folder.write("closed/file", "x");
  std::filesystem::permissions(folder / "closed", std::filesystem::perms::none);
  EXPECT_EQ(asUnprivileged([&] {
              auto const seen = FileObservation::read(folder / "closed/file");
              return std::string(seen == FileObservation::unavailable() ? "unavailable" : "something else");
            }),
            "unavailable");
  std::filesystem::permissions(folder / "closed", std::filesystem::perms::owner_all);
  EXPECT_EQ(FileObservation::read(folder / std::string(300, 'n')), FileObservation::unavailable());
}

}  // namespace
}  // namespace tolva
