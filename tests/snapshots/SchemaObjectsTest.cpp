// SPDX-License-Identifier: Apache-2.0
#include "snapshots/SchemaObjects.hpp"

#include <gtest/gtest.h>

#include <string>

#include "snapshots/ComparisonScene.hpp"
#include "support/HostileDatabases.hpp"
#include "support/SchemaPages.hpp"

namespace tolva {
namespace {

std::string keysOf(TemporaryDatabase const& database, std::stop_token task = noTask) {
  auto const connection = SQLiteConnection::open(database.path(), {.readOnly = true});
  std::string keys;
  for (auto const& [key, object] : readSchemaObjects(*connection, "main", task)) keys += key.text + " ";
  return keys;
}

/// So many views, of `bytes` bytes of SQL each.
std::string views(int count, std::size_t bytes) {
  std::string sql = "BEGIN;";
  for (int view = 0; view < count; ++view) {
    std::string definition = "CREATE VIEW v" + std::to_string(10'000 + view) + " AS SELECT 1 --";
    if (definition.size() < bytes) definition += std::string(bytes - definition.size(), 'x');
    sql += definition + "\n;";
  }
  return sql + "COMMIT";
}

TEST(SchemaObjects, AreAllButTheOnesOfSQLite) {
  TemporaryDatabase const database(
      "CREATE TABLE t(a UNIQUE, b INTEGER PRIMARY KEY AUTOINCREMENT); CREATE VIEW v AS SELECT 1;"
      "CREATE INDEX i ON t(b); CREATE TRIGGER r AFTER INSERT ON t BEGIN SELECT 1; END; CREATE TABLE sqlitet(a); "
      "ANALYZE");
  EXPECT_EQ(keysOf(database), "index:i table:sqlitet table:t trigger:r view:v ");
}

TEST(SchemaObjects, HaveTheirNamesAndDefinitions) {
  for (char const* encoding : {"UTF-8", "UTF-16le", "UTF-16be"}) {
    TemporaryDatabase const database("PRAGMA encoding='" + std::string(encoding) +
                                     "'; CREATE VIEW \"\u00e4\" AS SELECT 1");
    auto const connection = SQLiteConnection::open(database.path(), {.readOnly = true});
    auto const objects = readSchemaObjects(*connection, "main", noTask);
    ASSERT_EQ(objects.size(), 1U);
    SchemaObject const& object = objects.begin()->second;
    EXPECT_EQ(object.kind, "view");
    EXPECT_EQ(object.name, "\u00e4");
    EXPECT_EQ(object.table, "\u00e4");
    EXPECT_EQ(object.sql, "CREATE VIEW \"\u00e4\" AS SELECT 1");
    EXPECT_EQ(object.definition == object.sql, encoding == std::string("UTF-8"));
    EXPECT_EQ(object.definition.size(), encoding == std::string("UTF-8") ? 28U : 54U);
  }
}

TEST(SchemaObjects, AreReadNoFurtherForACancelledTask) {
  std::stop_source task;
  task.request_stop();
  EXPECT_THROW(keysOf(TemporaryDatabase("CREATE TABLE t(a)"), task.get_token()), TaskCancelled);
}

TEST(SchemaObjects, AreAtMost4096) {
  ComparisonScene scene;
  EXPECT_EQ(scene.compare("CREATE TABLE t(a)", views(4096, 0)).size(), 4097U);
  DatabaseError const tooMany("Schema exceeds comparison limits (4096 objects, 64 KiB per definition).");
  EXPECT_EQ(failureOf([&] { scene.compare("CREATE TABLE t(a)", views(4097, 0)); }), tooMany);
  EXPECT_EQ(failureOf([&] { scene.compare(views(4097, 0), "CREATE TABLE t(a)"); }), tooMany);
  EXPECT_TRUE(scene.left().empty());
}

TEST(SchemaObjects, HaveDefinitionsOfAtMost64KiB) {
  for (char const* encoding : {"UTF-8", "UTF-16le"}) {
    std::string const wide = "PRAGMA encoding='" + std::string(encoding) + "';";
    ComparisonScene scene;
    EXPECT_EQ(summaryOf(scene.compareWith(wide, "", views(1, 65'536))), "view:v10000 Added 0 0 0\n");
    EXPECT_EQ(failureOf([&] { scene.compareWith(wide, "", views(1, 65'537)); }),
              DatabaseError("Schema exceeds comparison limits (4096 objects, 64 KiB per definition)."));
    EXPECT_TRUE(scene.left().empty());
  }
}

TEST(SchemaObjects, ComeToAtMost4MiB) {
  ComparisonScene scene;
  // 64 of 65,530 bytes and names of 6 make 4 MiB.
  EXPECT_EQ(scene.compare("", views(64, 65'530)).size(), 64U);
  std::string const more = views(64, 65'530) + "; CREATE VIEW w AS SELECT 1";
  EXPECT_EQ(failureOf([&] { scene.compare("", more); }), DatabaseError("Schema exceeds the 4 MiB comparison budget."));
  EXPECT_EQ(failureOf([&] {
              scene.compare("", views(63, 65'530) + ";" + views(1, 65'531).replace(0, 24, "BEGIN;CREATE VIEW v20000 "));
            }),
            DatabaseError("Schema exceeds the 4 MiB comparison budget."));
  EXPECT_TRUE(scene.left().empty());
}

TEST(SchemaObjects, AreTextAndNothingElse) {
  std::string const sql = "CREATE TABLE t(a UNIQUE); PRAGMA writable_schema=ON; UPDATE sqlite_schema SET ";
  for (std::string const change :
       {"name = 'SQLITE_autoindex_t_1' WHERE type = 'index'", "sql = CAST(sql AS BLOB) WHERE type = 'table'",
        "name = CAST(name AS BLOB) WHERE type = 'table'"}) {
    ComparisonScene scene;
    EXPECT_EQ(failureOf([&] { scene.compare("CREATE TABLE t(a UNIQUE)", sql + change); }),
              DatabaseError("Schema exceeds comparison limits (4096 objects, 64 KiB per definition)."))
        << change;
    EXPECT_TRUE(scene.left().empty());
  }
}

TEST(SchemaObjects, OfHostileFilesEndInAnErrorThatLeavesNothing) {
  ComparisonScene scene;
  Lease const plain = scene.snapshot("plain.db", "CREATE TABLE t(a)");
  struct HostileCase {
    char const* says;
    void (*write)(std::filesystem::path const&);
  };
  HostileCase const cases[] = {{"a long list", writeLongList},
                               {"an endless schema", writeEndlessSchema},
                               {"shared blanks", [](std::filesystem::path const& path) { writeSharedSQL(path); }},
                               {"many kinds", writeManyKinds}};
  for (HostileCase const& each : cases) {
    SCOPED_TRACE(each.says);
    each.write(scene.folder / "hostile.db");
    Lease const hostile = scene.lease("hostile.db");
    DatabaseDiffService service({.totalSeconds = 0.5});
    EXPECT_NE(failureOf([&] { service.compare(plain, hostile, {}, noTask); }).code, -1);
    EXPECT_NE(failureOf([&] { service.compare(hostile, plain, {}, noTask); }).code, -1);
    EXPECT_TRUE(scene.left().empty());
  }
}

TEST(SchemaObjects, OfHostileViewsTakeNoMoreThanTheTime) {
  ComparisonScene scene;
  writeMultiplyingViews(scene.folder / "before.db");
  std::filesystem::copy_file(scene.folder / "before.db", scene.folder / "after.db");
  DatabaseDiffService service({.totalSeconds = 1});
  DatabaseError const failure =
      failureOf([&] { service.compare(scene.lease("before.db"), scene.lease("after.db"), {}, noTask); });
  EXPECT_EQ(failure, DatabaseError("Comparison exceeded five minutes. No complete result is available."));
  EXPECT_TRUE(scene.left().empty());
}

}  // namespace
}  // namespace tolva
