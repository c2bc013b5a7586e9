// SPDX-License-Identifier: Apache-2.0
#include <gtest/gtest.h>
#include <sqlite3.h>

#include <chrono>
#include <filesystem>
#include <memory>
#include <sstream>
#include <string>
#include <vector>

#include "core/DatabaseReader.hpp"
#include "platform/Uptime.hpp"
#include "support/Corpora.hpp"
#include "support/Failure.hpp"
#include "support/NoTask.hpp"
#include "support/RowsAsText.hpp"
#include "support/TemporaryFolder.hpp"

// Databases that others made or damaged: sound ones, those on which SQLite was found to stumble, and those that hostile
// SQL makes. The interesting verdict is the address sanitizer's.

namespace tolva {
namespace {

/// One line of a list of what a preview must answer.
struct ExpectedPreview {
  std::string file;
  std::int32_t code = 0;
  std::string counts;
  std::string message;
};

std::vector<ExpectedPreview> expectedPreviews(std::string const& folder) {
  std::istringstream manifest(contents(corpusFile(folder + "/MANIFEST.tsv")));
  std::vector<ExpectedPreview> all;
  std::string line;
  std::getline(manifest, line);  // the names of the fields
  while (std::getline(manifest, line)) {
    std::istringstream fields(line);
    std::string code, tables, views, indexes;
    ExpectedPreview& expected = all.emplace_back();
    for (std::string* const field : {&expected.file, &code, &tables, &views, &indexes, &expected.message})
      std::getline(fields, *field, '\t');
    expected.code = std::stoi(code);
    if (expected.file == "corruptL-014.db") tables = "1";  // the type of the other is a blob, not the text "table"
    expected.counts = tables + " tables · " + views + " views · " + indexes + " indexes\n";
  }
  return all;
}

/// What is wrong with the preview of a file, or nothing.
std::string contradiction(std::filesystem::path const& path, ExpectedPreview const& expected) {
  try {
    std::string const text = DatabaseReader().preview(path, noTask);
    std::string const begin = path.filename().string() + "\nSQLite Database\n\n" + expected.counts;
    return expected.code == 0 && text.starts_with(begin) ? "" : "answers " + text;
  } catch (DatabaseError const& error) {
    bool const known = (error.code & 0xFF) == expected.code && error.detail == expected.message;
    return known ? "" : "fails with " + std::to_string(error.code) + " " + error.detail;
  }
}

/// Reads whatever a file has to tell. Failures of SQLite are what damage is for; nothing else may happen.
void readEverything(std::filesystem::path const& path) {
  DatabaseReader reader;
  auto const trying = [](auto const& read) { failureOf(read); };
  trying([&] {
    for (DatabaseObject const& object : reader.open(path, noTask)) {
      trying([&] { reader.structure(reader.schema(object)); });
      trying([&] { reader.structure({.object = object}); });
    }
  });
  trying([&] { reader.preview(path, noTask); });
}

void checkCorpus(std::string const& folder) {
  for (ExpectedPreview const& expected : expectedPreviews(folder)) {
    SCOPED_TRACE(expected.file);
    std::string const bytes = contents(corpusFile(folder + "/" + expected.file));
    TemporaryFolder const work;
    auto const path = work.write(expected.file, bytes);
    EXPECT_EQ(contradiction(path, expected), "");
    readEverything(path);
    EXPECT_TRUE(work.read(expected.file) == bytes) << "the file was changed";
  }
}

TEST(DamagedDatabase, OfTheMalformedCorpusIsPreviewedAsSQLiteReadsIt) {
  TOLVA_NEEDS_CORPORA();
  checkCorpus("sqlite-malformed");
}

TEST(DamagedDatabase, IsNoneOfTheGoodCorpus) {
  TOLVA_NEEDS_CORPORA();
  checkCorpus("sqlite-good");
}

TEST(DamagedDatabase, TellsTheSchemaOfARealOne) {
  TOLVA_NEEDS_CORPORA();
  TemporaryFolder const work;
  auto const path = work.write("Chinook.db", contents(corpusFile("sqlite-good/Chinook_Sqlite.sqlite")));
  DatabaseReader reader;
  auto const objects = reader.open(path, noTask);
  ASSERT_EQ(objects.size(), 11);
  EXPECT_EQ(objects.at(0).name, "Album");
  TableSchema const album = reader.schema(objects.at(0));
  EXPECT_EQ(album.columns.at(1), (DatabaseColumn{.name = "Title", .type = "NVARCHAR(160)", .required = true}));
  EXPECT_EQ(album.identity, std::vector<std::string>{"AlbumId"});
  StructureDetails const details = reader.structure(album);
  EXPECT_EQ(details.indexes, (std::vector<StructureDetails::Row>{{"IFK_AlbumArtistId", "", "ArtistId, NULL"}}));
  EXPECT_EQ(
      details.foreignKeys,
      (std::vector<StructureDetails::Row>{{"ArtistId", "Artist.ArtistId", "Update: NO ACTION · Delete: NO ACTION"}}));
}

// Scripts ------------------------------------------------------------------------------------------

/// Runs a hostile script on a database in memory for some milliseconds, and gives the database's bytes.
std::string databaseMadeBy(std::string const& script) {
  sqlite3* opened = nullptr;
  sqlite3_open_v2(":memory:", &opened, SQLITE_OPEN_READWRITE | SQLITE_OPEN_MEMORY, nullptr);
  std::unique_ptr<sqlite3, int (*)(sqlite3*)> const connection(opened, sqlite3_close_v2);
  sqlite3_limit(opened, SQLITE_LIMIT_LENGTH, 1'000'000);
  sqlite3_limit(opened, SQLITE_LIMIT_ATTACHED, 0);
  Uptime deadline = uptime() + std::chrono::milliseconds(20);
  auto const isLate = [](void* until) noexcept { return uptime() > *static_cast<Uptime*>(until) ? 1 : 0; };
  sqlite3_progress_handler(opened, 100, isLate, &deadline);
  sqlite3_exec(opened, "PRAGMA max_page_count = 1000", nullptr, nullptr, nullptr);
  sqlite3_exec(opened, script.c_str(), nullptr, nullptr, nullptr);
  sqlite3_progress_handler(opened, 0, nullptr, nullptr);
  sqlite3_exec(opened, "COMMIT", nullptr, nullptr, nullptr);  // of a transaction that the script left open
  sqlite3_int64 size = 0;
  unsigned char* const image = sqlite3_serialize(opened, "main", &size, 0);
  std::string const bytes(reinterpret_cast<char const*>(image), image ? static_cast<std::size_t>(size) : 0);
  sqlite3_free(image);
  return bytes;
}

std::vector<std::string> scripts() {
  TemporaryFolder const work;
  auto const path = work.write("scripts.db", contents(corpusFile("sqlite-fuzz-sql/fuzzdata6.db")));
  std::istringstream rows(rowsAsText(path, "SELECT hex(sqltext) FROM xsql"));
  std::vector<std::string> all;
  for (std::string hex; rows >> hex;) {
    std::string& script = all.emplace_back();
    for (std::size_t digit = 0; digit + 1 < hex.size(); digit += 2)
      script += static_cast<char>(std::stoi(hex.substr(digit, 2), nullptr, 16));
  }
  return all;
}

TEST(DamagedDatabase, MadeByAHostileScriptIsReadWithoutChange) {
  TOLVA_NEEDS_CORPORA();
  std::vector<std::string> const all = scripts();
  ASSERT_EQ(all.size(), 3896);
  TemporaryFolder const work;
  std::size_t made = 0;
  for (std::size_t script = 0; script < all.size(); script += 8) {
    SCOPED_TRACE(all[script]);
    std::string const bytes = databaseMadeBy(all[script]);
    if (bytes.empty()) continue;
    ++made;
    auto const path = work.write("t.db", bytes);
    readEverything(path);
    EXPECT_TRUE(work.read("t.db") == bytes) << "the file was changed";
    for (char const* const companion : {"t.db-wal", "t.db-shm"}) std::filesystem::remove(work / companion);
  }
  EXPECT_GT(made, 300);
}

}  // namespace
}  // namespace tolva
