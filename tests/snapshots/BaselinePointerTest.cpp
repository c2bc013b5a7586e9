// SPDX-License-Identifier: Apache-2.0
#include "snapshots/BaselinePointer.hpp"

#include <gtest/gtest.h>
#include <sys/stat.h>
#include <sys/sysmacros.h>

#include <filesystem>
#include <functional>
#include <iterator>
#include <optional>
#include <string>

#include "support/Failure.hpp"
#include "support/FaultInjector.hpp"
#include "support/JSONFailure.hpp"
#include "support/PowerLoss.hpp"
#include "support/SystemFailure.hpp"
#include "support/TemporaryFolder.hpp"
#include "support/Unprivileged.hpp"

namespace tolva {
namespace {

UUID const first = *UUID::parse("00112233-4455-6677-8899-AABBCCDDEEFF");
UUID const second = *UUID::parse("10112233-4455-6677-8899-AABBCCDDEEFF");
std::string const firstText = R"({"version":1,"snapshotID":"00112233-4455-6677-8899-AABBCCDDEEFF"})";
DatabaseError const changed("The baseline changed in another window. Refresh What Changed before continuing.");

struct PointerScene {
  TemporaryFolder folder;
  SnapshotStore const store{folder.path()};
  std::filesystem::path const place = folder / "source";
  std::filesystem::path const file = place / "baseline.json";
  BaselinePointer const pointer{store, place};

  PointerScene() { std::filesystem::create_directory(place); }

  std::string text() const { return folder.read("source/baseline.json"); }
  void plant(std::string const& text) const { folder.write("source/baseline.json", text); }
};

TEST(BaselinePointer, HasOneFormInItsFile) {
  PointerScene const scene;
  EXPECT_EQ(scene.pointer.id(), std::nullopt);
  scene.pointer.set(first);
  EXPECT_EQ(scene.text(), firstText);
  EXPECT_EQ(scene.pointer.id(), first);
  scene.pointer.set(second);
  EXPECT_EQ(scene.pointer.id(), second);
  scene.pointer.clear();
  EXPECT_EQ(scene.pointer.id(), std::nullopt);
  EXPECT_TRUE(std::filesystem::is_empty(scene.place));
}

TEST(BaselinePointer, IsNoneWhereTheSourceHasNoFolder) {
  PointerScene const scene;
  EXPECT_EQ(BaselinePointer(scene.store, scene.folder / "absent").id(), std::nullopt);
}

TEST(BaselinePointer, IsComparedWithWhatSomebodySaw) {
  PointerScene const scene;
  DatabaseError const nothing("(nothing failed)", -1);
  EXPECT_EQ(failureOf([&] { scene.pointer.require(std::nullopt); }), nothing) << "none equals none";
  EXPECT_EQ(failureOf([&] { scene.pointer.require(first); }), changed);
  scene.pointer.set(first);
  EXPECT_EQ(failureOf([&] { scene.pointer.require(first); }), nothing);
  EXPECT_EQ(failureOf([&] { scene.pointer.require(second); }), changed);
  EXPECT_EQ(failureOf([&] { scene.pointer.require(std::nullopt); }), changed);
}

TEST(BaselinePointer, HasAtMost4096Bytes) {
  PointerScene const scene;
  scene.plant(firstText + std::string(4096 - firstText.size(), ' '));
  EXPECT_EQ(scene.pointer.id(), first);
  scene.plant(firstText + std::string(4097 - firstText.size(), ' '));
  EXPECT_EQ(failureOf([&] { scene.pointer.id(); }), DatabaseError("Baseline metadata is too large."));
}

TEST(BaselinePointer, HasOneVersion) {
  PointerScene const scene;
  for (char const* version : {"0", "2", "-1"}) {
    SCOPED_TRACE(version);
    scene.plant(R"({"snapshotID":"00112233-4455-6677-8899-aabbccddeeff","version":)" + std::string(version) + "}");
    EXPECT_EQ(failureOf([&] { scene.pointer.id(); }), DatabaseError("Unsupported baseline metadata version."));
  }
  scene.plant(R"({"snapshotID":"00112233-4455-6677-8899-aabbccddeeff","version":1,"later":true})");
  EXPECT_EQ(scene.pointer.id(), first) << "in any order and case, beside what is not known";
}

TEST(BaselinePointer, PassesOnWhyItIsNone) {
  PointerScene const scene;
  for (char const* text : {"", "{}", "[]", "{", R"({"version":1})", R"({"version":1,"snapshotID":"x"})",
                           R"({"version":"1","snapshotID":"00112233-4455-6677-8899-AABBCCDDEEFF"})"}) {
    SCOPED_TRACE(text);
    scene.plant(text);
    EXPECT_NE(jsonFailureOf([&] { scene.pointer.id(); }), "(nothing failed)");
  }
}

TEST(BaselinePointer, NeverFollowsALink) {
  PointerScene const scene;
  scene.folder.write("outside.json", firstText);
  for (char const* target : {"../outside.json", "nowhere", "baseline.json"}) {
    SCOPED_TRACE(target);
    std::filesystem::create_symlink(target, scene.file);
    DatabaseError const unsafe("Unsafe snapshot path.");
    EXPECT_EQ(failureOf([&] { scene.pointer.id(); }), unsafe);
    EXPECT_EQ(failureOf([&] { scene.pointer.set(second); }), unsafe);
    EXPECT_EQ(failureOf([&] { scene.pointer.clear(); }), unsafe);
    std::filesystem::remove(scene.file);
  }
  EXPECT_EQ(scene.folder.read("outside.json"), firstText);
}

TEST(BaselinePointer, WaitsForNothingThatIsNoFile) {
  PointerScene const scene;
  ASSERT_EQ(::mkfifo(scene.file.c_str(), 0600), 0);
  EXPECT_EQ(systemFailureOf([&] { scene.pointer.id(); }), "EINVAL baseline.json");
  std::filesystem::remove(scene.file);
  std::filesystem::create_directory(scene.file);
  EXPECT_EQ(systemFailureOf([&] { scene.pointer.id(); }), "EINVAL baseline.json");
  EXPECT_EQ(systemFailureOf([&] { scene.pointer.set(first); }), "EISDIR baseline.json");
  EXPECT_EQ(systemFailureOf([&] { scene.pointer.clear(); }), "EISDIR baseline.json");
  std::filesystem::remove(scene.file);
  if (::mknod(scene.file.c_str(), S_IFCHR | 0600, makedev(1, 5)) == 0) {
    EXPECT_EQ(systemFailureOf([&] { scene.pointer.id(); }), "EINVAL baseline.json") << "an endless device";
  }
}

TEST(BaselinePointer, IsNotTakenForNoneWhereItCannotBeLookedAt) {
  PointerScene scene;
  scene.folder.openToEverybody();
  scene.pointer.set(first);
  std::filesystem::permissions(scene.place, std::filesystem::perms::all);
  std::filesystem::permissions(scene.file, std::filesystem::perms::none);
  auto const read = [&] { return systemFailureOf([&] { scene.pointer.id(); }); };
  EXPECT_EQ(asUnprivileged(read), "EACCES baseline.json");
  std::filesystem::permissions(scene.place, std::filesystem::perms::none);
  EXPECT_EQ(asUnprivileged(read), "EACCES baseline.json");
  std::filesystem::permissions(scene.place, std::filesystem::perms::all);
}

TEST(BaselinePointer, IsOnTheDiskWithTheFoldersInWhichItStands) {
  TemporaryFolder const folder;
  SnapshotStore const store(folder / "store");
  auto const make = [&] { std::filesystem::create_directories(store.root() / "source"); };
  auto const losses =
      PowerLoss::during(folder.path(), make, [&] { BaselinePointer(store, store.root() / "source").set(first); });
  for (PowerLoss const& loss : losses) {
    SCOPED_TRACE(loss.says);
    auto const found = loss.entries.find("store/source/baseline.json");
    EXPECT_TRUE(found == loss.entries.end() ? !loss.completed : found->second == firstText);
  }
  EXPECT_TRUE(losses.back().completed);
}

TEST(BaselinePointer, IsOldOrNewWhateverFails) {
  PointerScene const scene;
  struct {
    char const* says;
    std::function<void()> operation;
    std::optional<UUID> after;
  } const operations[] = {
      {"replaced", [&] { scene.pointer.set(second); }, second},
      {"cleared", [&] { scene.pointer.clear(); }, std::nullopt},
  };
  for (auto const& now : operations) {
    SCOPED_TRACE(now.says);
    forEachFault(
        scene.folder.path(),
        [&] {
          std::filesystem::remove_all(scene.place);
          std::filesystem::create_directory(scene.place);
          scene.pointer.set(first);
        },
        now.operation,
        [&](FaultMode mode, long, FaultOutcome const& outcome) {
          auto const id = scene.pointer.id();
          EXPECT_TRUE(id == first || id == now.after);
          if (outcome.told == FaultOutcome::Told::success) {
            EXPECT_EQ(id, now.after);
          }
          if (mode != FaultMode::kill) {
            EXPECT_EQ(std::distance(std::filesystem::directory_iterator(scene.place), {}), id ? 1 : 0);
          }
          if (id) now.operation();
          EXPECT_EQ(scene.pointer.id(), now.after);
          std::filesystem::remove_all(scene.place);
        });
  }
}

}  // namespace
}  // namespace tolva
