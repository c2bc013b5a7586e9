// SPDX-License-Identifier: Apache-2.0
#include "platform/CanonicalPath.hpp"

#include <gtest/gtest.h>

#include "support/TemporaryFolder.hpp"

namespace tolva {
namespace {

namespace fs = std::filesystem;

struct PathCase {
  char const* says;
  char const* given;
  char const* canonical;
};

PathCase const paths[] = {
    {"a plain file", "real/a.db", "real/a.db"},
    {"a file that is not there", "real/none.db", "real/none.db"},
    {"a link to a file", "link.db", "real/a.db"},
    {"a link to a link", "chain.db", "real/a.db"},
    {"a link to a file that is not there", "dangling.db", "real/none.db"},
    {"a link to a folder on the way", "folder/a.db", "real/a.db"},
    {"a link to a folder on the way to a file that is not there", "folder/none.db", "real/none.db"},
    {"a way up and down again", "real/../real/./a.db", "real/a.db"},
    {"a way up behind a link, which begins where the link leads", "deep/../a.db", "real/a.db"},
    {"a folder that is not there", "none/none/a.db", "none/none/a.db"},
    {"a link that leads to itself stays", "loop.db", "loop.db"},
};

TEST(CanonicalPath, FollowsLinksAsFarAsTheyLead) {
  TemporaryFolder const folder;
  fs::create_directories(folder / "real/inside");
  folder.write("real/a.db", "");
  fs::create_symlink("real/a.db", folder / "link.db");
  fs::create_symlink(folder / "link.db", folder / "chain.db");
  fs::create_symlink("real/none.db", folder / "dangling.db");
  fs::create_symlink("real", folder / "folder");
  fs::create_symlink("real/inside", folder / "deep");
  fs::create_symlink("loop.db", folder / "loop.db");
  for (PathCase const& path : paths) {
    SCOPED_TRACE(path.says);
    EXPECT_EQ(canonicalPath(folder / path.given), folder / path.canonical);
  }
}

TEST(CanonicalPath, BeginsInTheWorkingFolder) {
  EXPECT_EQ(canonicalPath("none.db"), fs::canonical(fs::current_path()) / "none.db");
}

}  // namespace
}  // namespace tolva
