// SPDX-License-Identifier: Apache-2.0
#include "platform/FileIdentity.hpp"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <sys/statvfs.h>
#include <unistd.h>

#include <chrono>
#include <cstdlib>

#include "platform/Descriptor.hpp"
#include "support/SystemFailure.hpp"
#include "support/TemporaryFolder.hpp"
#include "support/Unprivileged.hpp"

namespace tolva {
namespace {

/// The S, N or C of an identity.
std::string part(std::string const& identity, int number) {
  std::size_t start = 0;
  for (; number > 0; --number) start = identity.find(':', start) + 1;
  return identity.substr(start, identity.find(':', start) - start);
}

Descriptor folderAt(std::filesystem::path const& path) {
  return Descriptor(::open(path.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
}

TEST(FileIdentity, IsOneForEveryWayToTheFile) {
  TemporaryFolder const folder;
  auto const file = folder.write("a", "");
  std::filesystem::create_symlink("a", folder / "soft");
  Descriptor const opened(::open(file.c_str(), O_RDONLY | O_CLOEXEC));
  Descriptor const place = folderAt(folder.path());
  for (EpochYear const epoch : {EpochYear::y1970, EpochYear::y2001}) {
    std::string const identity = fileIdentity(file, epoch);
    EXPECT_EQ(fileIdentity(folder / "soft", epoch), identity);
    EXPECT_EQ(fileIdentity(opened.get(), epoch), identity);
    EXPECT_EQ(fileIdentity(place.get(), "a", epoch), identity);
    EXPECT_NE(fileIdentity(place.get(), "soft", epoch), identity);
  }
}

TEST(FileIdentity, NamesTheFileSystemTheInodeAndTheBirth) {
  TemporaryFolder const folder;
  double const before = static_cast<double>(std::time(nullptr)) - 1;  // the kernel's clock is a coarse one
  auto const file = folder.write("a", "");
  double const after = static_cast<double>(std::time(nullptr)) + 1;
  std::string const identity = fileIdentity(file, EpochYear::y1970);

  struct stat status {};
  struct statvfs system {};
  ASSERT_EQ(::stat(file.c_str(), &status), 0);
  ASSERT_EQ(::statvfs(file.c_str(), &system), 0);
  EXPECT_EQ(part(identity, 0), std::to_string(system.f_fsid != 0 ? system.f_fsid : status.st_dev));
  EXPECT_EQ(part(identity, 1), std::to_string(status.st_ino));
  if (part(identity, 2) == "0.0") GTEST_SKIP() << "This file system keeps no birth times.";
  double const birth = std::stod(part(identity, 2));
  EXPECT_GE(birth, before);
  EXPECT_LE(birth, after);
  double const counted2001 = std::stod(part(fileIdentity(file, EpochYear::y2001), 2));
  EXPECT_NEAR(birth - counted2001, 978'307'200, 1e-6);
}

TEST(FileIdentity, HasNoBirthWhereTheFileSystemKeepsNone) {
  std::string const identity = fileIdentity(std::filesystem::path("/proc/version"), EpochYear::y1970);
  EXPECT_EQ(part(identity, 2), "0.0");
  EXPECT_NE(part(identity, 0), "0");
  EXPECT_EQ(part(fileIdentity(std::filesystem::path("/proc/version"), EpochYear::y2001), 2), "0.0");
}

TEST(FileIdentity, StaysWhenTheFileIsChangedOrMovedAndNotWhenItIsReplaced) {
  TemporaryFolder const folder;
  auto const file = folder.write("a", "");
  std::string const identity = fileIdentity(file, EpochYear::y2001);
  folder.write("a", "more");
  std::filesystem::permissions(file, std::filesystem::perms::owner_all);
  std::filesystem::last_write_time(file, {});
  EXPECT_EQ(fileIdentity(file, EpochYear::y2001), identity);
  std::filesystem::rename(file, folder / "b");
  EXPECT_EQ(fileIdentity(folder / "b", EpochYear::y2001), identity);
  ::usleep(20'000);  // a tick of the coarse clock: the next file may have the same inode
  std::filesystem::remove(folder / "b");
  EXPECT_NE(fileIdentity(folder.write("b", "more"), EpochYear::y2001), identity);
}

TEST(FileIdentity, IsKnownOfAFileThatMayNotBeOpened) {
  TemporaryFolder folder;
  folder.openToEverybody();
  auto const file = folder.write("a", "");
  std::filesystem::permissions(file, std::filesystem::perms::none);
  EXPECT_EQ(asUnprivileged([&] { return fileIdentity(file, EpochYear::y1970); }), fileIdentity(file, EpochYear::y1970));
}

TEST(FileIdentity, FailsWithTheNameOfAFileThatIsNotThere) {
  TemporaryFolder const folder;
  EXPECT_EQ(systemFailureOf([&] { fileIdentity(folder / "absent", EpochYear::y1970); }), "ENOENT absent");
  EXPECT_EQ(systemFailureOf([&] { fileIdentity(-1, EpochYear::y1970); }), "EBADF ");
}

}  // namespace
}  // namespace tolva
