// SPDX-License-Identifier: Apache-2.0
// What `DatabaseWriter::modifySchema` does, and what it leaves behind when the disk fails or the process dies.
#include <gtest/gtest.h>

#include <functional>

#include "core/DatabaseWriter.hpp"
#include "platform/TaskCancellation.hpp"
#include "support/Failure.hpp"
#include "support/FaultInjector.hpp"
#include "support/NoTask.hpp"
#include "support/SQLitePeer.hpp"
#include "support/TemporaryDatabase.hpp"
#include "support/TemporaryFolder.hpp"

namespace tolva {
namespace {

constexpr char const* schemaSQL = "SELECT sql FROM sqlite_schema ORDER BY name";

struct Scene {
  explicit Scene(std::string const& sql = "CREATE TABLE t(a, b); CREATE INDEX i ON t(a); INSERT INTO t VALUES (1, 2);")
      : database(folder, "a.db", sql) {
    writer.open(database.path());
  }

  std::filesystem::path modify(SchemaChange::Case change, std::stop_token task = noTask) {
    return writer.modifySchema(SchemaChange(std::move(change)), backups, task);
  }
  std::string schema() const { return database.rows(schemaSQL); }
  std::ptrdiff_t backupCount() const {
    if (!std::filesystem::exists(backups)) return 0;
    return std::distance(std::filesystem::directory_iterator(backups), std::filesystem::directory_iterator());
  }

  TemporaryFolder folder;
  std::filesystem::path const backups = folder / "backups";
  TemporaryDatabase const database;
  DatabaseWriter writer;
};

struct ChangeCase {
  char const* says;
  SchemaChange::Case change;
  char const* schema;  // after it
};

ChangeCase const changeCases[] = {
    {"createTable", SchemaChange::CreateTable{"n\"n", {{.name = "x\"", .type = "INTEGER", .primaryKey = true}}},
     "CREATE INDEX i ON t(a)\nCREATE TABLE \"n\"\"n\" (\"x\"\"\" INTEGER PRIMARY KEY)\nCREATE TABLE t(a, b)"},
    {"renameTable", SchemaChange::RenameTable{"t", "u\"u"},
     "CREATE INDEX i ON \"u\"\"u\"(a)\nCREATE TABLE \"u\"\"u\"(a, b)"},
    {"addColumn", SchemaChange::AddColumn{"t", {.name = "c", .type = "TEXT", .defaultSQL = "'x'"}},
     "CREATE INDEX i ON t(a)\nCREATE TABLE t(a, b, \"c\" TEXT DEFAULT 'x')"},
    {"renameColumn", SchemaChange::RenameColumn{"t", "a", "\"a"},
     "CREATE INDEX i ON t(\"\"\"a\")\nCREATE TABLE t(\"\"\"a\", b)"},
    {"createIndex", SchemaChange::CreateIndex{"j", "t", "b", true},
     "CREATE INDEX i ON t(a)\nCREATE UNIQUE INDEX \"j\" ON \"t\" (\"b\")\nCREATE TABLE t(a, b)"},
    {"dropTable", SchemaChange::DropTable{"t"}, ""},
    {"dropIndex", SchemaChange::DropIndex{"i"}, "CREATE TABLE t(a, b)"},
};

TEST(DatabaseWriterSchema, ChangesBehindABackup) {
  for (ChangeCase const& one : changeCases) {
    SCOPED_TRACE(one.says);
    Scene scene;
    std::string const before = scene.schema();
    std::filesystem::path const backup = scene.modify(one.change);
    EXPECT_EQ(scene.schema(), one.schema);
    EXPECT_EQ(rowsAsText(backup, schemaSQL), before);
    EXPECT_EQ(rowsAsText(backup, "SELECT * FROM t"), "1|2");
    EXPECT_EQ(scene.backupCount(), 1);
  }
}

struct RefusedCase {
  char const* says;
  SchemaChange::Case change;
  DatabaseError failure;
};

RefusedCase const refusedCases[] = {
    {"a type with an unmatched parenthesis", SchemaChange::AddColumn{"t", {.name = "c", .type = "INT("}},
     DatabaseError(R"(incomplete input [ALTER TABLE "t" ADD COLUMN "c" INT(])", 1)},
    {"a table that is not there", SchemaChange::DropTable{"u"},
     DatabaseError(R"(no such table: u [DROP TABLE "u"])", 1)},
    {"a name that is taken", SchemaChange::CreateTable{"t", {{.name = "a", .type = ""}}},
     DatabaseError(R"(table "t" already exists [CREATE TABLE "t" ("a" )])", 1)},
};

TEST(DatabaseWriterSchema, KeepsTheBackupOfAChangeThatFails) {
  for (RefusedCase const& one : refusedCases) {
    SCOPED_TRACE(one.says);
    Scene scene;
    std::string const before = scene.schema();
    EXPECT_EQ(failureOf([&] { scene.modify(one.change); }), one.failure);
    EXPECT_EQ(scene.schema(), before);
    EXPECT_EQ(scene.backupCount(), 1);
    EXPECT_NO_THROW(scene.modify(SchemaChange::DropIndex{"i"}));
  }
}

TEST(DatabaseWriterSchema, DropsATableWithTheRowsThatHangOnIt) {
  Scene scene(
      "CREATE TABLE p(id INTEGER PRIMARY KEY); CREATE TABLE gone(id REFERENCES p ON DELETE CASCADE); "
      "CREATE TABLE freed(id REFERENCES p ON DELETE SET NULL); "
      "INSERT INTO p VALUES (1); INSERT INTO gone VALUES (1); INSERT INTO freed VALUES (1);");
  std::string const content = "SELECT count(*), 'gone' FROM gone; SELECT count(id), 'freed' FROM freed";
  std::filesystem::path const backup = scene.modify(SchemaChange::DropTable{"p"});
  EXPECT_EQ(scene.database.rows(content), "0|gone\n0|freed");
  EXPECT_EQ(rowsAsText(backup, content), "1|gone\n1|freed");
}

/// Only the first statement of the text runs.
TEST(DatabaseWriterSchema, CutsADefaultThatGoesOnWithAnotherStatement) {
  Scene scene;
  scene.modify(SchemaChange::AddColumn{"t", {.name = "c", .type = "INT", .defaultSQL = "1; DROP TABLE t"}});
  EXPECT_EQ(scene.database.rows("SELECT a, b, c FROM t"), "1|2|1");
}

RefusedCase const unfitCases[] = {
    {"a column of a view", SchemaChange::AddColumn{"v", {.name = "c", .type = "INT"}},
     DatabaseError(R"(Cannot add a column to a view [ALTER TABLE "v" ADD COLUMN "c" INT])", 1)},
    {"a view as a table", SchemaChange::DropTable{"v"},
     DatabaseError(R"(use DROP VIEW to delete view v [DROP TABLE "v"])", 1)},
    {"another name for a view", SchemaChange::RenameTable{"v", "w"},
     DatabaseError(R"(view v may not be altered [ALTER TABLE "v" RENAME TO "w"])", 1)},
    {"another name in a view", SchemaChange::RenameColumn{"v", "a", "c"},
     DatabaseError(R"(cannot rename columns of view "v" [ALTER TABLE "v" RENAME COLUMN "a" TO "c"])", 1)},
    {"an index on a view", SchemaChange::CreateIndex{"j", "v", "a"},
     DatabaseError(R"(views may not be indexed [CREATE INDEX "j" ON "v" ("a")])", 1)},
    {"a column of a virtual table", SchemaChange::AddColumn{"x", {.name = "c", .type = "INT"}},
     DatabaseError(R"(virtual tables may not be altered [ALTER TABLE "x" ADD COLUMN "c" INT])", 1)},
    {"another name in a virtual table", SchemaChange::RenameColumn{"x", "a", "c"},
     DatabaseError(R"(cannot rename columns of virtual table "x" [ALTER TABLE "x" RENAME COLUMN "a" TO "c"])", 1)},
    {"an index on a virtual table", SchemaChange::CreateIndex{"j", "x", "a"},
     DatabaseError(R"(virtual tables may not be indexed [CREATE INDEX "j" ON "x" ("a")])", 1)},
    {"another name for no column", SchemaChange::RenameColumn{"t", "z", "c"},
     DatabaseError(R"(no such column: ""z"" [ALTER TABLE "t" RENAME COLUMN "z" TO "c"])", 1)},
    {"an index on no column", SchemaChange::CreateIndex{"j", "t", "z"},
     DatabaseError(R"(no such column: z [CREATE INDEX "j" ON "t" ("z")])", 1)},
    {"an index on the empty name", SchemaChange::CreateIndex{"j", "t", ""},
     DatabaseError(R"(no such column:  [CREATE INDEX "j" ON "t" ("")])", 1)},
    {"the empty name of no table", SchemaChange::DropTable{""}, DatabaseError(R"(no such table:  [DROP TABLE ""])", 1)},
    {"the empty name of no index", SchemaChange::DropIndex{""}, DatabaseError(R"(no such index:  [DROP INDEX ""])", 1)},
    {"a table without columns", SchemaChange::CreateTable{"n", {}},
     DatabaseError("near \")\": syntax error [CREATE TABLE \"n\" ()]", 1)},
    {"a name that SQLite keeps for itself", SchemaChange::CreateTable{"sqlite_n", {{.name = "a", .type = "INT"}}},
     DatabaseError(R"(object name reserved for internal use: sqlite_n [CREATE TABLE "sqlite_n" ("a" INT)])", 1)},
    {"the schema itself", SchemaChange::DropTable{"sqlite_schema"},
     DatabaseError(R"(table sqlite_master may not be dropped [DROP TABLE "sqlite_schema"])", 1)},
};

TEST(DatabaseWriterSchema, RefusesWhatDoesNotFit) {
  Scene scene("CREATE TABLE t(a, b); CREATE VIEW v AS SELECT a FROM t; CREATE VIRTUAL TABLE x USING fts5(a);");
  std::string const before = scene.schema();
  for (RefusedCase const& one : unfitCases) {
    SCOPED_TRACE(one.says);
    EXPECT_EQ(failureOf([&] { scene.modify(one.change); }), one.failure);
    EXPECT_EQ(scene.schema(), before);
  }
}

/// SQLite takes any bytes for a name, and none.
TEST(DatabaseWriterSchema, TakesNamesThatAreEmptyOrNoUTF8) {
  for (std::string const name : {"", "n\xff", "\xc3"}) {
    SCOPED_TRACE(name);
    Scene scene;
    scene.modify(SchemaChange::CreateTable{name, {{.name = name, .type = "INT"}}});
    scene.modify(SchemaChange::CreateIndex{name + "j", name, name});
    scene.modify(SchemaChange::RenameColumn{name, name, "c"});
    scene.modify(SchemaChange::RenameTable{name, "u"});
    EXPECT_EQ(scene.database.rows("INSERT INTO u(c) VALUES (1); SELECT c FROM u"), "1");
    scene.modify(SchemaChange::DropIndex{name + "j"});
    scene.modify(SchemaChange::RenameTable{"u", name});
    scene.modify(SchemaChange::DropTable{name});
    EXPECT_EQ(scene.schema(), "CREATE INDEX i ON t(a)\nCREATE TABLE t(a, b)");
  }
}

/// SQLite would take its name for a string, and in a unique index on that there is room for one row alone.
TEST(DatabaseWriterSchema, MakesNoIndexOnAColumnThatIsNotThere) {
  for (bool const unique : {false, true}) {
    SCOPED_TRACE(unique);
    Scene scene;
    ASSERT_EQ(SQLitePeer(scene.database.path()).exec("ALTER TABLE t DROP COLUMN b"), "ok");
    std::string const before = scene.schema();
    std::string const sql = std::string("CREATE ") + (unique ? "UNIQUE " : "") + R"(INDEX "j" ON "t" ("b"))";
    EXPECT_EQ(failureOf([&] {
                scene.modify(SchemaChange::CreateIndex{"j", "t", "b", unique});
              }),
              DatabaseError("no such column: b [" + sql + "]", 1));
    EXPECT_EQ(scene.schema(), before);
    EXPECT_EQ(scene.backupCount(), 1);
  }
}

/// What a person types reaches SQLite as it stands.
TEST(DatabaseWriterSchema, LetsATypeHoldAStringInDoubleQuotes) {
  Scene scene;
  failureOf([&] { scene.modify(SchemaChange::CreateIndex{"j", "t", "absent"}); });
  scene.modify(SchemaChange::CreateTable{"u", {{.name = "x", .type = R"(TEXT CHECK (x <> "no"))"}}});
  scene.modify(SchemaChange::RenameTable{"u", "w"});
  EXPECT_EQ(scene.database.rows("INSERT INTO w VALUES ('yes'); SELECT x FROM w"), "yes");
}

/// SQLite would read as far as the NUL and take that for the whole.
TEST(DatabaseWriterSchema, RefusesANULBeforeItMakesABackup) {
  std::string const nul("INT\0x", 5);
  SchemaChange::Case const changes[] = {
      SchemaChange::AddColumn{"t", {.name = "c", .type = nul, .required = true, .defaultSQL = "7"}},
      SchemaChange::AddColumn{"t", {.name = "c", .type = "INT", .defaultSQL = std::string("7\0", 2)}},
      SchemaChange::RenameTable{"t", nul},
  };
  for (SchemaChange::Case const& change : changes) {
    Scene scene;
    std::string const before = scene.schema();
    EXPECT_EQ(failureOf([&] { scene.modify(change); }),
              DatabaseError("The change contains a NUL character, where SQLite would stop reading. Remove it.", 1));
    EXPECT_EQ(scene.schema(), before);
    EXPECT_EQ(scene.backupCount(), 0);
  }
}

TEST(DatabaseWriterSchema, ChangesNothingWithoutABackup) {
  Scene scene;
  std::string const before = scene.schema();
  SQLitePeer peer(scene.database.path());
  ASSERT_EQ(peer.exec("BEGIN EXCLUSIVE"), "ok");
  EXPECT_EQ(failureOf([&] { scene.modify(SchemaChange::DropTable{"t"}); }), DatabaseError("database is locked", 5));
  ASSERT_EQ(peer.exec("COMMIT"), "ok");
  EXPECT_EQ(scene.schema(), before);
  EXPECT_EQ(scene.backupCount(), 0);
}

TEST(DatabaseWriterSchema, ChangesNothingForACancelledTask) {
  Scene scene;
  std::stop_source source;
  source.request_stop();
  EXPECT_TRUE(failureOf([&] { scene.modify(SchemaChange::DropTable{"t"}, source.get_token()); }).isCancellation());
  EXPECT_EQ(scene.database.rows("SELECT * FROM t"), "1|2");
  EXPECT_EQ(scene.backupCount(), 0);
}

TEST(DatabaseWriterSchema, FailsWhileTheWriterIsClosed) {
  Scene scene;
  scene.writer.close();
  EXPECT_EQ(failureOf([&] { scene.modify(SchemaChange::DropTable{"t"}); }), DatabaseError("No database is open.", 8));
  EXPECT_EQ(scene.backupCount(), 0);
}

class DatabaseWriterSchemaFaults : public testing::TestWithParam<std::string> {};

TEST_P(DatabaseWriterSchemaFaults, LeaveTheOldSchemaOrTheNewAndTheNewOnlyWithABackup) {
  TemporaryFolder folder;
  std::filesystem::path const path = folder / "a.db";
  std::filesystem::path const backups = folder / "backups";
  SchemaChange const change(SchemaChange::AddColumn{"t", {.name = "b", .type = "INT", .defaultSQL = "7"}});
  auto const makeAnew = [&] {
    for (char const* suffix : {"", "-journal", "-wal", "-shm"}) std::filesystem::remove(path.string() + suffix);
    std::filesystem::remove_all(backups);
    TemporaryDatabase(folder, "a.db",
                      "PRAGMA synchronous = OFF; PRAGMA journal_mode = " + GetParam() +
                          "; CREATE TABLE t(a); INSERT INTO t VALUES (1);");
  };
  auto const run = [&] {
    DatabaseWriter writer;
    writer.open(path);
    writer.modifySchema(change, backups, noTask);
  };
  auto const wholeBackups = [&] {
    int whole = 0;
    if (!std::filesystem::exists(backups)) return whole;
    for (auto const& entry : std::filesystem::directory_iterator(backups)) {
      if (entry.path().filename().native().starts_with(".")) continue;
      EXPECT_EQ(rowsAsText(entry.path(), "SELECT * FROM t; PRAGMA integrity_check"), "1\nok");
      ++whole;
    }
    return whole;
  };
  // In WAL mode a commit whose last write could not be flushed is told as failed and may be found whole all the same.
  auto const agrees = [&](FaultOutcome const& outcome, bool changed) {
    if (outcome.told == FaultOutcome::Told::success) return changed;
    return outcome.told == FaultOutcome::Told::nothing || GetParam() == "WAL" || !changed;
  };
  long const calls = forEachFault(folder.path(), makeAnew, run, [&](FaultMode, long, FaultOutcome const& outcome) {
    EXPECT_EQ(rowsAsText(path, "PRAGMA integrity_check"), "ok");
    std::string const content = rowsAsText(path, "SELECT * FROM t");
    ASSERT_TRUE(content == "1" || content == "1|7") << content;
    bool const changed = content == "1|7";
    EXPECT_TRUE(agrees(outcome, changed)) << outcome.text;
    EXPECT_LE(wholeBackups(), 1);
    EXPECT_GE(wholeBackups(), changed ? 1 : 0);
    if (changed) return;
    run();
    EXPECT_EQ(rowsAsText(path, "SELECT * FROM t"), "1|7");
  });
  EXPECT_GE(calls, 15);
  std::filesystem::remove_all(backups);  // with what the kills left
}

INSTANTIATE_TEST_SUITE_P(InEachJournalMode, DatabaseWriterSchemaFaults, testing::Values("DELETE", "WAL"),
                         [](auto const& mode) { return mode.param; });

}  // namespace
}  // namespace tolva
