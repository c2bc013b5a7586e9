// SPDX-License-Identifier: Apache-2.0
#include "platform/ApplicationFolders.hpp"

#include <gtest/gtest.h>
#include <pwd.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdlib>
#include <optional>

#include "support/SystemFailure.hpp"
#include "support/TemporaryFolder.hpp"
#include "support/Unprivileged.hpp"

namespace tolva {
namespace {

/// A variable of the environment with another value, or without one, for a scope.
class Variable {
 public:
  Variable(char const* name, char const* value) : name_(name) {
    if (char const* const had = std::getenv(name)) before_ = had;
    set(value);
  }
  ~Variable() { set(before_ ? before_->c_str() : nullptr); }
  Variable(Variable const&) = delete;
  Variable& operator=(Variable const&) = delete;

 private:
  void set(char const* value) { value ? ::setenv(name_, value, 1) : ::unsetenv(name_); }

  char const* const name_;
  std::optional<std::string> before_;
};

TEST(ApplicationFolders, FindTheDataFolderAsTheXDGSpecificationSays) {
  std::string const home = ::getpwuid(::geteuid())->pw_dir;
  struct {
    char const* says;
    char const* xdg;
    char const* home;
    std::string folder;
  } const cases[] = {
      {"the variable first", "/data", "/home/me", "/data/Tolva"},
      {"a relative one is ignored", "data", "/home/me", "/home/me/.local/share/Tolva"},
      {"an empty one as well", "", "/home/me", "/home/me/.local/share/Tolva"},
      {"none at all", nullptr, "/home/me", "/home/me/.local/share/Tolva"},
      {"no home: the password database", nullptr, nullptr, home + "/.local/share/Tolva"},
      {"a relative home likewise", nullptr, "me", home + "/.local/share/Tolva"},
  };
  for (auto const& each : cases) {
    SCOPED_TRACE(each.says);
    Variable const xdg("XDG_DATA_HOME", each.xdg);
    Variable const user("HOME", each.home);
    EXPECT_EQ(applicationSupport(), each.folder);
    EXPECT_EQ(applicationSupport({.applicationSupport = "/root-of-a-test", .temporary = {}}), "/root-of-a-test/Tolva");
  }
}

// Temporary files ---------------------------------------------------------------------------------

std::string ownName() { return "tolva-" + std::to_string(::geteuid()); }

TEST(TemporaryFiles, LieInAPrivateFolderThatIsMadeOnceAndKept) {
  TemporaryFolder const folder;
  mode_t const before = ::umask(0);
  FolderRoots const roots{.applicationSupport = {}, .temporary = folder.path()};
  auto const made = temporaryFolder(roots);
  ::umask(before);
  EXPECT_EQ(made, folder / ownName());
  struct stat status {};
  ASSERT_EQ(::lstat(made.c_str(), &status), 0);
  EXPECT_TRUE(S_ISDIR(status.st_mode));
  EXPECT_EQ(status.st_mode & 0777, 0700U);
  folder.write(ownName() + "/kept", "x");
  EXPECT_EQ(temporaryFolder(roots), made);
  EXPECT_EQ(folder.read(ownName() + "/kept"), "x");
}

TEST(TemporaryFiles, LieWhereTheEnvironmentSaysWithLinksResolved) {
  TemporaryFolder const folder;
  std::filesystem::create_directory(folder / "real");
  std::filesystem::create_directory_symlink("real", folder / "link");
  {
    Variable const variable("TMPDIR", (folder / "link").c_str());
    EXPECT_EQ(temporaryFolder(), folder / "real" / ownName());
  }
  auto const system = std::filesystem::canonical("/tmp") / ownName();
  for (char const* const ignored : {"relative", ""}) {
    Variable const variable("TMPDIR", ignored);
    EXPECT_EQ(temporaryFolder(), system);
  }
  Variable const variable("TMPDIR", (folder / "absent").c_str());
  EXPECT_EQ(systemFailureOf([] { temporaryFolder(); }), "ENOENT absent");
}

TEST(TemporaryFiles, AreRefusedAFolderThatSomebodyElseMayUse) {
  TemporaryFolder const folder;
  auto const own = folder / ownName();
  FolderRoots const roots{.applicationSupport = {}, .temporary = folder.path()};
  auto const refusal = [&] { return systemFailureOf([&] { temporaryFolder(roots); }); };

  for (unsigned const mode : {0755U, 0770U, 0701U, 0500U}) {
    SCOPED_TRACE(mode);
    std::filesystem::create_directory(own);
    std::filesystem::permissions(own, std::filesystem::perms(mode));
    EXPECT_EQ(refusal(), "EPERM " + ownName());
    std::filesystem::remove(own);
  }

  std::filesystem::create_directory(folder / "elsewhere");
  std::filesystem::permissions(folder / "elsewhere", std::filesystem::perms::owner_all);
  std::filesystem::create_directory_symlink("elsewhere", own);
  EXPECT_EQ(refusal(), "ENOTDIR " + ownName());
  std::filesystem::remove(own);

  folder.write(ownName(), "a file");
  EXPECT_EQ(refusal(), "ENOTDIR " + ownName());
}

TEST(TemporaryFiles, AreRefusedAFolderOfAnotherOwner) {
  if (::geteuid() != 0) GTEST_SKIP() << "Only root can give a folder away.";
  TemporaryFolder folder;
  auto const own = folder / ownName();
  std::filesystem::create_directory(own);
  std::filesystem::permissions(own, std::filesystem::perms::owner_all);
  ASSERT_EQ(::chown(own.c_str(), 65534, 65534), 0);
  FolderRoots const roots{.applicationSupport = {}, .temporary = folder.path()};
  EXPECT_EQ(systemFailureOf([&] { temporaryFolder(roots); }), "EPERM " + ownName());
}

TEST(TemporaryFiles, AreRefusedWhereTheUserMayNotWrite) {
  TemporaryFolder const folder;
  std::filesystem::permissions(folder.path(), std::filesystem::perms(0555));
  FolderRoots const roots{.applicationSupport = {}, .temporary = folder.path()};
  EXPECT_EQ(asUnprivileged([&] { return systemFailureOf([&] { temporaryFolder(roots); }).substr(0, 6); }), "EACCES");
  std::filesystem::permissions(folder.path(), std::filesystem::perms::owner_all);
}

}  // namespace
}  // namespace tolva
