// SPDX-License-Identifier: Apache-2.0
// What an export wrote as CSV comes back as the same texts, and neither way holds the rows in memory.
#include <gtest/gtest.h>
#include <sys/resource.h>

#include <fstream>
#include <sstream>

#include "core/SQLiteConnection.hpp"
#include "support/Corpora.hpp"
#include "support/Sanitizer.hpp"
#include "support/Unprivileged.hpp"
#include "transfer/ImportScene.hpp"

namespace tolva {
namespace {

/// Exports the table "s" and imports the file as the table "t", which is there, or is made for it.
std::int64_t throughCSV(ImportScene& scene, bool fresh) {
  auto const file = scene.folder / "out.csv";
  scene.transfer.exportRows(scene.database.path(), schemaOf(scene.database.path(), "s"), {}, ExportFormat::csv, file,
                            {}, noTask);
  std::optional<TableSchema> schema;
  if (!fresh) schema = schemaOf(scene.database.path(), "t");
  return scene.import(file, schema);
}

/// The rows of "t" and of "s" that the other lacks, byte for byte.
std::string difference(ImportScene const& scene, std::string const& columns) {
  return scene.rows("SELECT " + columns + " FROM s EXCEPT SELECT " + columns + " FROM t; SELECT " + columns +
                    " FROM t EXCEPT SELECT " + columns + " FROM s");
}

TEST(FileTransferImport, TakesBackWhatWasExported) {
  for (bool const fresh : {true, false}) {
    ImportScene scene(
        "CREATE TABLE s(id INTEGER, a TEXT, r REAL); INSERT INTO s VALUES (1, 'x', 0.5), (-9223372036854775807 - 1, "
        "'', -1.25), (9223372036854775807, char(13, 10, 34, 44, 59, 9), 100.0), (0, '007', 0.1), (5, char(0) || 'b', "
        "123456789.125)");
    if (!fresh) scene.database.run("CREATE TABLE t(id INTEGER, a TEXT, r REAL)");
    EXPECT_EQ(throughCSV(scene, fresh), 5);
    EXPECT_EQ(difference(scene, "typeof(id), id, typeof(a), hex(a), typeof(r), r"), "");
  }
}

TEST(FileTransferImport, TakesBackNaughtyStrings) {
  TOLVA_NEEDS_CORPORA();
  for (bool const fresh : {true, false}) {
    ImportScene scene("CREATE TABLE s(id INTEGER PRIMARY KEY, a TEXT)");
    if (!fresh) scene.database.run("CREATE TABLE t(id INTEGER PRIMARY KEY, a TEXT)");
    std::int64_t count = 0;
    auto const connection = SQLiteConnection::open(scene.database.path(), {.readOnly = false});
    connection->transaction(
        [&] {
          std::istringstream lines(contents(corpusFile("naughty-strings/blns.txt")));
          for (std::string line; std::getline(lines, line); ++count)
            connection->execute("INSERT INTO s(a) VALUES (?)", {SQLiteValue(line)});
        },
        noTask);
    ASSERT_GT(count, 500);
    EXPECT_EQ(throughCSV(scene, fresh), count);
    EXPECT_EQ(difference(scene, "id, typeof(a), hex(a)"), "");
  }
}

// Memory ------------------------------------------------------------------------------------------------

std::filesystem::path fileOfRows(TemporaryFolder const& folder, std::string const& name, int rows) {
  std::ofstream stream(folder / name);
  stream << "a,b,c\n";
  for (int row = 0; row < rows; ++row) stream << row << ",0.5,\"" << std::string(100, 'x') << "\"\n";
  return folder / name;
}

/// The greatest memory of this process so far, in KiB.
long peak() {
  rusage used{};
  ::getrusage(RUSAGE_SELF, &used);
  return used.ru_maxrss;
}

/// Ten times the rows, and both ways, take no more than the first ones did. In a process of its own, which nothing else
/// has made large before.
TEST(FileTransfer, TakesNoMoreMemoryForMoreRows) {
  if (sanitized) GTEST_SKIP() << "The sanitizer's own memory grows.";
  ImportScene scene;
  auto const few = fileOfRows(scene.folder, "few.csv", 30'000);
  auto const many = fileOfRows(scene.folder, "many.csv", 300'000);
  scene.folder.openToEverybody();
  std::filesystem::permissions(scene.database.path(), std::filesystem::perms(0666));
  std::string const told = asUnprivileged([&]() -> std::string {
    auto const bothWays = [&](std::filesystem::path const& file) {
      FileTransfer transfer;
      std::string const table = file.stem();
      auto const& path = scene.database.path();
      std::int64_t const rows = transfer.importCSV(file, path, table, {}, {}, {}, noTask);
      transfer.exportRows(path, schemaOf(path, table), {}, ExportFormat::csv, scene.folder / "out.csv", {}, noTask);
      return rows;
    };
    if (bothWays(few) != 30'000) return "lost rows of the few";
    long const before = peak();
    if (bothWays(many) != 300'000) return "lost rows of the many";
    long const growth = peak() - before;
    return growth <= 4096 ? "flat" : "grew by " + std::to_string(growth) + " KiB";
  });
  EXPECT_EQ(told, "flat");
}

}  // namespace
}  // namespace tolva
