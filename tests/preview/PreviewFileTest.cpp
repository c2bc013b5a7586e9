// SPDX-License-Identifier: Apache-2.0
#include "preview/PreviewFile.hpp"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/resource.h>
#include <sys/stat.h>

#include <cerrno>
#include <functional>

#include "platform/Bytes.hpp"
#include "platform/TaskCancellation.hpp"
#include "support/Failure.hpp"
#include "support/FaultInjector.hpp"
#include "support/NoTask.hpp"
#include "support/TemporaryFolder.hpp"
#include "support/Unprivileged.hpp"

namespace tolva {
namespace {

namespace fs = std::filesystem;

DatabaseError const cannotCreate(
    "Could not create the preview file. Choose a new filename; existing files are never overwritten.", 1);
DatabaseError const cannotWrite("Could not save preview bytes.", 1);

fs::path const noDatabase = "/nowhere/a.db";

Bytes const content(300'000, 'c');
std::string const contentText(300'000, 'c');

void writeFile(fs::path const& path) {
  PreviewFile file(path, noDatabase);
  file.write(content, noTask);
  file.keep();
}

TEST(PreviewFile, StaysWhenItIsKept) {
  TemporaryFolder const folder;
  writeFile(folder / "a.bin");
  EXPECT_EQ(folder.read("a.bin"), contentText);
  EXPECT_EQ(fs::status(folder / "a.bin").permissions(), fs::perms::owner_read | fs::perms::owner_write);
}

TEST(PreviewFile, GoesWhenItIsNot) {
  TemporaryFolder const folder;
  {
    PreviewFile file(folder / "a.bin", noDatabase);
    file.write(content, noTask);
    EXPECT_EQ(folder.names(), std::vector<std::string>{"a.bin"});
  }
  EXPECT_EQ(folder.names(), std::vector<std::string>());
}

TEST(PreviewFile, GoesWhenTheTaskIsCancelled) {
  TemporaryFolder const folder;
  std::stop_source task;
  EXPECT_THROW(
      {
        PreviewFile file(folder / "a.bin", noDatabase);
        task.request_stop();
        file.write(content, task.get_token());
      },
      TaskCancelled);
  EXPECT_EQ(folder.names(), std::vector<std::string>());
}

TEST(PreviewFile, LeavesAnotherFileThatTookItsName) {
  TemporaryFolder const folder;
  {
    PreviewFile const file(folder / "a.bin", noDatabase);
    fs::rename(folder / "a.bin", folder / "moved.bin");
    folder.write("a.bin", "somebody else's");
  }
  EXPECT_EQ(folder.read("a.bin"), "somebody else's");
}

TEST(PreviewFile, IsNeverMadeWhereAnythingIs) {
  TemporaryFolder const folder;
  folder.write("file", "old");
  fs::create_directory(folder / "folder");
  fs::create_symlink("file", folder / "link");
  fs::create_symlink("none", folder / "dangling");
  fs::create_symlink("loop", folder / "loop");
  ASSERT_EQ(mkfifo((folder / "pipe").c_str(), 0600), 0);
  for (char const* name :
       {"file", "folder", "link", "dangling", "loop", "pipe", ".", "..", "folder/", "none/a.bin", "file/a.bin", ""}) {
    EXPECT_EQ(failureOf([&] { PreviewFile(folder / name, noDatabase); }), cannotCreate) << name;
  }
  EXPECT_EQ(failureOf([&] { PreviewFile(folder / std::string("new\0.bin", 8), noDatabase); }), cannotCreate);
  EXPECT_EQ(failureOf([&] { PreviewFile(folder / std::string(300, 'n'), noDatabase); }), cannotCreate);
  EXPECT_EQ(folder.read("file"), "old");
  EXPECT_EQ(folder.names(), (std::vector<std::string>{"dangling", "file", "folder", "link", "loop", "pipe"}));
}

TEST(PreviewFile, MayLieBehindALinkToAFolder) {
  TemporaryFolder const folder;
  fs::create_directory(folder / "real");
  fs::create_symlink("real", folder / "link");
  writeFile(folder / "link" / "a.bin");
  EXPECT_EQ(folder.read("real/a.bin"), contentText);
}

TEST(PreviewFile, IsNotMadeInAFolderThatMayNotBeWritten) {
  TemporaryFolder folder;
  folder.openToEverybody();
  fs::create_directory(folder / "closed");
  fs::permissions(folder / "closed", fs::perms{0555});
  EXPECT_EQ(asUnprivileged([&] { return failureOf([&] { writeFile(folder / "closed" / "a.bin"); }).detail; }),
            cannotCreate.detail);
  EXPECT_TRUE(fs::is_empty(folder / "closed"));
}

/// A process that is killed leaves what it had written, under the name that was asked for.
TEST(PreviewFile, IsWholeOrAbsentAfterAnyFailure) {
  TemporaryFolder const folder;
  fs::path const path = folder / "a.bin";
  long const calls = forEachFault(
      folder.path(), [&] { fs::remove(path); }, [&] { writeFile(path); },
      [&](FaultMode mode, long, FaultOutcome const& outcome) {
        std::string const found = folder.read("a.bin");
        if (mode == FaultMode::kill) {
          EXPECT_TRUE(found == "(no a.bin)" || contentText.starts_with(found)) << found.size();
        } else if (outcome.told == FaultOutcome::Told::success) {
          EXPECT_EQ(found, contentText);
        } else {
          EXPECT_TRUE(outcome.text == cannotCreate.detail || outcome.text == cannotWrite.detail) << outcome.text;
          EXPECT_EQ(found, "(no a.bin)");
        }
        fs::remove(path);
        writeFile(path);
        EXPECT_EQ(folder.read("a.bin"), contentText);
      });
  EXPECT_EQ(calls, 2);
}

TEST(PreviewFile, WritesAgainWhatASignalInterrupted) {
  TemporaryFolder const folder;
  PreviewFile file(folder / "a.bin", noDatabase);
  EXPECT_TRUE(
      FaultInjector::failing(folder.path(), 1, EINTR, /*persistent=*/false, [&] { file.write(content, noTask); }));
  file.keep();
  EXPECT_EQ(folder.read("a.bin"), contentText);
}

TEST(PreviewFile, TakesAWriteOfNothingForAFailure) {
  TemporaryFolder const folder;
  EXPECT_TRUE(FaultInjector::writingNothing(
      folder.path(), 2, [&] { EXPECT_EQ(failureOf([&] { writeFile(folder / "a.bin"); }), cannotWrite); }));
  EXPECT_EQ(folder.names(), std::vector<std::string>());
}

/// What `body` says while no file may be larger than 100,000 bytes: the write that goes beyond is cut there.
std::string whereFilesAreSmall(std::function<std::string()> const& body) {
  return asUnprivileged([&] {
    rlimit const small{100'000, 100'000};
    ::signal(SIGXFSZ, SIG_IGN);
    if (::setrlimit(RLIMIT_FSIZE, &small) != 0) return std::string("no limit");
    return body();
  });
}

TEST(PreviewFile, GoesOnBehindAWriteThatWasCutShort) {
  TemporaryFolder folder;
  folder.openToEverybody();
  auto const write = [&] {
    FaultInjector const injector(folder.path());
    DatabaseError const failure = failureOf([&] { writeFile(folder / "a.bin"); });
    return failure.detail + " " + injector.trace();
  };
  EXPECT_EQ(whereFilesAreSmall(write), cannotWrite.detail + " openat write write unlinkat");
  EXPECT_EQ(folder.names(), std::vector<std::string>());
}

TEST(PreviewFile, GoesWhenTheTaskIsCancelledBetweenTwoWrites) {
  TemporaryFolder folder;
  folder.openToEverybody();
  auto const write = [&] {
    std::stop_source task;
    std::string said = "not cancelled";
    FaultInjector::before(
        folder.path(), 2, [&] { task.request_stop(); },
        [&] {
          try {
            PreviewFile file(folder / "a.bin", noDatabase);
            file.write(content, task.get_token());
          } catch (TaskCancelled const&) {
            said = "cancelled";
          }
        });
    return said;
  };
  EXPECT_EQ(whereFilesAreSmall(write), "cancelled");
  EXPECT_EQ(folder.names(), std::vector<std::string>());
}

TEST(PreviewFile, ReportsAFullDisk) {
  EXPECT_EQ(failureOf([] { PreviewFile("/dev/full", noDatabase); }), cannotCreate)
      << "a device is something that is there";
  TemporaryFolder const folder;
  FaultInjector::failing(folder.path(), 2, ENOSPC, /*persistent=*/true,
                         [&] { EXPECT_EQ(failureOf([&] { writeFile(folder / "a.bin"); }), cannotWrite); });
  EXPECT_EQ(folder.names(), std::vector<std::string>());
}

}  // namespace
}  // namespace tolva
