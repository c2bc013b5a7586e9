// SPDX-License-Identifier: Apache-2.0
// Where an export may write.
#include "transfer/ExportDestination.hpp"

#include <gtest/gtest.h>
#include <sys/mount.h>
#include <sys/stat.h>

#include "support/Browsed.hpp"
#include "support/SQLitePeer.hpp"
#include "support/WorkingFolder.hpp"
#include "transfer/ExportScene.hpp"

namespace tolva {
namespace {

DatabaseError const isDatabase("Choose an export destination other than the open database or its companion files.");
DatabaseError const isAlias("The export destination is the open database.");

// The open database --------------------------------------------------------------------------------

TEST(ExportDestination, NeverTakesTheNameOfTheDatabaseOrOfItsCompanions) {
  ExportScene scene(twoRows);
  std::filesystem::create_directory(scene.folder / "dir");
  std::filesystem::create_directory_symlink(scene.folder.path(), scene.folder / "linked");
  std::filesystem::create_symlink(scene.folder / "a.db", scene.folder / "link.db");
  std::filesystem::create_symlink("a.db-wal", scene.folder / "link-wal");
  std::string const folder = scene.folder.path();
  for (std::string const& name : {folder + "/a.db", folder + "/a.db-wal", folder + "/a.db-shm", folder + "//a.db",
                                  folder + "/dir/../a.db-shm", folder + "/./a.db", folder + "/linked/a.db",
                                  folder + "/linked/a.db-wal", folder + "/link.db", folder + "/link-wal"}) {
    EXPECT_EQ(failureAt(scene, name), isDatabase) << name;
  }
  EXPECT_EQ(scene.database.rows("SELECT a FROM t"), "1\n2");
}

TEST(ExportDestination, NeverTakesTheNameOfADatabaseThatWasOpenedThroughALink) {
  ExportScene scene(twoRows);
  std::filesystem::create_symlink("a.db", scene.folder / "link.db");
  for (char const* const name : {"a.db", "a.db-wal", "link.db"}) {
    EXPECT_EQ(failureOf([&] {
                scene.transfer.exportRows(scene.folder / "link.db", scene.schema, {}, ExportFormat::csv,
                                          scene.folder / name, {}, noTask);
              }),
              isDatabase)
        << name;
  }
}

TEST(ExportDestination, NeverTakesAnotherNameOfTheDatabase) {
  ExportScene scene(twoRows);
  std::filesystem::create_hard_link(scene.database.path(), scene.folder / "hard");
  std::filesystem::create_symlink("hard", scene.folder / "link");
  EXPECT_EQ(failureAt(scene, scene.folder / "hard"), isAlias);
  EXPECT_EQ(failureAt(scene, scene.folder / "link"), isAlias);
  EXPECT_EQ(scene.folder.names(), (std::vector<std::string>{"a.db", "hard", "link"}));
}

TEST(ExportDestination, IsCheckedBeforeTheDatabaseIsOpened) {
  ExportScene scene(twoRows);
  std::filesystem::remove(scene.database.path());
  EXPECT_EQ(failureAt(scene, scene.database.path()), isDatabase);
  EXPECT_EQ(failureAt(scene, scene.folder / "none/out"), DatabaseError("unable to open database file", 14));
}

TEST(ExportDestination, MayTakeTheNameOfAJournal) {
  ExportScene scene(twoRows);
  scene.destination = scene.folder / "a.db-journal";
  EXPECT_EQ(scene.exported(ExportFormat::csv), twoLines);
  std::filesystem::remove(scene.destination);
}

// A companion by another name ----------------------------------------------------------------------

std::string const inWAL = "PRAGMA journal_mode = WAL; CREATE TABLE t(a)";

/// Holds the database open, so that its companions stay and the log has a commit.
struct HeldDatabase {
  explicit HeldDatabase(ExportScene const& scene) : peer(scene.database.path()) {
    EXPECT_EQ(peer.exec("INSERT INTO t VALUES (1), (2)"), "ok");
  }
  SQLitePeer peer;
};

TEST(ExportDestination, IsNeverAnotherNameOfACompanion) {
  for (char const* const suffix : {"-wal", "-shm"}) {
    SCOPED_TRACE(suffix);
    ExportScene scene(inWAL);
    HeldDatabase held(scene);
    std::filesystem::create_hard_link(scene.database.path().string() + suffix, scene.folder / "hard");
    std::filesystem::create_symlink("hard", scene.folder / "link");
    EXPECT_EQ(failureAt(scene, scene.folder / "hard"), isDatabase);
    EXPECT_EQ(failureAt(scene, scene.folder / "link"), isDatabase);
    EXPECT_EQ(held.peer.rows("SELECT a FROM t"), "1\n2");
  }
}

/// The folder mounted at a second place for a scope, which only root can do.
struct BoundFolder {
  BoundFolder(std::filesystem::path const& from, std::filesystem::path to)
      : at(std::move(to)), isMounted(::mount(from.c_str(), at.c_str(), nullptr, MS_BIND, nullptr) == 0) {}
  ~BoundFolder() {
    if (isMounted) ::umount(at.c_str());
  }
  BoundFolder(BoundFolder const&) = delete;
  BoundFolder& operator=(BoundFolder const&) = delete;
  std::filesystem::path const at;
  bool const isMounted;
};

TEST(ExportDestination, IsNeverACompanionInAFolderThatIsMountedTwice) {
  TemporaryFolder const mounts;
  ExportScene scene(inWAL);
  BoundFolder const bound(scene.folder.path(), mounts.path());
  if (!bound.isMounted) GTEST_SKIP() << "A folder that is mounted twice was not tried: only root may mount one.";
  HeldDatabase held(scene);
  EXPECT_EQ(failureAt(scene, bound.at / "a.db"), isAlias);
  EXPECT_EQ(failureAt(scene, bound.at / "a.db-wal"), isDatabase);
  EXPECT_EQ(failureAt(scene, bound.at / "a.db-shm"), isDatabase);
  EXPECT_EQ(held.peer.rows("SELECT a FROM t"), "1\n2");
}

TEST(ExportDestination, MayBeginLikeTheDatabase) {
  ExportScene scene(twoRows);
  for (char const* const name : {"a.db2", "a.db-wal2", "a.d", "a.db-", "a.db-WAL"}) {
    scene.destination = scene.folder / name;
    EXPECT_EQ(scene.exported(ExportFormat::csv), twoLines) << name;
  }
}

TEST(ExportDestination, IsComparedWithADatabaseInTheWorkingFolder) {
  ExportScene scene(twoRows);
  WorkingFolder const within(scene.folder.path());
  auto const to = [&](std::filesystem::path const& destination) {
    return failureOf(
        [&] { scene.transfer.exportRows("a.db", scene.schema, {}, ExportFormat::csv, destination, {}, noTask); });
  };
  for (std::filesystem::path const& destination : {scene.folder / "a.db", scene.folder / "a.db-wal",
                                                   std::filesystem::path("a.db"), std::filesystem::path("./a.db-shm")})
    EXPECT_EQ(to(destination), isDatabase) << destination;
  EXPECT_EQ(to("out"), DatabaseError("(nothing failed)", -1));
  EXPECT_EQ(scene.content(), twoLines);
}

// What changes meanwhile ---------------------------------------------------------------------------

/// An export of 500 rows, in the middle of which something happens.
struct Interference {
  explicit Interference(std::string const& before = "")
      : scene(before + "CREATE TABLE t(a)" + inserting("t", "i", 500)) {}

  void run(std::filesystem::path const& destination, std::function<void()> const& meanwhile) {
    bool first = true;
    scene.transfer.exportRows(
        scene.database.path(), scene.schema, {}, ExportFormat::csv, destination,
        [&](std::int64_t) {
          if (std::exchange(first, false)) meanwhile();
        },
        noTask);
  }

  ExportScene scene;
};

TEST(ExportDestination, NeverReplacesTheDatabaseThatTookTheDestinationsNameMeanwhile) {
  Interference during;
  std::filesystem::path const moved = during.scene.folder / "moved.db";
  EXPECT_EQ(
      failureOf([&] { during.run(moved, [&] { std::filesystem::rename(during.scene.database.path(), moved); }); }),
      isAlias);
  EXPECT_EQ(rowsAsText(moved, "SELECT count(*) FROM t"), "500");
  EXPECT_EQ(during.scene.folder.names(), std::vector<std::string>{"moved.db"});
}

TEST(ExportDestination, NeverReplacesTheLogThatTookTheDestinationsNameMeanwhile) {
  Interference during("PRAGMA journal_mode = WAL; ");
  std::filesystem::path const moved = during.scene.folder / "moved.db-wal";
  auto const moveAll = [&] {
    for (std::string const suffix : {"", "-wal", "-shm"})
      std::filesystem::rename(during.scene.database.path().string() + suffix,
                              during.scene.folder / ("moved.db" + suffix));
  };
  EXPECT_EQ(failureOf([&] { during.run(moved, moveAll); }), isDatabase);
  EXPECT_EQ(rowsAsText(during.scene.folder / "moved.db", "SELECT count(*) FROM t"), "500");
}

TEST(ExportDestination, IsLookedAtInTheFolderWhereTheFileGrows) {
  Interference during;
  std::filesystem::path const pipe = during.scene.folder / "out";
  TemporaryFolder const elsewhere;
  WorkingFolder const within(during.scene.folder.path());
  EXPECT_EQ(systemFailureOf([&] {
              during.run("out", [&] {
                ASSERT_EQ(::mkfifo(pipe.c_str(), 0600), 0);
                std::filesystem::current_path(elsewhere.path());
              });
            }),
            "EINVAL out");
  EXPECT_TRUE(std::filesystem::is_fifo(pipe));
}

// What is no file ----------------------------------------------------------------------------------

TEST(ExportDestination, NeverReplacesWhatIsNoFile) {
  ExportScene scene(twoRows);
  std::filesystem::create_directory(scene.folder / "dir");
  ASSERT_EQ(::mkfifo((scene.folder / "pipe").c_str(), 0600), 0);
  std::filesystem::create_symlink("/dev/null", scene.folder / "null");
  EXPECT_EQ(systemFailureAt(scene, scene.folder / "dir"), "EISDIR dir");
  EXPECT_EQ(systemFailureAt(scene, scene.folder / "pipe"), "EINVAL pipe");
  EXPECT_EQ(systemFailureAt(scene, scene.folder / "null"), "EINVAL null");
  EXPECT_TRUE(std::filesystem::is_fifo(scene.folder / "pipe"));
  EXPECT_TRUE(std::filesystem::is_empty(scene.folder / "dir"));
  EXPECT_EQ(std::filesystem::read_symlink(scene.folder / "null"), "/dev/null");
  EXPECT_EQ(scene.folder.names(), (std::vector<std::string>{"a.db", "dir", "null", "pipe"}));
}

TEST(ExportDestination, IsLookedAtBeforeAnyRowIsRead) {
  ExportScene scene("CREATE TABLE t(a)" + inserting("t", "i", 500));
  ASSERT_EQ(::mkfifo((scene.folder / "pipe").c_str(), 0600), 0);
  EXPECT_EQ(systemFailureAt(scene, scene.folder / "pipe"), "EINVAL pipe");
  EXPECT_EQ(scene.told, std::vector<std::int64_t>());
}

}  // namespace
}  // namespace tolva
