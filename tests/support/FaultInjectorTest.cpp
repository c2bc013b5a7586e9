// SPDX-License-Identifier: Apache-2.0
#include "support/FaultInjector.hpp"

#include <fcntl.h>
#include <gtest/gtest-spi.h>
#include <gtest/gtest.h>
#include <stdio.h>
#include <sys/stat.h>
#include <sys/uio.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <thread>

#include "platform/Descriptor.hpp"
#include "platform/SystemError.hpp"
#include "support/SystemFailure.hpp"
#include "support/TemporaryDatabase.hpp"
#include "support/TemporaryFolder.hpp"

namespace tolva {
namespace {

/// A folder with the file "file", open, and the empty folder "sub".
struct Scene {
  TemporaryFolder folder;
  Descriptor file{::open(folder.write("file", "content").c_str(), O_RDWR | O_CLOEXEC)};
  Descriptor place{::open(folder.path().c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC)};
  bool made = std::filesystem::create_directory(folder / "sub");
  std::string name = folder / "file";
  std::string newName = folder / "new";
  std::string sub = folder / "sub";
};

struct CallCase {
  char const* trace;
  int (*call)(Scene const&);
};

int closed(int descriptor) { return descriptor < 0 ? -1 : ::close(descriptor); }

int writeParts(int descriptor) {
  char byte = 'x';
  iovec const part{&byte, 1};
  return static_cast<int>(::writev(descriptor, &part, 1));
}

CallCase const changes[] = {
    {"open", [](Scene const& at) { return closed(::open(at.name.c_str(), O_WRONLY)); }},
    {"open", [](Scene const& at) { return closed(::open(at.newName.c_str(), O_CREAT | O_RDONLY, 0600)); }},
    {"open", [](Scene const& at) { return closed(::open64(at.name.c_str(), O_RDWR)); }},
    {"openat", [](Scene const& at) { return closed(::openat(at.place.get(), "new", O_CREAT | O_WRONLY, 0600)); }},
    {"openat", [](Scene const& at) { return closed(::openat64(at.place.get(), "file", O_RDWR)); }},
    {"write", [](Scene const& at) { return static_cast<int>(::write(at.file.get(), "x", 1)); }},
    {"writev", [](Scene const& at) { return writeParts(at.file.get()); }},
    {"pwrite", [](Scene const& at) { return static_cast<int>(::pwrite(at.file.get(), "x", 1, 0)); }},
    {"pwrite", [](Scene const& at) { return static_cast<int>(::pwrite64(at.file.get(), "x", 1, 0)); }},
    {"ftruncate", [](Scene const& at) { return ::ftruncate(at.file.get(), 1); }},
    {"ftruncate", [](Scene const& at) { return ::ftruncate64(at.file.get(), 1); }},
    {"fallocate", [](Scene const& at) { return ::fallocate(at.file.get(), 0, 0, 10); }},
    {"fallocate", [](Scene const& at) { return ::fallocate64(at.file.get(), 0, 0, 10); }},
    {"fsync", [](Scene const& at) { return ::fsync(at.file.get()); }},
    {"fsync", [](Scene const& at) { return ::fsync(at.place.get()); }},
    {"fdatasync", [](Scene const& at) { return ::fdatasync(at.file.get()); }},
    {"rename", [](Scene const& at) { return ::rename(at.name.c_str(), at.newName.c_str()); }},
    {"renameat", [](Scene const& at) { return ::renameat(at.place.get(), "file", at.place.get(), "new"); }},
    {"renameat2", [](Scene const& at) { return ::renameat2(at.place.get(), "file", at.place.get(), "new", 0); }},
    {"link", [](Scene const& at) { return ::link(at.name.c_str(), at.newName.c_str()); }},
    {"linkat", [](Scene const& at) { return ::linkat(at.place.get(), "file", at.place.get(), "new", 0); }},
    {"unlink", [](Scene const& at) { return ::unlink(at.name.c_str()); }},
    {"unlinkat", [](Scene const& at) { return ::unlinkat(at.place.get(), "file", 0); }},
    {"rmdir", [](Scene const& at) { return ::rmdir(at.sub.c_str()); }},
    {"remove", [](Scene const& at) { return ::remove(at.name.c_str()); }},
    {"mkdir", [](Scene const& at) { return ::mkdir(at.newName.c_str(), 0700); }},
    {"mkdirat", [](Scene const& at) { return ::mkdirat(at.place.get(), "new", 0700); }},
    {"chmod", [](Scene const& at) { return ::chmod(at.name.c_str(), 0600); }},
    {"fchmod", [](Scene const& at) { return ::fchmod(at.file.get(), 0600); }},
    {"fchmodat", [](Scene const& at) { return ::fchmodat(at.place.get(), "file", 0600, 0); }},
};

TEST(FaultInjector, CountsAndFailsEveryCallThatChangesSomething) {
  for (CallCase const& change : changes) {
    SCOPED_TRACE(change.trace);
    Scene const scene;
    {
      FaultInjector const injector(scene.folder.path(), {.at = 1, .error = EIO});
      errno = 0;
      EXPECT_EQ(change.call(scene), -1);
      EXPECT_EQ(errno, EIO);
    }
    EXPECT_EQ(scene.folder.names(), (std::vector<std::string>{"file", "sub"}));
    EXPECT_EQ(scene.folder.read("file"), "content");
    FaultInjector const injector(scene.folder.path());
    EXPECT_GE(change.call(scene), 0);
    EXPECT_EQ(injector.trace(), change.trace);
    EXPECT_EQ(injector.calls(), 1);
  }
}

TEST(FaultInjector, FailsTheAllocationsThatReturnTheirReason) {
  Scene const scene;
  FaultInjector const injector(scene.folder.path(), {.at = 1, .error = ENOSPC, .lasting = true});
  EXPECT_EQ(::posix_fallocate(scene.file.get(), 0, 10), ENOSPC);
  EXPECT_EQ(::posix_fallocate64(scene.file.get(), 0, 10), ENOSPC);
}

TEST(FaultInjector, LeavesAloneWhatOnlyReadsOrLiesElsewhere) {
  Scene const scene;
  Scene const elsewhere;
  std::string const neighbour = scene.folder.path().string() + "-neighbour";
  FaultInjector const injector(scene.folder.path(), {.at = 1, .error = EIO, .lasting = true});
  EXPECT_EQ(scene.folder.read("file"), "content");
  EXPECT_EQ(scene.folder.names().size(), 2U);
  for (CallCase const& change : changes) {
    Scene const another;
    EXPECT_GE(change.call(another), 0) << change.trace;
  }
  EXPECT_EQ(::mkdir(neighbour.c_str(), 0700), 0);  // begins with the folder's path, but is not below it
  EXPECT_EQ(::rmdir(neighbour.c_str()), 0);
  EXPECT_EQ(injector.calls(), 0);
}

TEST(FaultInjector, FailsTheNthCallOnceOrFromThenOn) {
  Scene const scene;
  std::string failed;
  auto const fourWrites = [&] {
    failed.clear();
    for (char const digit : {'1', '2', '3', '4'})
      if (::write(scene.file.get(), &digit, 1) != 1) failed += digit;
  };
  EXPECT_EQ(FaultInjector::count(scene.folder.path(), fourWrites), 4);
  EXPECT_EQ(failed, "");
  EXPECT_TRUE(FaultInjector::failing(scene.folder.path(), 2, EIO, false, fourWrites));
  EXPECT_EQ(failed, "2");
  EXPECT_TRUE(FaultInjector::failing(scene.folder.path(), 2, EIO, true, fourWrites));
  EXPECT_EQ(failed, "234");
  EXPECT_FALSE(FaultInjector::failing(scene.folder.path(), 5, EIO, true, fourWrites));
  EXPECT_EQ(failed, "");
}

TEST(FaultInjector, LetsTheNthWriteWriteNothing) {
  Scene const at;
  EXPECT_TRUE(FaultInjector::writingNothing(at.folder.path(), 2, [&] {
    EXPECT_EQ(::write(at.file.get(), "ab", 2), 2);
    EXPECT_EQ(::write(at.file.get(), "cd", 2), 0);
    EXPECT_EQ(::write(at.file.get(), "ef", 2), 2);
  }));
  EXPECT_EQ(at.folder.read("file"), "abefent") << "of the seven letters of \"content\"";
  EXPECT_FALSE(FaultInjector::writingNothing(at.folder.path(), 1, [] {}));
}

TEST(FaultInjector, CountsAndFailsTheReadsAlone) {
  Scene const at;
  char bytes[2];
  FaultInjector const injector(at.folder.path(), {.at = 2, .error = EIO, .reads = true});
  EXPECT_EQ(::read(at.file.get(), bytes, 2), 2);
  EXPECT_EQ(::write(at.file.get(), "x", 1), 1);
  errno = 0;
  EXPECT_EQ(::pread(at.file.get(), bytes, 2, 0), -1);
  EXPECT_EQ(errno, EIO);
  EXPECT_EQ(::pread64(at.file.get(), bytes, 2, 0), 2);
  EXPECT_EQ(injector.trace(), "read pread pread");
}

TEST(FaultInjector, LetsFilesGoWhileTheDiskIsFull) {
  Scene const scene;
  FaultInjector const injector(scene.folder.path(), {.at = 1, .error = ENOSPC, .lasting = true});
  EXPECT_EQ(::write(scene.file.get(), "x", 1), -1);
  EXPECT_EQ(::unlink(scene.name.c_str()), 0);
  EXPECT_EQ(::unlinkat(scene.place.get(), "sub", AT_REMOVEDIR), 0);
  EXPECT_EQ(injector.trace(), "write unlink unlinkat");
}

TEST(FaultInjector, SeesEveryThread) {
  Scene const scene;
  EXPECT_EQ(FaultInjector::count(scene.folder.path(),
                                 [&] {
                                   std::jthread const one([&] { EXPECT_EQ(::fsync(scene.file.get()), 0); });
                                   std::jthread const other([&] { EXPECT_EQ(::fsync(scene.place.get()), 0); });
                                 }),
            2);
}

TEST(FaultInjectorDeathTest, AbortsWhenASecondOneIsMade) {
  TemporaryFolder const folder;
  FaultInjector const injector(folder.path());
  EXPECT_DEATH(FaultInjector(folder.path()), "armed while another is");
}

// The loop ----------------------------------------------------------------------------------------

TEST(ForEachFault, DoesEachHarmAtEachCall) {
  TemporaryFolder const folder;
  std::string story;
  auto const twoFiles = [&] {
    if (::mkdir((folder / "a").c_str(), 0700) != 0) throwSystemError("a");
    if (::mkdir((folder / "b").c_str(), 0700) != 0) throwSystemError("b");
  };
  auto const prepare = [&] {
    std::filesystem::remove(folder / "a");
    std::filesystem::remove(folder / "b");
  };
  long const calls =
      forEachFault(folder.path(), prepare, twoFiles, [&](FaultMode mode, long n, FaultOutcome const& outcome) {
        story += std::to_string(static_cast<int>(mode)) + std::to_string(n) + ":";
        for (std::string const& name : folder.names()) story += name;
        story += " " + outcome.text.substr(0, 1) + std::to_string(static_cast<int>(outcome.told)) + "\n";
      });
  EXPECT_EQ(calls, 2);
  EXPECT_EQ(story, "01: a1\n02:a b1\n11: a1\n12:a b1\n21: 2\n22:a 2\n");
}

TEST(ForEachFault, ChoosesEvenlyAmongManyCalls) {
  Scene const scene;
  std::vector<long> chosen;
  auto const manyCalls = [&] {
    for (int call = 0; call < 101; ++call) (void)::fchmod(scene.file.get(), 0600);
  };
  forEachFault(
      scene.folder.path(), [] {}, manyCalls, [&](FaultMode, long n, FaultOutcome const&) { chosen.push_back(n); }, 3);
  EXPECT_EQ(chosen, (std::vector<long>{1, 51, 101, 1, 51, 101, 1, 51, 101}));
}

TEST(ForEachFault, FailsTheTestOfAnOperationThatLeavesADescriptorOpen) {
  Scene const scene;
  std::vector<Descriptor> leaked;
  auto const leak = [&] {
    if (::fsync(scene.file.get()) != 0) leaked.emplace_back(::dup(scene.file.get()));
  };
  testing::TestPartResultArray failures;
  {
    testing::ScopedFakeTestPartResultReporter const reporter(
        testing::ScopedFakeTestPartResultReporter::INTERCEPT_ONLY_CURRENT_THREAD, &failures);
    forEachFault(
        scene.folder.path(), [] {}, leak, [](FaultMode, long, FaultOutcome const&) {});
  }
  ASSERT_EQ(failures.size(), 2);
  EXPECT_NE(std::string(failures.GetTestPartResult(0).message()).find("leaves descriptors open"), std::string::npos);
}

TEST(ForEachFault, FailsTheTestOfAnOperationThatDoesNotReachTheCallAgain) {
  Scene const scene;
  int runs = 0;
  auto const onlyOnce = [&] {
    if (++runs == 1) (void)::fsync(scene.file.get());
  };
  testing::TestPartResultArray failures;
  {
    testing::ScopedFakeTestPartResultReporter const reporter(
        testing::ScopedFakeTestPartResultReporter::INTERCEPT_ONLY_CURRENT_THREAD, &failures);
    forEachFault(
        scene.folder.path(), [] {}, onlyOnce, [](FaultMode, long, FaultOutcome const&) {});
  }
  ASSERT_EQ(failures.size(), 3);
  for (int mode = 0; mode < failures.size(); ++mode)
    EXPECT_NE(std::string(failures.GetTestPartResult(mode).message()).find("The call never came."), std::string::npos);
}

TEST(ForEachFault, FindsATransactionOfSQLiteWholeOrUndone) {
  TemporaryFolder const folder;
  std::filesystem::path const path = folder / "a.db";
  auto const prepare = [&] {
    for (char const* suffix : {"", "-journal"}) std::filesystem::remove(path.string() + suffix);
    TemporaryDatabase(folder, "a.db",
                      "PRAGMA synchronous=OFF; CREATE TABLE t(id INTEGER PRIMARY KEY, v INT, b BLOB);"
                      "WITH RECURSIVE c(x) AS (SELECT 1 UNION ALL SELECT x + 1 FROM c WHERE x < 40)"
                      "INSERT INTO t SELECT x, 0, zeroblob(1000) FROM c");
  };
  auto const transaction = [&] { rowsAsText(path, "BEGIN IMMEDIATE; UPDATE t SET v = v + 1; COMMIT"); };
  long const calls =
      forEachFault(folder.path(), prepare, transaction, [&](FaultMode mode, long, FaultOutcome const& outcome) {
        EXPECT_EQ(rowsAsText(path, "PRAGMA integrity_check"), "ok");
        std::string const content = rowsAsText(path, "SELECT DISTINCT v FROM t");
        EXPECT_TRUE(content == "0" || content == "1") << content;
        bool const toldSuccess = outcome.told == FaultOutcome::Told::success;
        EXPECT_TRUE(mode == FaultMode::kill || toldSuccess == (content == "1")) << content << " " << outcome.text;
        transaction();
        EXPECT_EQ(rowsAsText(path, "SELECT DISTINCT v FROM t"), content == "0" ? "1" : "2");
      });
  EXPECT_GE(calls, 20);
}

TEST(FaultInjector, DoesSomethingBeforeOneCallAndFailsNone) {
  Scene const at;
  long done = 0;
  auto const twoWrites = [&] {
    EXPECT_EQ(::write(at.file.get(), "x", 1), 1);
    EXPECT_EQ(::write(at.file.get(), "y", 1), 1);
  };
  EXPECT_TRUE(FaultInjector::before(
      at.folder.path(), 2, [&] { ++done; }, twoWrites));
  EXPECT_EQ(done, 1);
  EXPECT_FALSE(FaultInjector::before(
      at.folder.path(), 3, [&] { ++done; }, twoWrites));
  EXPECT_EQ(done, 1);
}

}  // namespace
}  // namespace tolva
