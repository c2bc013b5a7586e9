// SPDX-License-Identifier: Apache-2.0
#include "snapshots/SnapshotStore.hpp"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <string>
#include <vector>

#include "snapshots/LockFailure.hpp"
#include "snapshots/LockHolder.hpp"
#include "support/Failure.hpp"
#include "support/FaultInjector.hpp"
#include "support/SystemFailure.hpp"
#include "support/TemporaryFolder.hpp"
#include "support/Unprivileged.hpp"
#include "support/WorkingFolder.hpp"

namespace tolva {
namespace {

DatabaseError const unsafe("Unsafe snapshot path.");
DatabaseError const nothing("(nothing failed)", -1);

mode_t modeOf(std::filesystem::path const& path) {
  struct stat status {};
  return ::stat(path.c_str(), &status) == 0 ? status.st_mode & 07777 : 0;
}

TEST(SnapshotStore, ResolvesItsRoot) {
  TemporaryFolder const folder;
  std::filesystem::create_directories(folder / "real" / "store");
  std::filesystem::create_symlink("real", folder / "link");
  std::filesystem::create_symlink("nowhere", folder / "dangling");
  WorkingFolder const inside(folder.path());
  struct {
    std::filesystem::path given;
    std::filesystem::path root;
  } const cases[] = {
      {folder / "real" / "store", folder / "real" / "store"},
      {folder / "real" / "store/", folder / "real" / "store"},
      {folder / "new/", folder / "new"},
      {folder / "new" / "deep//", folder / "new" / "deep"},
      {"real/store", folder / "real" / "store"},
      {"real/../new", folder / "new"},
      {folder / "link" / "store", folder / "real" / "store"},
      {folder / "link" / "new", folder / "real" / "new"},
      {folder / "dangling", folder / "nowhere"},
      {"/", "/"},
  };
  for (auto const& now : cases) {
    SCOPED_TRACE(now.given);
    EXPECT_EQ(SnapshotStore(now.given).root(), now.root);
  }
}

TEST(SnapshotStore, ChecksEachPathBelowIt) {
  TemporaryFolder const folder;
  std::filesystem::path const root = folder / "store";
  std::filesystem::create_directories(root / "a" / "b");
  std::filesystem::create_directory(folder / "store2");
  std::filesystem::create_directory(folder / "outside");
  std::filesystem::create_symlink(root / "a", root / "inner");
  std::filesystem::create_symlink(folder / "outside", root / "outer");
  std::filesystem::create_symlink("nowhere", root / "dangling");
  std::filesystem::create_symlink("itself", root / "itself");
  SnapshotStore const store(root);
  struct {
    char const* says;
    std::filesystem::path path;
    DatabaseError failure;
  } const cases[] = {
      {"a folder", root / "a", nothing},
      {"a folder with a slash", root / "a" / "b/", nothing},
      {"what does not exist", root / "new" / "deep", nothing},
      {"dots that stay inside", root / "a" / ".." / "a", nothing},
      {"the root", root, unsafe},
      {"the root with a slash", folder / "store/", unsafe},
      {"a neighbour of a longer name", folder / "store2", unsafe},
      {"the folder above", folder.path(), unsafe},
      {"dots that lead out", root / ".." / "outside", unsafe},
      {"a relative path from elsewhere", "a", unsafe},
      {"an empty path", "", unsafe},
      {"a link that stays inside", root / "inner", unsafe},
      {"what lies behind a link", root / "inner" / "b", unsafe},
      {"a link that leads out", root / "outer", unsafe},
      {"what does not exist behind a link", root / "outer" / "new", unsafe},
      {"a link that leads nowhere", root / "dangling", unsafe},
      {"what lies behind nowhere", root / "dangling" / "new", unsafe},
      {"a link that leads to itself", root / "itself", unsafe},
      {"a name that ends early", root.string() + std::string("/a\0b", 4), unsafe},
  };
  for (auto const& now : cases) {
    SCOPED_TRACE(now.says);
    EXPECT_EQ(failureOf([&] { store.checked(now.path); }), now.failure);
  }
  EXPECT_EQ(store.checked(root / "x" / ".." / "a" / "b/"), root / "a" / "b") << "tidied";
  EXPECT_EQ(SnapshotStore("/").checked("/tmp/../etc/passwd"), "/etc/passwd") << "below the root of the system";
}

TEST(SnapshotStore, RefusesAStoreThatHasBecomeALink) {
  TemporaryFolder const folder;
  std::filesystem::create_directory(folder / "store");
  std::filesystem::create_directory(folder / "elsewhere");
  SnapshotStore const store(folder / "store");
  std::filesystem::remove(folder / "store");
  std::filesystem::create_symlink("elsewhere", folder / "store");
  EXPECT_EQ(failureOf([&] { store.lockCatalog(); }), unsafe);
  EXPECT_TRUE(std::filesystem::is_empty(folder / "elsewhere"));
}

TEST(SnapshotStore, TakesOnlyALowerCaseDigestForTheFolderOfASource) {
  TemporaryFolder const folder;
  SnapshotStore const store(folder / "store");
  std::string const valid(64, 'a');
  struct {
    std::string id;
    bool passes;
  } const cases[] = {
      {std::string(64, '0'), true},
      {std::string(64, 'f'), true},
      {std::string(64, 'A'), false},
      {std::string(64, 'g'), false},
      {std::string(63, 'a'), false},
      {std::string(65, 'a'), false},
      {"", false},
      {"../" + std::string(61, 'a'), false},
      {std::string(63, 'a') + '\0', false},
      {std::string(62, 'a') + "\xC3\xA4", false},
  };
  for (auto const& now : cases) {
    SCOPED_TRACE(now.id);
    EXPECT_EQ(failureOf([&] { store.directory(now.id); }),
              now.passes ? nothing : DatabaseError("Invalid snapshot database identifier."));
  }
  UUID const id = UUID::make();
  EXPECT_EQ(store.directory(valid), folder / "store" / valid);
  EXPECT_EQ(store.directory(valid, id), folder / "store" / valid / id.text());
  std::filesystem::create_directories(folder / "store");
  std::filesystem::create_symlink(folder.path(), folder / "store" / valid);
  EXPECT_EQ(failureOf([&] { store.directory(valid); }), unsafe);
  EXPECT_EQ(failureOf([&] { store.directory(valid, id); }), unsafe);
}

TEST(SnapshotStore, IsMadeForItsOwnerAloneAndLocked) {
  TemporaryFolder folder;
  folder.allowLeftover(".catalog-lock");
  SnapshotStore const store(folder / "deep" / "down" / "store/");
  auto const lock = store.lockCatalog();
  for (char const* name : {"deep", "deep/down", "deep/down/store"}) EXPECT_EQ(modeOf(folder / name), 0700u) << name;
  EXPECT_EQ(modeOf(store.root() / ".catalog-lock"), 0600u);
  EXPECT_EQ(
      failureOf([&] { store.lockCatalog(); }),
      DatabaseError("Snapshot storage is in use. Close open snapshot tabs or wait for the other operation to finish."));
}

TEST(SnapshotStore, IsNotMadeUnderANameThatEndsEarly) {
  TemporaryFolder const folder;
  SnapshotStore const store((folder / "store").string() + std::string("\0x", 2));
  EXPECT_EQ(failureOf([&] { store.lockCatalog(); }), unsafe);
  EXPECT_EQ(folder.names(), std::vector<std::string>());
}

TEST(SnapshotStore, IsRefusedWhileAnotherProcessHasItsLockAndFreeWhenThatDies) {
  TemporaryFolder folder;
  folder.allowLeftover(".catalog-lock");
  SnapshotStore const store(folder / "store");
  { auto const lock = store.lockCatalog(); }
  LockHolder other(store.root() / ".catalog-lock");
  EXPECT_EQ(failureOf([&] { store.lockCatalog(); }).detail,
            "Snapshot storage is in use. Close open snapshot tabs or wait for the other operation to finish.");
  other.kill();
  auto const lock = store.lockCatalog();
}

TEST(SnapshotStore, RefusesWhatIsPlantedAsItsLock) {
  struct {
    char const* says;
    void (*plant)(std::filesystem::path const&);
    DatabaseError failure;
  } const cases[] = {
      {"a link", [](auto const& path) { std::filesystem::create_symlink("elsewhere", path); }, unsafe},
      {"a pipe", [](auto const& path) { ASSERT_EQ(::mkfifo(path.c_str(), 0600), 0); },
       DatabaseError(lockFailure(EINVAL))},
      {"a folder", [](auto const& path) { std::filesystem::create_directory(path); },
       DatabaseError(lockFailure(EISDIR))},
  };
  for (auto const& now : cases) {
    SCOPED_TRACE(now.says);
    TemporaryFolder folder;
    folder.allowLeftover(".catalog-lock");
    now.plant(folder / ".catalog-lock");
    EXPECT_EQ(failureOf([&] { SnapshotStore(folder.path()).lockCatalog(); }), now.failure);
    EXPECT_FALSE(std::filesystem::exists(folder / "elsewhere"));
  }
}

TEST(SnapshotStore, RefusesARootThatIsNoFolder) {
  TemporaryFolder const folder;
  folder.write("file", "");
  EXPECT_EQ(systemFailureOf([&] { SnapshotStore(folder / "file").lockCatalog(); }), "EEXIST file");
  EXPECT_EQ(systemFailureOf([&] { SnapshotStore(folder / "file" / "store").lockCatalog(); }), "EEXIST file");
}

TEST(SnapshotStore, TellsThatItsFolderCannotBeMade) {
  TemporaryFolder folder;
  folder.openToEverybody();
  std::filesystem::create_directory(folder / "closed");
  std::filesystem::permissions(folder / "closed", std::filesystem::perms::none);
  EXPECT_EQ(asUnprivileged(
                [&] { return systemFailureOf([&] { SnapshotStore(folder / "closed" / "store").lockCatalog(); }); }),
            "EACCES store");
  std::filesystem::permissions(folder / "closed", std::filesystem::perms::owner_all);
}

TEST(SnapshotStore, LeavesNoFolderBehindThatIsNotOnTheDisk) {
  TemporaryFolder folder;
  folder.allowLeftover(".catalog-lock");
  forEachFault(
      folder.path(), [&] { std::filesystem::remove_all(folder / "deep"); },
      [&] { SnapshotStore(folder / "deep" / "store").lockCatalog(); },
      [&](FaultMode mode, long, FaultOutcome const& outcome) {
        if (mode == FaultMode::error && outcome.text.find("disk") != std::string::npos) {
          EXPECT_FALSE(std::filesystem::exists(folder / "deep" / "store")) << outcome.text;
        }
        auto const lock = SnapshotStore(folder / "deep" / "store").lockCatalog();
      });
}

}  // namespace
}  // namespace tolva
