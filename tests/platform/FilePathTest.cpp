// SPDX-License-Identifier: Apache-2.0
#include "platform/FilePath.hpp"

#include <gtest/gtest.h>

#include <string>

#include "support/TemporaryFolder.hpp"

namespace tolva {
namespace {

namespace fs = std::filesystem;

/// Works in a folder that is gone, for a scope.
class NoWorkingFolder {
 public:
  NoWorkingFolder() {
    TemporaryFolder const gone;
    fs::current_path(gone.path());
  }
  ~NoWorkingFolder() { fs::current_path(before_); }
  NoWorkingFolder(NoWorkingFolder const&) = delete;
  NoWorkingFolder& operator=(NoWorkingFolder const&) = delete;

 private:
  fs::path const before_ = fs::current_path();
};

TEST(FilePath, PutsTheWorkingFolderInFront) {
  EXPECT_EQ(absolutePath("a/../b"), fs::current_path() / "a/../b");
  EXPECT_EQ(absolutePath("/a/b"), "/a/b");
}

TEST(FilePath, LeavesAPathThatNothingCanMakeAbsolute) {
  EXPECT_EQ(absolutePath(""), "");
  NoWorkingFolder const none;
  EXPECT_EQ(absolutePath("t.db"), "t.db");
  EXPECT_EQ(absolutePath("/t.db"), "/t.db");
}

TEST(FilePath, FindsANULAnywhere) {
  EXPECT_FALSE(holdsNUL("t.db"));
  EXPECT_TRUE(holdsNUL(std::string("t.db\0", 5)));
  EXPECT_TRUE(holdsNUL(std::string("\0t.db", 5)));
}

}  // namespace
}  // namespace tolva
