// SPDX-License-Identifier: Apache-2.0
#include "snapshots/SnapshotStaging.hpp"

#include <gtest/gtest.h>
#include <sys/stat.h>

#include <algorithm>
#include <fstream>
#include <optional>
#include <sstream>

#include "snapshots/DescriptorLimit.hpp"
#include "support/Failure.hpp"
#include "support/FaultInjector.hpp"
#include "support/SystemFailure.hpp"
#include "support/TemporaryFolder.hpp"
#include "support/Unprivileged.hpp"

namespace tolva {
namespace {

using Names = std::vector<std::string>;

struct Scene {
  Scene() { std::filesystem::create_directories(source); }

  std::filesystem::path add(std::string const& name) const {
    std::filesystem::create_directories(source / name);
    std::ofstream(source / name / "database.sqlite") << "half";
    return source / name;
  }

  Names names() const {
    Names names;
    for (auto const& entry : std::filesystem::directory_iterator(source)) names.push_back(entry.path().filename());
    std::ranges::sort(names);
    return names;
  }

  void clean() const { cleanStaging(store, source); }

  TemporaryFolder folder;
  SnapshotStore const store{folder / "store"};
  std::filesystem::path const source = store.root() / std::string(64, 'a');
};

void write(SnapshotStaging const& staging) { std::ofstream(staging.database()) << "whole"; }

std::string contentOf(std::filesystem::path const& path) {
  std::ostringstream content;
  content << std::ifstream(path).rdbuf();
  return content.str();
}

// Cleaning ----------------------------------------------------------------------------------------

TEST(SnapshotStaging, CleansWhatIsNamedSoAndNothingElse) {
  Scene scene;
  std::string const id = UUID::make().text();
  std::string lower = id;
  std::ranges::transform(lower, lower.begin(), [](char c) { return c >= 'A' && c <= 'Z' ? char(c + 32) : c; });
  Names kept{id,
             ".partial-",
             ".partial-" + id.substr(1),
             ".partial-" + id + "0",
             "partial-" + id,
             ".partial-nothing",
             ".Partial-" + id,
             "x.partial-" + id,
             "baseline.json"};
  for (std::string const& name : kept) scene.add(name);
  scene.add(".partial-" + id);
  scene.add(".partial-" + lower);
  std::filesystem::create_directories(scene.add(".partial-" + UUID::make().text()) / "deep/deeper");
  std::ofstream(scene.source / (".partial-" + UUID::make().text())) << "a file";
  ASSERT_EQ(::mkfifo((scene.source / (".partial-" + UUID::make().text())).c_str(), 0600), 0);
  scene.clean();
  std::ranges::sort(kept);
  EXPECT_EQ(scene.names(), kept);
  for (std::string const& name : kept) {
    EXPECT_EQ(contentOf(scene.source / name / "database.sqlite"), "half") << name;
    std::filesystem::remove_all(scene.source / name);
  }
}

TEST(SnapshotStaging, CleansNoLink) {
  Scene scene;
  std::filesystem::create_directory(scene.folder / "elsewhere");
  scene.folder.write("elsewhere/file", "mine");
  auto const link = scene.source / (".partial-" + UUID::make().text());
  for (std::filesystem::path const& target : {scene.folder / "elsewhere", scene.folder / "nowhere", link}) {
    std::filesystem::create_symlink(target, link);
    EXPECT_EQ(failureOf([&] { scene.clean(); }), DatabaseError("Unsafe snapshot path."));
    EXPECT_EQ(scene.folder.read("elsewhere/file"), "mine");
    std::filesystem::remove(link);
  }
}

TEST(SnapshotStaging, CleansNothingBehindALinkInIt) {
  Scene scene;
  std::filesystem::create_directory(scene.folder / "elsewhere");
  scene.folder.write("elsewhere/file", "mine");
  std::filesystem::create_symlink(scene.folder / "elsewhere", scene.add(".partial-" + UUID::make().text()) / "link");
  scene.clean();
  EXPECT_EQ(scene.names(), Names{});
  EXPECT_EQ(scene.folder.read("elsewhere/file"), "mine");
}

TEST(SnapshotStaging, SaysWhatItCannotClean) {
  Scene scene;
  scene.folder.openToEverybody();
  ASSERT_EQ(::chmod(scene.store.root().c_str(), 0755), 0);
  auto const left = scene.add(".partial-" + UUID::make().text());
  ASSERT_EQ(::chmod(left.c_str(), 0555), 0);
  ASSERT_EQ(::chmod(scene.source.c_str(), 0555), 0);
  EXPECT_EQ(asUnprivileged([&] { return systemFailureOf([&] { scene.clean(); }).substr(0, 6); }), "EACCES");
  EXPECT_EQ(contentOf(left / "database.sqlite"), "half");
  ASSERT_EQ(::chmod(scene.source.c_str(), 0755), 0);
  ASSERT_EQ(::chmod(left.c_str(), 0755), 0);
  scene.clean();
  EXPECT_EQ(scene.names(), Names{});
}

/// The folder can stand on the disk under the name of a snapshot that was about to be deleted.
TEST(SnapshotStaging, DeletesNothingBeforeTheHiddenNameIsOnTheDisk) {
  Scene scene;
  auto const left = scene.add(".partial-" + UUID::make().text());
  EXPECT_TRUE(FaultInjector::failing(scene.source, 1, EIO, /*persistent=*/false, [&] {
    EXPECT_EQ(systemFailureOf([&] { scene.clean(); }), "EIO " + scene.source.filename().string());
  }));
  EXPECT_EQ(contentOf(left / "database.sqlite"), "half");
  FaultInjector const calls(scene.source);
  scene.clean();
  EXPECT_TRUE(calls.trace().starts_with("fsync rename unlink")) << calls.trace();
}

TEST(SnapshotStaging, CleansFoldersThatMayNotBeWritten) {
  Scene scene;
  scene.folder.openToEverybody();
  EXPECT_EQ(asUnprivileged([&] {
              SnapshotStore const own(scene.folder / "own");
              auto const place = own.root() / std::string(64, 'b');
              auto const left = place / (".partial-" + UUID::make().text());
              std::filesystem::create_directories(left / "deep/deeper");
              std::ofstream(left / "deep/deeper/file") << "x";
              for (auto const& path : {left / "deep/deeper", left / "deep", left}) {
                ::chmod(path.c_str(), path == left ? 0500 : 0);
              }
              cleanStaging(own, place);
              return std::string(std::filesystem::is_empty(place) ? "empty" : "not empty");
            }),
            "empty");
}

// Deletion ----------------------------------------------------------------------------------------

TEST(SnapshotStaging, DeletesTheDatabaseAndTheRecordLast) {
  Scene const scene;
  auto const folder = scene.add(UUID::make().text());
  for (char const* name : {"metadata.json", ".lease", "stranger"}) std::ofstream(folder / name) << "x";
  std::vector<std::string> seen;
  for (long n = 1;; ++n) {
    std::function<void()> const look = [&] {
      std::string names;
      auto const aside = *std::filesystem::directory_iterator(scene.source);
      for (char const* name : {"stranger", ".lease", "database.sqlite", "metadata.json"}) {
        if (std::filesystem::exists(aside.path() / name)) names += std::string(names.empty() ? "" : " ") + name;
      }
      if (seen.empty() || seen.back() != names) seen.push_back(names);
    };
    auto const copy = scene.source / UUID::make().text();
    if (std::filesystem::exists(folder)) std::filesystem::rename(folder, copy);
    std::filesystem::create_directories(copy);
    for (char const* name : {"metadata.json", ".lease", "stranger", "database.sqlite"})
      std::ofstream(copy / name) << "x";
    if (!FaultInjector::before(scene.source, n, look, [&] { deleteSnapshotFolder(scene.store, copy); })) break;
  }
  ASSERT_GE(seen.size(), 3U);
  EXPECT_EQ(seen[seen.size() - 3], "database.sqlite metadata.json") << "when all else is gone";
  EXPECT_EQ(seen[seen.size() - 2], "database.sqlite") << "the record has another name, which shows that it can go";
  EXPECT_EQ(seen.back(), "");
  EXPECT_EQ(scene.names(), Names{});
}

TEST(SnapshotStaging, GivesASnapshotThatItCannotDeleteItsNameBackOnTheDisk) {
  Scene const scene;
  auto const folder = scene.add(UUID::make().text());
  std::ofstream(folder / "metadata.json") << "x";
  FaultInjector const calls(scene.source, {.at = 2, .error = EIO});
  EXPECT_EQ(systemFailureOf([&] { deleteSnapshotFolder(scene.store, folder); }),
            "EIO " + scene.source.filename().string());
  EXPECT_EQ(calls.trace(), "rename fsync rename fsync");
  EXPECT_EQ(scene.names(), Names{folder.filename()});
}

// Life --------------------------------------------------------------------------------------------

TEST(SnapshotStaging, IsAHiddenFolderForItsOwner) {
  Scene const scene;
  SnapshotStaging const staging(scene.store, scene.source);
  std::string const name = staging.path().filename();
  EXPECT_EQ(scene.names(), Names{name});
  ASSERT_TRUE(name.starts_with(".partial-"));
  ASSERT_TRUE(UUID::parse(name.substr(9)));
  EXPECT_EQ(UUID::parse(name.substr(9))->text(), name.substr(9));
  EXPECT_EQ(staging.database(), staging.path() / "database.sqlite");
  EXPECT_EQ(staging.databaseSize(), 0);
  EXPECT_EQ(staging.databaseNode(), std::nullopt);
  struct stat status {};
  ASSERT_EQ(::stat(staging.path().c_str(), &status), 0);
  EXPECT_EQ(status.st_mode & 0777, 0700U);
  write(staging);
  EXPECT_EQ(staging.databaseSize(), 5);
  EXPECT_EQ(staging.databaseNode(), fileNode(staging.database()));
}

TEST(SnapshotStaging, GoesWithAllThatIsInIt) {
  Scene const scene;
  {
    SnapshotStaging const staging(scene.store, scene.source);
    write(staging);
    std::filesystem::create_directories(staging.path() / "deep/deeper");
  }
  EXPECT_EQ(scene.names(), Names{});
}

TEST(SnapshotStaging, GoesWhereTheProcessHasNoMoreDescriptors) {
  Scene const scene;
  std::optional<SnapshotStaging> staging(std::in_place, scene.store, scene.source);
  write(*staging);
  {
    DescriptorLimit const none(0);
    staging.reset();
  }
  EXPECT_EQ(scene.names(), Names{});
}

TEST(SnapshotStaging, IsNotMadeWhereItCannotBe) {
  Scene const scene;
  EXPECT_EQ(systemFailureOf([&] { SnapshotStaging const none(scene.store, scene.source / "none"); }), "ENOENT none");
  std::filesystem::create_symlink(scene.source, scene.store.root() / "link");
  EXPECT_EQ(failureOf([&] { SnapshotStaging const none(scene.store, scene.store.root() / "link"); }),
            DatabaseError("Unsafe snapshot path."));
  EXPECT_EQ(failureOf([&] { SnapshotStaging const none(scene.store, scene.folder.path()); }),
            DatabaseError("Unsafe snapshot path."));
  EXPECT_EQ(scene.names(), Names{});
}

// Publication -------------------------------------------------------------------------------------

TEST(SnapshotStaging, StaysUnderTheNameOfItsSnapshot) {
  Scene const scene;
  UUID const id = UUID::make();
  {
    SnapshotStaging staging(scene.store, scene.source);
    write(staging);
    staging.protectDatabase();
    staging.flush();
    staging.publish(id);
  }
  EXPECT_EQ(scene.names(), Names{id.text()});
  EXPECT_EQ(contentOf(scene.source / id.text() / "database.sqlite"), "whole");
}

TEST(SnapshotStaging, NeverTakesTheNameOfAnother) {
  Scene const scene;
  UUID const id = UUID::make();
  scene.add(id.text());
  {
    SnapshotStaging staging(scene.store, scene.source);
    write(staging);
    staging.flush();
    EXPECT_EQ(systemFailureOf([&] { staging.publish(id); }), "EEXIST " + id.text());
  }
  EXPECT_EQ(scene.names(), Names{id.text()});
  EXPECT_EQ(contentOf(scene.source / id.text() / "database.sqlite"), "half");
}

TEST(SnapshotStaging, CannotBeFlushedWithoutADatabase) {
  Scene const scene;
  SnapshotStaging staging(scene.store, scene.source);
  EXPECT_EQ(systemFailureOf([&] { staging.flush(); }), "ENOENT database.sqlite");
  EXPECT_EQ(systemFailureOf([&] { staging.protectDatabase(); }), "ENOENT database.sqlite");
}

TEST(SnapshotStaging, FlushesTheDatabaseAndBothFolders) {
  Scene const scene;
  SnapshotStaging staging(scene.store, scene.source);
  write(staging);
  FaultInjector const calls(scene.source);
  staging.protectDatabase();
  staging.flush();
  staging.publish(UUID::make());
  EXPECT_EQ(calls.trace(), "fchmodat fsync fsync renameat2 fsync");
}

TEST(SnapshotStaging, MustHaveItsDatabaseOnTheDiskAndItsFolderWhereThatCanBe) {
  struct {
    long call;  // the flush of the database, the one of the folder
    int error;
    char const* failure;
  } const cases[] = {
      {1, EINVAL, "EINVAL database.sqlite"},
      {1, EIO, "EIO database.sqlite"},
      {2, EINVAL, "(nothing failed)"},
      {2, EIO, "EIO .partial-"},
  };
  for (auto const& each : cases) {
    SCOPED_TRACE(each.failure);
    Scene const scene;
    SnapshotStaging staging(scene.store, scene.source);
    write(staging);
    EXPECT_TRUE(FaultInjector::failing(scene.source, each.call, each.error, /*persistent=*/false, [&] {
      EXPECT_TRUE(systemFailureOf([&] { staging.flush(); }).starts_with(each.failure));
    }));
  }
}

TEST(SnapshotStaging, IsWholeOrGoneWhateverFailsInItsPublication) {
  struct {
    long call;  // rename, flush, and the two that take the name back
    int error;
    bool lasting;
    bool stays;
  } const cases[] = {
      {1, EIO, false, false}, {2, EIO, false, false}, {2, EIO, true, true},  // the name cannot be taken back
  };
  for (auto const& each : cases) {
    SCOPED_TRACE(std::to_string(each.call) + (each.lasting ? " and all later" : ""));
    Scene const scene;
    UUID const id = UUID::make();
    std::optional<SnapshotStaging> staging(std::in_place, scene.store, scene.source);
    write(*staging);
    staging->flush();
    EXPECT_TRUE(FaultInjector::failing(scene.source, each.call, each.error, each.lasting, [&] {
      EXPECT_TRUE(systemFailureOf([&] { staging->publish(id); }).starts_with("EIO"));
    }));
    staging.reset();
    EXPECT_EQ(scene.names(), each.stays ? Names{id.text()} : Names{});
    if (each.stays) {
      EXPECT_EQ(contentOf(scene.source / id.text() / "database.sqlite"), "whole");
    }
  }
}

/// A file system without the flag: another folder is replaced only if it is empty.
TEST(SnapshotStaging, KeepsTheContentOfAnotherFolderWithoutTheFlagToo) {
  Scene const scene;
  UUID const id = UUID::make();
  scene.add(id.text());
  SnapshotStaging staging(scene.store, scene.source);
  write(staging);
  staging.flush();
  EXPECT_TRUE(FaultInjector::failing(scene.source, 1, EINVAL, /*persistent=*/false, [&] {
    EXPECT_EQ(systemFailureOf([&] { staging.publish(id); }), "ENOTEMPTY " + id.text());
  }));
  UUID const other = UUID::make();
  EXPECT_TRUE(FaultInjector::failing(scene.source, 1, EINVAL, /*persistent=*/false, [&] { staging.publish(other); }));
  EXPECT_EQ(contentOf(scene.source / other.text() / "database.sqlite"), "whole");
}

}  // namespace
}  // namespace tolva
