// SPDX-License-Identifier: Apache-2.0
#include "snapshots/SnapshotRecord.hpp"

#include <gtest/gtest.h>
#include <sys/stat.h>
#include <sys/sysmacros.h>

#include <string>

#include "snapshots/StoreScene.hpp"
#include "support/Failure.hpp"
#include "support/FaultInjector.hpp"
#include "support/JSONFailure.hpp"
#include "support/SystemFailure.hpp"
#include "support/Unprivileged.hpp"

namespace tolva {
namespace {

std::string const databaseID(64, 'a');
UUID const id = *UUID::parse("00112233-4455-6677-8899-AABBCCDDEEFF");

/// The folder of one snapshot and its store.
struct RecordScene {
  TemporaryFolder folder;
  SnapshotStore const store{folder / "store"};
  std::filesystem::path const place = store.root() / databaseID / id.text();
  std::filesystem::path const file = place / "metadata.json";

  RecordScene() { std::filesystem::create_directories(place); }

  void plant(std::string const& text) const {
    folder.write(std::filesystem::path(file).lexically_relative(folder.path()), text);
  }
  std::string text() const { return folder.read(file.lexically_relative(folder.path())); }
  Snapshot read() const { return readSnapshotRecord(store, place); }
  Snapshot write(Snapshot const& snapshot) const { return writeSnapshotRecord(store, place, snapshot); }
};

Snapshot sample() {
  Snapshot snapshot;
  snapshot.id = id;
  snapshot.databaseID = databaseID;
  snapshot.sourcePath = "/home/me/live.sqlite";
  snapshot.sourceIdentity = "1:2:3.5";
  snapshot.started = StoreScene::at(800'000'000);
  snapshot.timestamp = StoreScene::at(800'000'001) + std::chrono::milliseconds(500);
  snapshot.label = "before the move";
  snapshot.size = 8192;
  snapshot.sqliteVersion = "3.40.1";
  snapshot.journalMode = "wal";
  snapshot.pageSize = 4096;
  return snapshot;
}

std::string const sampleText =
    R"({"version":1,"id":"00112233-4455-6677-8899-AABBCCDDEEFF","databaseID":")" + databaseID +
    R"(","sourcePath":"\/home\/me\/live.sqlite","sourceIdentity":"1:2:3.5","started":800000000,"timestamp":800000001.5,)" +
    R"("label":"before the move","size":8192,"sqliteVersion":"3.40.1","journalMode":"wal","pageSize":4096})";

std::string replaced(std::string text, std::string const& what, std::string const& by) {
  std::size_t const at = text.find(what);
  if (at == std::string::npos) throw std::logic_error("not there: " + what);
  return text.replace(at, what.size(), by);
}

TEST(SnapshotRecord, HasOneFormInItsFile) {
  RecordScene const scene;
  scene.write(sample());
  EXPECT_EQ(scene.text(), sampleText);
  EXPECT_EQ(scene.read(), sample());
}

TEST(SnapshotRecord, LeavesOutALabelThatIsNotThere) {
  RecordScene const scene;
  Snapshot snapshot = sample();
  snapshot.label.reset();
  scene.write(snapshot);
  EXPECT_EQ(scene.text(), replaced(sampleText, R"("label":"before the move",)", ""));
  EXPECT_EQ(scene.read(), snapshot);
  EXPECT_EQ(scene.read().title(), "Snapshot");
  EXPECT_EQ(sample().title(), "before the move");
}

TEST(SnapshotRecord, IsReturnedAsItWillBeRead) {
  RecordScene const scene;
  Snapshot snapshot = sample();
  snapshot.timestamp += std::chrono::nanoseconds(123'456'789);
  snapshot.sourcePath = "/home/\xFFme/\xC3\xA4";
  snapshot.label = "cut \xC3";
  Snapshot const written = scene.write(snapshot);
  EXPECT_EQ(written.sourcePath, "/home/\xEF\xBF\xBDme/\xC3\xA4");
  EXPECT_EQ(written.label, "cut \xEF\xBF\xBD");
  EXPECT_EQ(scene.read(), written);
  EXPECT_EQ(scene.write(written), written) << "and stays so";
}

TEST(SnapshotRecord, CanBeReadAgainWhateverItsTexts) {
  RecordScene const scene;
  Snapshot snapshot = sample();
  for (int byte = 0; byte < 256; ++byte) {
    SCOPED_TRACE(byte);
    snapshot.sourcePath = std::string(4095, static_cast<char>(byte));
    snapshot.label = std::string(240, static_cast<char>(byte));
    Snapshot const written = scene.write(snapshot);
    EXPECT_LT(std::filesystem::file_size(scene.file), 65'536U);
    EXPECT_EQ(scene.read(), written);
  }
}

TEST(SnapshotRecord, HasAtMost65535Bytes) {
  RecordScene const scene;
  scene.plant(sampleText + std::string(65'535 - sampleText.size(), ' '));
  EXPECT_EQ(scene.read(), sample());
  scene.plant(sampleText + std::string(65'536 - sampleText.size(), ' '));
  EXPECT_EQ(failureOf([&] { scene.read(); }), DatabaseError("Snapshot metadata is too large."));
}

TEST(SnapshotRecord, IsNotWrittenBeyondItsLimit) {
  RecordScene const scene;
  scene.write(sample());
  Snapshot snapshot = sample();
  std::size_t const rest = sampleText.size() - std::string(R"(\/home\/me\/live.sqlite)").size();
  snapshot.sourcePath = std::string(65'536 - rest, 'p');
  EXPECT_EQ(failureOf([&] { scene.write(snapshot); }), DatabaseError("Snapshot metadata is too large."));
  EXPECT_EQ(scene.read(), sample());
  snapshot.sourcePath.pop_back();
  scene.write(snapshot);
  EXPECT_EQ(std::filesystem::file_size(scene.file), 65'535U);
  EXPECT_EQ(scene.read(), snapshot);
}

TEST(SnapshotRecord, BelongsToItsFolder) {
  std::string const other = "10112233-4455-6677-8899-AABBCCDDEEFF";
  struct {
    char const* says;
    std::string text;
  } const cases[] = {
      {"version 0", replaced(sampleText, R"("version":1)", R"("version":0)")},
      {"version 2", replaced(sampleText, R"("version":1)", R"("version":2)")},
      {"another id", replaced(sampleText, id.text(), other)},
      {"another source", replaced(sampleText, databaseID, std::string(64, 'b'))},
      {"no source", replaced(sampleText, databaseID, "")},
  };
  RecordScene const scene;
  for (auto const& now : cases) {
    SCOPED_TRACE(now.says);
    scene.plant(now.text);
    EXPECT_EQ(failureOf([&] { scene.read(); }), DatabaseError("Invalid snapshot metadata."));
  }
  scene.plant(replaced(sampleText, id.text(), "00112233-4455-6677-8899-aabbccddeeff"));
  EXPECT_EQ(scene.read(), sample()) << "either case is read";
  auto const lower = scene.place.parent_path() / "00112233-4455-6677-8899-aabbccddeeff";
  std::filesystem::rename(scene.place, lower);
  EXPECT_EQ(failureOf([&] { readSnapshotRecord(scene.store, lower); }), DatabaseError("Invalid snapshot metadata."));
}

TEST(SnapshotRecord, NeedsEachFieldButItsLabel) {
  RecordScene const scene;
  for (char const* field :
       {R"("version":1,)", R"("sourceIdentity":"1:2:3.5",)", R"("started":800000000,)", R"("timestamp":800000001.5,)",
        R"("size":8192,)", R"("sqliteVersion":"3.40.1",)", R"("journalMode":"wal",)", R"(,"pageSize":4096)"}) {
    SCOPED_TRACE(field);
    scene.plant(replaced(sampleText, field, ""));
    EXPECT_NE(jsonFailureOf([&] { scene.read(); }), "(nothing failed)");
  }
  scene.plant(replaced(sampleText, R"("label":"before the move")", R"("label":null,"later":[1])"));
  EXPECT_EQ(scene.read().label, std::nullopt);
}

TEST(SnapshotRecord, PassesOnWhyItIsNone) {
  struct {
    char const* says;
    std::string text;
  } const cases[] = {
      {"nothing", ""},
      {"no JSON", "{"},
      {"a list", "[]"},
      {"a text for a number", replaced(sampleText, "8192", R"("8192")")},
      {"a number beyond 64 bits", replaced(sampleText, "8192", "9223372036854775808")},
      {"no UUID", replaced(sampleText, id.text(), "00112233")},
      {"a date beyond the clock", replaced(sampleText, "800000001.5", "1e300")},
      {"no UTF-8", replaced(sampleText, "before", "\xFF")},
      {"a torn end", sampleText.substr(0, sampleText.size() - 1)},
      {"zeros", std::string(4096, '\0')},
      {"a deep nest", std::string(60'000, '[')},
  };
  RecordScene const scene;
  for (auto const& now : cases) {
    SCOPED_TRACE(now.says);
    scene.plant(now.text);
    EXPECT_NE(jsonFailureOf([&] { scene.read(); }), "(nothing failed)");
  }
}

TEST(SnapshotRecord, TellsThatItsFileIsMissingOrNoFile) {
  RecordScene scene;
  EXPECT_EQ(systemFailureOf([&] { scene.read(); }), "ENOENT metadata.json");
  std::filesystem::create_directory(scene.file);
  EXPECT_EQ(systemFailureOf([&] { scene.read(); }), "EINVAL metadata.json");
  EXPECT_EQ(systemFailureOf([&] { scene.write(sample()); }), "EISDIR metadata.json");
  std::filesystem::remove(scene.file);
  ASSERT_EQ(::mkfifo(scene.file.c_str(), 0600), 0);
  EXPECT_EQ(systemFailureOf([&] { scene.read(); }), "EINVAL metadata.json");
  std::filesystem::remove(scene.file);
  if (::mknod(scene.file.c_str(), S_IFCHR | 0600, makedev(1, 5)) == 0) {
    EXPECT_EQ(systemFailureOf([&] { scene.read(); }), "EINVAL metadata.json") << "an endless device";
  }
}

TEST(SnapshotRecord, IsNeverReadOrWrittenThroughALink) {
  RecordScene const scene;
  scene.folder.write("outside.json", sampleText);
  std::filesystem::create_symlink(scene.folder / "outside.json", scene.file);
  EXPECT_EQ(failureOf([&] { scene.read(); }), DatabaseError("Unsafe snapshot path."));
  Snapshot renamed = sample();
  renamed.label = "other";
  EXPECT_EQ(failureOf([&] { scene.write(renamed); }), DatabaseError("Unsafe snapshot path."));
  EXPECT_EQ(scene.folder.read("outside.json"), sampleText);
}

TEST(SnapshotRecord, TellsThatItMayNotBeRead) {
  RecordScene scene;
  scene.folder.openToEverybody();
  std::filesystem::permissions(scene.file.parent_path(), std::filesystem::perms::all);
  scene.plant(sampleText);
  std::filesystem::permissions(scene.file, std::filesystem::perms::none);
  EXPECT_EQ(asUnprivileged([&] { return systemFailureOf([&] { scene.read(); }); }), "EACCES metadata.json");
}

TEST(SnapshotRecord, IsOldOrNewWhateverFails) {
  RecordScene const scene;
  Snapshot renamed = sample();
  renamed.label = "new";
  forEachFault(
      scene.folder.path(),
      [&] {
        std::filesystem::remove_all(scene.place);
        std::filesystem::create_directories(scene.place);
        scene.write(sample());
      },
      [&] { scene.write(renamed); },
      [&](FaultMode mode, long, FaultOutcome const& outcome) {
        Snapshot const now = scene.read();
        EXPECT_TRUE(now == sample() || now == renamed);
        if (outcome.told == FaultOutcome::Told::success) {
          EXPECT_EQ(now, renamed);
        }
        if (mode != FaultMode::kill) {
          EXPECT_EQ(std::distance(std::filesystem::directory_iterator(scene.place), {}), 1);
        }
        EXPECT_EQ(scene.write(renamed), renamed);
        std::filesystem::remove_all(scene.place);
      });
}

TEST(SnapshotRecord, TrimsALabel) {
  struct {
    std::string given;
    std::optional<std::string> label;
  } const cases[] = {
      {"name", "name"},
      {" \t\n name  with blanks\r\n", "name  with blanks"},
      {"\xC2\xA0\xE2\x80\xA8name\xE3\x80\x80", "name"},
      {"", std::nullopt},
      {" \n\t ", std::nullopt},
      {"\xFFx", "\xEF\xBF\xBDx"},
      {std::string("a\0b", 3), std::string("a\0b", 3)},
      {std::string(240, 'x'), std::string(240, 'x')},
      {"  " + std::string(240, 'x') + "\n", std::string(240, 'x')},
  };
  for (auto const& now : cases) {
    SCOPED_TRACE(now.given);
    EXPECT_EQ(trimmedLabel(now.given), now.label);
  }
}

TEST(SnapshotRecord, RefusesALabelOfMoreThan240Bytes) {
  std::string umlauts;
  for (int count = 0; count < 120; ++count) umlauts += "\xC3\xA4";
  EXPECT_EQ(trimmedLabel(umlauts), umlauts);
  for (std::string const& label : {std::string(241, 'x'), umlauts + "x", std::string(81, '\xFF')}) {
    SCOPED_TRACE(label);
    EXPECT_EQ(failureOf([&] { trimmedLabel(label); }),
              DatabaseError("Use a snapshot name of at most 240 UTF-8 bytes."));
  }
}

}  // namespace
}  // namespace tolva
