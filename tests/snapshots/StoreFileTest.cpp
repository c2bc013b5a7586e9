// SPDX-License-Identifier: Apache-2.0
#include "snapshots/StoreFile.hpp"

#include <gtest/gtest.h>
#include <sys/stat.h>

#include <filesystem>
#include <string>

#include "snapshots/BaselinePointer.hpp"
#include "snapshots/StoreScene.hpp"
#include "support/FaultInjector.hpp"

namespace tolva {
namespace {

unsigned modeOf(std::filesystem::path const& path) {
  struct stat status {};
  EXPECT_EQ(::lstat(path.c_str(), &status), 0) << path;
  return status.st_mode & 07777;
}

/// The umask for a scope.
class Umask {
 public:
  explicit Umask(mode_t mask) : before_(::umask(mask)) {}
  ~Umask() { ::umask(before_); }
  Umask(Umask const&) = delete;
  Umask& operator=(Umask const&) = delete;

 private:
  mode_t const before_;
};

TEST(StoreFile, HasTheModeThatThePersonGivesToNewFiles) {
  struct {
    mode_t mask;
    unsigned mode;
  } const cases[] = {{022, 0644}, {077, 0600}, {0, 0666}};
  for (auto const& now : cases) {
    SCOPED_TRACE(now.mode);
    Umask const mask(now.mask);
    StoreScene scene;
    Snapshot const snapshot = scene.service.captureBaseline(scene.database.path(), {}, {}, noTask);
    EXPECT_EQ(modeOf(scene.folderOf(snapshot) / "metadata.json"), now.mode);
    EXPECT_EQ(modeOf(scene.databaseFolder() / "baseline.json"), now.mode);
  }
}

TEST(StoreFile, KeepsTheModeOfTheOneThatItReplaces) {
  StoreScene scene;
  Snapshot const snapshot = scene.service.captureBaseline(scene.database.path(), {}, {}, noTask);
  auto const record = scene.folderOf(snapshot) / "metadata.json";
  auto const pointer = scene.databaseFolder() / "baseline.json";
  for (auto const& file : {record, pointer}) std::filesystem::permissions(file, std::filesystem::perms(0640));
  scene.service.rename(snapshot, "new");
  scene.service.captureBaseline(scene.database.path(), snapshot.id, {}, noTask);
  EXPECT_EQ(modeOf(record), 0640u);
  EXPECT_EQ(modeOf(pointer), 0640u);
}

TEST(StoreFile, IsWrittenUnderANameThatIsClearedAfterACrash) {
  TemporaryFolder folder;
  SnapshotStore const store(folder.path());
  std::filesystem::create_directory(folder / "source");
  bool seen = false;
  std::function<void()> const look = [&] {
    for (auto const& entry : std::filesystem::directory_iterator(folder / "source")) {
      std::string const name = entry.path().filename();
      seen = name.starts_with(".partial-") && UUID::parse(name.substr(9)).has_value();
    }
  };
  EXPECT_TRUE(FaultInjector::before(folder.path(), 2, look, [&] {
    writeStoreFile(folder / "source" / "file", "text", {4, "Too long."});
  }));
  EXPECT_TRUE(seen);
  EXPECT_EQ(folder.read("source/file"), "text");
}

}  // namespace
}  // namespace tolva
