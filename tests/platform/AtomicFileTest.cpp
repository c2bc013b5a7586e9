// SPDX-License-Identifier: Apache-2.0
#include "platform/AtomicFile.hpp"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/resource.h>
#include <sys/stat.h>

#include <algorithm>
#include <optional>

#include "platform/UUID.hpp"
#include "support/FaultInjector.hpp"
#include "support/SystemFailure.hpp"
#include "support/TemporaryFolder.hpp"
#include "support/Unprivileged.hpp"

namespace tolva {
namespace {

using Names = std::vector<std::string>;

std::string permissionsOf(std::filesystem::path const& path) {
  struct stat status {};
  if (::lstat(path.c_str(), &status) != 0) return "(absent)";
  std::string text;
  for (unsigned shift : {6U, 3U, 0U}) text += static_cast<char>('0' + (status.st_mode >> shift & 7));
  return text;
}

void publish(std::filesystem::path const& path, std::string_view content, Publication publication) {
  AtomicFile file(path);
  file.write(content);
  file.publish(publication);
}

// Success -----------------------------------------------------------------------------------------

TEST(AtomicFile, AppearsWholeUnderItsName) {
  for (Publication const publication : {Publication::exclusive, Publication::replace}) {
    TemporaryFolder const folder;
    AtomicFile file(folder / "new", {.prefix = ".tolva-export-"});
    ASSERT_EQ(folder.names().size(), 1U);
    EXPECT_EQ(folder.names()[0], file.sibling());
    file.write("first ");
    file.write(std::span<std::uint8_t const>());
    file.write("second");
    EXPECT_FALSE(file.published());
    file.publish(publication);
    EXPECT_TRUE(file.published());
    EXPECT_EQ(folder.names(), Names{"new"});
    EXPECT_EQ(folder.read("new"), "first second");
    EXPECT_EQ(permissionsOf(folder / "new"), "600");
  }
}

TEST(AtomicFile, StandsInAHiddenSiblingNamedByANewUUID) {
  TemporaryFolder const folder;
  AtomicFile const one(folder / "new", {.prefix = ".tolva-export-"});
  AtomicFile const other(folder / "new", {.prefix = ".tolva-export-"});
  EXPECT_NE(one.sibling(), other.sibling());
  EXPECT_TRUE(one.sibling().starts_with(".tolva-export-"));
  std::string const random = one.sibling().substr(14);
  ASSERT_TRUE(UUID::parse(random)) << random;
  EXPECT_EQ(UUID::parse(random)->text(), random);  // in upper case
}

TEST(AtomicFile, IsOnTheDiskBeforeItHasItsNameAndItsFolderAfterwards) {
  TemporaryFolder const folder;
  auto const trace = [&](Publication publication) {
    FaultInjector const injector(folder.path());
    publish(folder / "a", "content", publication);
    return injector.trace();
  };
  EXPECT_EQ(trace(Publication::exclusive), "openat write fsync renameat2 fsync");
  EXPECT_EQ(trace(Publication::replace), "openat write fchmod fsync renameat fsync");
}

TEST(AtomicFile, FlushesOnceForACallerWhoFlushedAndAgainAfterALaterWrite) {
  TemporaryFolder const folder;
  FaultInjector const injector(folder.path());
  AtomicFile file(folder / "a");
  file.flush();
  file.write("x");
  file.flush();
  file.publish(Publication::exclusive);
  EXPECT_EQ(injector.trace(), "openat fsync write fsync renameat2 fsync");
}

TEST(AtomicFile, TakesTheModeItIsGivenAndTheModeOfWhatItReplaces) {
  TemporaryFolder const folder;
  mode_t const before = ::umask(022);
  AtomicFile(folder / "a", {.mode = 0666}).publish(Publication::exclusive);
  EXPECT_EQ(permissionsOf(folder / "a"), "644");
  for (mode_t const mode : {0640U, 0666U, 0400U}) {
    ASSERT_EQ(::chmod((folder / "a").c_str(), mode), 0);
    publish(folder / "a", "new", Publication::replace);
    ASSERT_EQ(permissionsOf(folder / "a").size(), 3U);
    EXPECT_EQ(std::stoul(permissionsOf(folder / "a"), nullptr, 8), mode);
  }
  ::umask(before);
}

TEST(AtomicFile, ReplacesALinkAndNotWhatItPointsTo) {
  TemporaryFolder const folder;
  folder.write("target", "old");
  std::filesystem::permissions(folder / "target", std::filesystem::perms::all);
  std::filesystem::create_symlink("target", folder / "a");
  publish(folder / "a", "new", Publication::replace);
  EXPECT_EQ(folder.read("target"), "old");
  EXPECT_EQ(folder.read("a"), "new");
  EXPECT_EQ(permissionsOf(folder / "a"), "600");
}

TEST(AtomicFile, LandsInTheFolderThatWasOpenedWhateverItsPathNamesByNow) {
  TemporaryFolder const folder;
  std::filesystem::create_directory(folder / "chosen");
  AtomicFile file(folder / "chosen/a");
  std::filesystem::rename(folder / "chosen", folder / "moved");
  std::filesystem::create_directory(folder / "chosen");
  file.write("x");
  file.publish(Publication::exclusive);
  EXPECT_EQ(folder.read("moved/a"), "x");
  EXPECT_EQ(folder.read("chosen/a"), "(no chosen/a)");
}

TEST(AtomicFile, TakesAFolderThatIsOpenOrAPathRelativeToTheWorkingFolder) {
  TemporaryFolder const folder;
  {
    Descriptor const place(::open(folder.path().c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    AtomicFile(place.get(), "a").publish(Publication::exclusive);
  }
  auto const before = std::filesystem::current_path();
  std::filesystem::current_path(folder.path());
  AtomicFile("b").publish(Publication::exclusive);
  std::filesystem::current_path(before);
  EXPECT_EQ(folder.names(), (Names{"a", "b"}));
}

// Failure -----------------------------------------------------------------------------------------

TEST(AtomicFile, LeavesNothingWhenItIsNotPublished) {
  TemporaryFolder const folder;
  folder.write("a", "old");
  { AtomicFile(folder / "a").write("new"); }
  EXPECT_EQ(folder.names(), Names{"a"});
  EXPECT_EQ(folder.read("a"), "old");
}

TEST(AtomicFile, IsRefusedExclusivelyByWhateverHasTheName) {
  TemporaryFolder const folder;
  folder.write("file", "old");
  std::filesystem::create_symlink("nowhere", folder / "dangling");
  std::filesystem::create_directory(folder / "folder");
  Names const names = folder.names();
  for (char const* const name : {"file", "dangling", "folder"}) {
    SCOPED_TRACE(name);
    AtomicFile file(folder / name);
    EXPECT_EQ(systemFailureOf([&] { file.publish(Publication::exclusive); }), std::string("EEXIST ") + name);
    EXPECT_FALSE(file.published());
    EXPECT_EQ(folder.names(), names);
  }
  EXPECT_EQ(folder.read("file"), "old");
  EXPECT_EQ(systemFailureOf([&] { publish(folder / "folder", "new", Publication::replace); }), "EISDIR folder");
  EXPECT_EQ(folder.names(), names);
}

TEST(AtomicFile, NamesAFolderThatIsNotThere) {
  TemporaryFolder const folder;
  EXPECT_EQ(systemFailureOf([&] { AtomicFile(folder / "absent/a"); }), "ENOENT absent");
  EXPECT_EQ(systemFailureOf([&] { AtomicFile(-1, "a"); }), "EBADF a");
}

TEST(AtomicFile, ReportsAFolderThatMayNotBeWrittenTo) {
  TemporaryFolder folder;
  std::filesystem::permissions(folder.path(), std::filesystem::perms(0755));
  std::filesystem::create_directory(folder / "closed");
  std::filesystem::permissions(folder / "closed", std::filesystem::perms(0555));
  EXPECT_EQ(asUnprivileged([&] { return systemFailureOf([&] { AtomicFile(folder / "closed/a"); }); }), "EACCES a");
}

/// Its files can be made but not listed, and the folder itself cannot be flushed.
TEST(AtomicFile, AppearsInAFolderThatMayNotBeRead) {
  TemporaryFolder folder;
  std::filesystem::permissions(folder.path(), std::filesystem::perms(0755));
  std::filesystem::create_directory(folder / "box");
  std::filesystem::permissions(folder / "box", std::filesystem::perms(0333));
  EXPECT_EQ(asUnprivileged(
                [&] { return systemFailureOf([&] { publish(folder / "box/a", "new", Publication::exclusive); }); }),
            "(nothing failed)");
  EXPECT_EQ(folder.read("box/a"), "new");
}

TEST(AtomicFile, IsNotPublishedAfterAShortWrite) {
  TemporaryFolder const folder;
  folder.write("a", "old");
  rlimit before{};
  ASSERT_EQ(::getrlimit(RLIMIT_FSIZE, &before), 0);
  auto* const handler = ::signal(SIGXFSZ, SIG_IGN);
  rlimit const few{60, before.rlim_max};
  ASSERT_EQ(::setrlimit(RLIMIT_FSIZE, &few), 0);
  std::string const failure =
      systemFailureOf([&] { publish(folder / "a", std::string(100, 'x'), Publication::replace); });
  ::setrlimit(RLIMIT_FSIZE, &before);
  ::signal(SIGXFSZ, handler);
  EXPECT_EQ(failure, "EFBIG a");
  EXPECT_EQ(folder.names(), Names{"a"});
  EXPECT_EQ(folder.read("a"), "old");
}

/// POSIX allows it where nothing of a write fits; to try again would be to try for ever.
TEST(AtomicFile, TakesAWriteOfNothingForAFullDisk) {
  TemporaryFolder const folder;
  EXPECT_TRUE(FaultInjector::writingNothing(folder.path(), 2, [&] {
    EXPECT_EQ(systemFailureOf([&] { publish(folder / "a", "new", Publication::exclusive); }), "ENOSPC a");
  }));
  EXPECT_EQ(folder.names(), std::vector<std::string>());
}

TEST(AtomicFile, DeletesItsSiblingAtTheFirstFailureAndIsNotPublishedByASecondTry) {
  TemporaryFolder const folder;
  AtomicFile file(folder / "a");
  file.write("x");
  FaultInjector::failing(folder.path(), 1, EIO, false,
                         [&] { EXPECT_EQ(systemFailureOf([&] { file.publish(Publication::exclusive); }), "EIO a"); });
  EXPECT_EQ(folder.names(), Names{});
  EXPECT_EQ(systemFailureOf([&] { file.publish(Publication::exclusive); }), "ENOENT a");
}

TEST(AtomicFile, TellsThatItHasItsNameWhenOnlyItsFolderCannotBeFlushed) {
  TemporaryFolder const folder;
  AtomicFile file(folder / "a");
  FaultInjector::failing(folder.path(), 3, EIO, false,
                         [&] { EXPECT_EQ(systemFailureOf([&] { file.publish(Publication::exclusive); }), "EIO a"); });
  EXPECT_TRUE(file.published());
  EXPECT_EQ(folder.names(), Names{"a"});
}

TEST(AtomicFile, IsContentWithAFileSystemThatCannotFlushFolders) {
  TemporaryFolder const folder;
  EXPECT_TRUE(FaultInjector::failing(folder.path(), 5, EINVAL, false,
                                     [&] { publish(folder / "a", "x", Publication::exclusive); }));
  EXPECT_EQ(folder.names(), Names{"a"});
}

TEST(AtomicFile, TakesItsNameThroughALinkWhereTheExclusiveRenameIsUnknown) {
  for (int const unknown : {EINVAL, ENOSYS}) {
    TemporaryFolder const folder;
    std::string trace;
    {
      FaultInjector const injector(folder.path(), {.at = 4, .error = unknown});
      publish(folder / "a", "x", Publication::exclusive);
      trace = injector.trace();
    }
    EXPECT_EQ(trace, "openat write fsync renameat2 linkat unlinkat fsync");
    EXPECT_EQ(folder.names(), Names{"a"});
    EXPECT_EQ(folder.read("a"), "x");

    FaultInjector const injector(folder.path(), {.at = 4, .error = unknown});
    EXPECT_EQ(systemFailureOf([&] { publish(folder / "a", "y", Publication::exclusive); }), "EEXIST a");
    EXPECT_EQ(folder.names(), Names{"a"});
    EXPECT_EQ(folder.read("a"), "x");
  }
}

// Every fault -------------------------------------------------------------------------------------

std::size_t hiddenIn(TemporaryFolder const& folder) {
  Names const names = folder.names();
  return static_cast<std::size_t>(std::count_if(names.begin(), names.end(), [](auto& n) { return n[0] == '.'; }));
}

void removeAllIn(TemporaryFolder const& folder) {
  for (std::string const& name : folder.names()) std::filesystem::remove(folder / name);
}

TEST(AtomicFile, TakesNoNameWhereItCannotBeClosed) {
  for (Publication const publication : {Publication::exclusive, Publication::replace}) {
    TemporaryFolder const folder;
    AtomicFile file(folder / "a");
    file.write("new");
    file.flush();
    ::close(file.descriptor());  // so that the file's own fails
    EXPECT_EQ(systemFailureOf([&] { file.publish(publication); }), "EBADF a");
    EXPECT_FALSE(file.published());
    EXPECT_EQ(folder.names(), Names());
  }
}

TEST(AtomicFile, TakesNoNameWhereTheLastLookFails) {
  TemporaryFolder const folder;
  folder.write("a", "old");
  {
    AtomicFile file(folder / "a");
    file.write("new");
    EXPECT_THROW(file.publish(Publication::replace, [] { throw std::runtime_error("taken"); }), std::runtime_error);
    EXPECT_FALSE(file.published());
  }
  EXPECT_EQ(folder.read("a"), "old");
  EXPECT_EQ(folder.names(), Names{"a"});
}

struct FaultCase {
  char const* says;
  std::optional<std::string> old;
  Publication publication;
  long calls;
};

TEST(AtomicFile, IsOldOrNewAndWholeAfterEveryFault) {
  FaultCase const cases[] = {
      {"a new name, exclusively", std::nullopt, Publication::exclusive, 6},
      {"a new name", std::nullopt, Publication::replace, 6},
      {"a name that another file has", "old", Publication::replace, 7},
  };
  std::string const fresh = std::string(5000, 'n') + "second";
  for (FaultCase const& each : cases) {
    SCOPED_TRACE(each.says);
    TemporaryFolder const folder;
    auto const prepare = [&] {
      removeAllIn(folder);
      if (each.old) folder.write("a", *each.old);
    };
    auto const operation = [&] {
      AtomicFile file(folder / "a");
      file.write(std::string(5000, 'n'));
      file.write("second");
      file.publish(each.publication);
    };
    std::string const old = each.old.value_or("(no a)");
    long const calls =
        forEachFault(folder.path(), prepare, operation, [&](FaultMode mode, long n, FaultOutcome const& outcome) {
          std::string const content = folder.read("a");
          EXPECT_TRUE(content == old || content == fresh) << content.size();
          EXPECT_LE(hiddenIn(folder), mode == FaultMode::kill ? 1U : 0U);
          if (mode != FaultMode::kill) {
            EXPECT_EQ(outcome.told, FaultOutcome::Told::failure);
            bool const onlyTheFolder = n == each.calls;  // the one failure that is told of a file that has its name
            EXPECT_EQ(content, onlyTheFolder ? fresh : old);
            EXPECT_EQ(outcome.text.find("has its name") != std::string::npos, onlyTheFolder) << outcome.text;
          }
          auto const leftByTheKill = hiddenIn(folder);
          if (each.publication == Publication::exclusive) std::filesystem::remove(folder / "a");
          operation();
          EXPECT_EQ(folder.read("a"), fresh);
          EXPECT_EQ(hiddenIn(folder), leftByTheKill);
        });
    EXPECT_EQ(calls, each.calls);
    removeAllIn(folder);
  }
}

}  // namespace
}  // namespace tolva
