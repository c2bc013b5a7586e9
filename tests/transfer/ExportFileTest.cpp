// SPDX-License-Identifier: Apache-2.0
// How an export takes its name, and what becomes of what had it.
#include "transfer/ExportFile.hpp"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/mount.h>
#include <sys/stat.h>
#include <unistd.h>

#include <atomic>
#include <fstream>
#include <set>
#include <thread>

#include "platform/Expression.hpp"
#include "platform/TaskCancellation.hpp"
#include "support/Browsed.hpp"
#include "support/Failure.hpp"
#include "support/SystemFailure.hpp"
#include "support/Unprivileged.hpp"
#include "support/WorkingFolder.hpp"
#include "transfer/ExportScene.hpp"

namespace tolva {
namespace {

DatabaseError const notCreated("The export file could not be created.");

mode_t modeOf(std::filesystem::path const& path) {
  struct stat status {};
  EXPECT_EQ(::lstat(path.c_str(), &status), 0);
  return status.st_mode & 07777;
}

/// Gives the process another mask for new files for a scope.
struct Umask {
  explicit Umask(mode_t mask) : before(::umask(mask)) {}
  ~Umask() { ::umask(before); }
  Umask(Umask const&) = delete;
  Umask& operator=(Umask const&) = delete;
  mode_t const before;
};

// The destination ----------------------------------------------------------------------------------

TEST(ExportFile, IsMadeInAFolderThatIsNamedInAnyWay) {
  ExportScene scene(twoRows);
  std::filesystem::create_directory(scene.folder / "dir");
  std::filesystem::create_directory_symlink("dir", scene.folder / "linked");
  std::string const folder = scene.folder.path();
  for (auto const& [path, name] : std::initializer_list<std::pair<std::string, std::string>>{
           {folder + "//one", "one"}, {folder + "/dir/../two", "two"}, {folder + "/linked/three", "dir/three"}}) {
    scene.destination = path;
    scene.run(ExportFormat::csv);
    EXPECT_EQ(scene.folder.read(name), twoLines) << path;
  }
}

TEST(ExportFile, IsMadeInTheWorkingFolder) {
  ExportScene scene(twoRows);
  WorkingFolder const within(scene.folder.path());
  scene.destination = "plain";
  scene.run(ExportFormat::csv);
  EXPECT_EQ(scene.folder.read("plain"), twoLines);
}

TEST(ExportFile, ReplacesALinkAndNotWhatItLeadsTo) {
  ExportScene scene(twoRows);
  std::filesystem::path const target = scene.folder.write("target", "kept");
  for (char const* const leadsTo : {"target", "nothing"}) {
    std::filesystem::create_symlink(leadsTo, scene.destination);
    scene.run(ExportFormat::csv);
    EXPECT_TRUE(std::filesystem::is_regular_file(std::filesystem::symlink_status(scene.destination)));
    EXPECT_EQ(scene.content(), twoLines);
    std::filesystem::remove(scene.destination);
  }
  EXPECT_EQ(scene.folder.read("target"), "kept");
  EXPECT_EQ(scene.folder.names(), (std::vector<std::string>{"a.db", "target"}));
}

TEST(ExportFile, ReplacesOneNameOfSeveralOfAFile) {
  ExportScene scene(twoRows);
  std::filesystem::create_hard_link(scene.folder.write("other", "kept"), scene.destination);
  EXPECT_EQ(scene.exported(ExportFormat::csv), twoLines);
  EXPECT_EQ(scene.folder.read("other"), "kept");
}

TEST(ExportFile, NeedsANameInAFolderThatIsThere) {
  ExportScene scene(twoRows);
  scene.folder.write("file", "kept");
  EXPECT_EQ(failureAt(scene, scene.folder / "none/out"), notCreated);
  EXPECT_EQ(failureAt(scene, scene.folder / "file/out"), notCreated);
  EXPECT_EQ(failureAt(scene, scene.folder / std::string("out\0.csv", 8)), notCreated);
  EXPECT_NE(systemFailureAt(scene, scene.folder.path().string() + "/"), "(nothing failed)");
  EXPECT_EQ(systemFailureAt(scene, scene.folder / std::string(300, 'n')).substr(0, 12), "ENAMETOOLONG");
  EXPECT_EQ(scene.folder.names(), (std::vector<std::string>{"a.db", "file"}));
}

TEST(ExportFile, NeedsAFolderThatMayBeWritten) {
  ExportScene scene(twoRows);
  scene.folder.openToEverybody();
  std::filesystem::create_directory(scene.folder / "closed");
  scene.folder.write("closed/out", "kept");
  std::filesystem::permissions(scene.folder / "closed", std::filesystem::perms(0555));
  EXPECT_EQ(asUnprivileged([&] { return failureAt(scene, scene.folder / "closed/out").detail; }), notCreated.detail);
  EXPECT_EQ(scene.folder.read("closed/out"), "kept");
}

// Permissions --------------------------------------------------------------------------------------

TEST(ExportFile, MayBeReadByWhomTheUmaskLets) {
  ExportScene scene(twoRows);
  for (mode_t const mask : {022U, 077U, 0U}) {
    Umask const masked(mask);
    scene.run(ExportFormat::csv);
    EXPECT_EQ(modeOf(scene.destination), 0666 & ~mask);
    std::filesystem::remove(scene.destination);
  }
}

TEST(ExportFile, KeepsThePermissionsOfTheFileThatItReplaces) {
  ExportScene scene("CREATE TABLE t(a)" + inserting("t", "i", 500));
  Umask const masked(022);
  for (mode_t const mode : {0600U, 0400U, 0664U, 0755U}) {
    scene.folder.write("out", "old");
    ASSERT_EQ(::chmod(scene.destination.c_str(), mode), 0);
    mode_t whileWritten = 0;
    scene.transfer.exportRows(
        scene.database.path(), scene.schema, {}, ExportFormat::csv, scene.destination,
        [&](std::int64_t) {
          for (std::string const& name : scene.folder.names()) {
            if (name.starts_with(".tolva-export-")) whileWritten = modeOf(scene.folder / name);
          }
        },
        noTask);
    EXPECT_EQ(modeOf(scene.destination), mode);
    EXPECT_EQ(whileWritten & 077 & ~mode, 0U) << "the rows are shown to nobody who could not see the old file";
    EXPECT_NE(whileWritten, 0U);
    std::filesystem::remove(scene.destination);
  }
}

// What others see ----------------------------------------------------------------------------------

TEST(ExportFile, AppearsWholeToAnObserver) {
  ExportScene scene("CREATE TABLE t(a)" + inserting("t", "i", 20'000));
  std::string const whole = scene.exported(ExportFormat::csv);
  scene.folder.write("out", "old");
  std::atomic<bool> done = false;
  std::set<std::string> seen;
  std::jthread observer([&] {
    while (!done) seen.insert(scene.content());
  });
  for (int round = 0; round < 5; ++round) scene.run(ExportFormat::csv);
  done = true;
  observer.join();
  for (std::string const& content : seen) EXPECT_TRUE(content == "old" || content == whole) << content.size();
}

TEST(ExportFile, GrowsUnderAHiddenName) {
  ExportScene scene("CREATE TABLE t(a)" + inserting("t", "i", 500));
  std::vector<std::string> meanwhile;
  scene.transfer.exportRows(
      scene.database.path(), scene.schema, {}, ExportFormat::csv, scene.destination,
      [&](std::int64_t) {
        if (meanwhile.empty()) meanwhile = scene.folder.names();
      },
      noTask);
  ASSERT_EQ(meanwhile.size(), 2U);
  Expression const hidden("^\\.tolva-export-[0-9A-F]{8}(-[0-9A-F]{4}){3}-[0-9A-F]{12}$");
  EXPECT_TRUE(hidden.found(meanwhile[0])) << meanwhile[0];
  EXPECT_EQ(meanwhile[1], "a.db");
}

TEST(ExportFile, LeavesNothingWhereTheProgressThrows) {
  ExportScene scene("CREATE TABLE t(a)" + inserting("t", "i", 500));
  scene.folder.write("out", "old");
  EXPECT_THROW(scene.transfer.exportRows(
                   scene.database.path(), scene.schema, {}, ExportFormat::csv, scene.destination,
                   [](std::int64_t) { throw std::runtime_error("enough"); }, noTask),
               std::runtime_error);
  EXPECT_EQ(scene.content(), "old");
  EXPECT_EQ(scene.folder.names(), (std::vector<std::string>{"a.db", "out"}));
}

// Disks --------------------------------------------------------------------------------------------

/// A disk of 1 MiB for a scope, which only root can mount.
struct SmallDisk {
  explicit SmallDisk(std::filesystem::path const& folder)
      : at(folder), isMounted(::mount("tolva", folder.c_str(), "tmpfs", 0, "size=1m") == 0) {}
  ~SmallDisk() {
    if (isMounted) ::umount(at.c_str());
  }
  SmallDisk(SmallDisk const&) = delete;
  SmallDisk& operator=(SmallDisk const&) = delete;
  std::filesystem::path const at;
  bool const isMounted;
};

/// A file outside of the test's folder that goes with the scope.
struct FileElsewhere {
  explicit FileElsewhere(std::filesystem::path file) : path(std::move(file)) {}
  ~FileElsewhere() {
    std::error_code ignored;
    std::filesystem::remove(path, ignored);
  }
  FileElsewhere(FileElsewhere const&) = delete;
  FileElsewhere& operator=(FileElsewhere const&) = delete;
  std::filesystem::path const path;
};

TEST(ExportFile, LeavesTheOldFileOnAFullDisk) {
  ExportScene scene("CREATE TABLE t(a); INSERT INTO t VALUES (zeroblob(2000000))");
  std::filesystem::path const disk = scene.folder / "disk";
  std::filesystem::create_directory(disk);
  SmallDisk const mounted(disk);
  if (!mounted.isMounted) GTEST_SKIP() << "A full disk was not tried: only root may mount one.";
  scene.folder.write("disk/out", "old");
  std::string const failure = systemFailureAt(scene, disk / "out");
  std::string const content = scene.folder.read("disk/out");
  auto const names = std::distance(std::filesystem::directory_iterator(disk), std::filesystem::directory_iterator());
  EXPECT_EQ(failure, "ENOSPC out");
  EXPECT_EQ(content, "old");
  EXPECT_EQ(names, 1);
}

TEST(ExportFile, MayLieOnAnotherFileSystem) {
  std::filesystem::path const memory = "/dev/shm";
  struct stat here {
  }, there{};
  ExportScene scene(twoRows);
  if (::stat(memory.c_str(), &there) != 0 || ::access(memory.c_str(), W_OK) != 0)
    GTEST_SKIP() << "Another file system was not tried: there is no /dev/shm.";
  ASSERT_EQ(::stat(scene.folder.path().c_str(), &here), 0);
  if (here.st_dev == there.st_dev) GTEST_SKIP() << "Another file system was not tried: /dev/shm is none.";
  FileElsewhere const elsewhere(memory / ("tolva-" + scene.folder.path().filename().string()));
  scene.destination = elsewhere.path;
  scene.run(ExportFormat::csv);
  std::ifstream file(scene.destination, std::ios::binary);
  EXPECT_EQ(std::string(std::istreambuf_iterator<char>(file), {}), twoLines);
}

}  // namespace
}  // namespace tolva
