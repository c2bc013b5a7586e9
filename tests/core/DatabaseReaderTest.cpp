// SPDX-License-Identifier: Apache-2.0
#include "core/DatabaseReader.hpp"

#include <gtest/gtest.h>
#include <sqlite3.h>

#include <thread>

#include "core/MemoryBudget.hpp"
#include "platform/TaskCancellation.hpp"
#include "support/Failure.hpp"
#include "support/NoTask.hpp"
#include "support/SQLitePeer.hpp"
#include "support/TemporaryDatabase.hpp"
#include "support/TemporaryFolder.hpp"

namespace tolva {
namespace {

using Names = std::vector<std::string>;

/// The schema of the table, or whatever is named so, that `sql` makes.
TableSchema schemaOf(std::string const& sql, std::string const& name = "t", std::string const& kind = "table") {
  TemporaryDatabase const database(sql);
  DatabaseReader reader;
  reader.open(database.path(), noTask);
  return reader.schema({.name = name, .kind = kind, .sql = ""});
}

Names columnNames(TableSchema const& schema) {
  Names names;
  for (DatabaseColumn const& column : schema.columns) names.push_back(column.name);
  return names;
}

// Opening ------------------------------------------------------------------------------------------

TEST(DatabaseReader, FailsOnEverythingButOpeningWhileItIsClosed) {
  DatabaseReader reader;
  DatabaseError const closed("No database is open.", 1);
  EXPECT_EQ(failureOf([&] { reader.objects(); }), closed);
  EXPECT_EQ(failureOf([&] { reader.schema({.name = "t", .kind = "table", .sql = ""}); }), closed);
  EXPECT_EQ(failureOf([&] { reader.structure({}); }), closed);
  reader.close();
}

TEST(DatabaseReader, ListsTablesAndViewsByNameIgnoringCase) {
  TemporaryDatabase const database(
      "CREATE TABLE Beta(id INTEGER PRIMARY KEY AUTOINCREMENT); CREATE VIEW alpha AS SELECT 1;"
      "CREATE TABLE gamma(a UNIQUE); CREATE INDEX delta ON gamma(a); ANALYZE;"
      "CREATE TRIGGER epsilon AFTER INSERT ON gamma BEGIN SELECT 1; END");
  DatabaseReader reader;
  EXPECT_EQ(reader.open(database.path(), noTask),
            (std::vector<DatabaseObject>{
                {.name = "alpha", .kind = "view", .sql = "CREATE VIEW alpha AS SELECT 1"},
                {.name = "Beta", .kind = "table", .sql = "CREATE TABLE Beta(id INTEGER PRIMARY KEY AUTOINCREMENT)"},
                {.name = "gamma", .kind = "table", .sql = "CREATE TABLE gamma(a UNIQUE)"}}));
}

TEST(DatabaseReader, ShowsAnObjectsStatementAboveTheInlineLimitAsItsSize) {
  std::string const comment(70'000, '-');
  TemporaryDatabase const database("CREATE TABLE t(a /*" + comment + "*/)");
  DatabaseReader reader;
  EXPECT_EQ(reader.open(database.path(), noTask).at(0).sql, "Large Text · 70 KB");
}

TEST(DatabaseReader, ForgetsTheOldDatabaseBeforeANewOneFails) {
  TemporaryDatabase const database("CREATE TABLE t(a)");
  TemporaryFolder const folder;
  DatabaseReader reader;
  reader.open(database.path(), noTask);
  EXPECT_EQ(failureOf([&] { reader.open(folder / "none.db", noTask); }),
            DatabaseError("unable to open database file", SQLITE_CANTOPEN));
  EXPECT_EQ(failureOf([&] { reader.objects(); }).detail, "No database is open.");
}

TEST(DatabaseReader, DoesNotCountAFileWithoutASchemaAsOpen) {
  TemporaryFolder const folder;
  folder.write("noise.db", std::string(4096, 'n'));
  DatabaseReader reader;
  EXPECT_EQ(failureOf([&] { reader.open(folder / "noise.db", noTask); }).code, SQLITE_NOTADB);
  EXPECT_EQ(failureOf([&] { reader.objects(); }).detail, "No database is open.");
}

TEST(DatabaseReader, KeepsTheOldDatabaseWhenTheTaskIsCancelledBefore) {
  TemporaryDatabase const database("CREATE TABLE t(a)");
  DatabaseReader reader;
  reader.open(database.path(), noTask);
  std::stop_source cancelled;
  cancelled.request_stop();
  EXPECT_THROW(reader.open(database.path(), cancelled.get_token()), TaskCancelled);
  EXPECT_EQ(reader.objects().size(), 1);
}

TEST(DatabaseReader, IsClosedAfterClose) {
  TemporaryDatabase const database("CREATE TABLE t(a)");
  DatabaseReader reader;
  reader.open(database.path(), noTask);
  reader.close();
  reader.close();
  EXPECT_EQ(failureOf([&] { reader.objects(); }).detail, "No database is open.");
}

TEST(DatabaseReader, ReadsWhileAnotherProcessOnlyReserves) {
  TemporaryDatabase const database("CREATE TABLE t(a)");
  SQLitePeer peer(database.path());
  ASSERT_EQ(peer.exec("BEGIN IMMEDIATE"), "ok");
  DatabaseReader reader;
  EXPECT_EQ(reader.open(database.path(), noTask).size(), 1);
}

// Columns ------------------------------------------------------------------------------------------

TEST(DatabaseReader, TellsEachColumnAsDeclared) {
  TableSchema const schema = schemaOf(
      "CREATE TABLE t(a, b VARCHAR(10) NOT NULL DEFAULT 'x', c INT DEFAULT (1 + 2),"
      "d REAL GENERATED ALWAYS AS (c * 2) STORED, e AS (c * 3), f TEXT DEFAULT NULL, PRIMARY KEY (c, a))");
  EXPECT_EQ(schema.columns,
            (std::vector<DatabaseColumn>{{.name = "a", .type = "", .primaryKey = 2},
                                         {.name = "b", .type = "VARCHAR(10)", .required = true, .defaultSQL = "'x'"},
                                         {.name = "c", .type = "INT", .primaryKey = 1, .defaultSQL = "1 + 2"},
                                         {.name = "d", .type = "REAL", .generated = true},
                                         {.name = "e", .type = "", .generated = true},
                                         {.name = "f", .type = "TEXT", .defaultSQL = "NULL"}}));
}

TEST(DatabaseReader, LeavesOutHiddenColumnsOfAVirtualTable) {
  TableSchema const schema = schemaOf("CREATE VIRTUAL TABLE t USING fts5(title, body)");
  EXPECT_EQ(columnNames(schema), (Names{"title", "body"}));
  EXPECT_EQ(schema.identity, (Names{"rowid"}));
  EXPECT_TRUE(schema.editable());
}

TEST(DatabaseReader, TellsWithoutRowidAndStrict) {
  struct FlagCase {
    char const* sql;
    bool withoutRowID;
    bool strict;
  };
  FlagCase const flags[] = {{"CREATE TABLE t(a INTEGER PRIMARY KEY)", false, false},
                            {"CREATE TABLE t(a INTEGER PRIMARY KEY) WITHOUT ROWID", true, false},
                            {"CREATE TABLE t(a INTEGER PRIMARY KEY) STRICT", false, true},
                            {"CREATE TABLE t(a INTEGER PRIMARY KEY) STRICT, WITHOUT ROWID", true, true}};
  for (FlagCase const& each : flags) {
    SCOPED_TRACE(each.sql);
    TableSchema const schema = schemaOf(each.sql);
    EXPECT_EQ(schema.withoutRowID, each.withoutRowID);
    EXPECT_EQ(schema.strict, each.strict);
  }
}

TEST(DatabaseReader, ReadsTheSchemaOfAViewWithViewsOnAgain) {
  TemporaryDatabase const database(
      "CREATE TABLE t(a INT); CREATE VIEW u AS SELECT a, a + 1 AS b FROM t; CREATE VIEW v AS SELECT a, b FROM u");
  DatabaseReader reader;
  reader.open(database.path(), noTask);
  reader.schema({.name = "t", .kind = "table", .sql = ""});
  TableSchema const view = reader.schema({.name = "v", .kind = "view", .sql = ""});
  EXPECT_EQ(columnNames(view), (Names{"a", "b"}));
  EXPECT_TRUE(view.identity.empty());
  EXPECT_FALSE(view.editable());
}

TEST(DatabaseReader, GivesAVanishedTableNoColumns) {
  TableSchema const schema = schemaOf("CREATE TABLE other(a)");
  EXPECT_TRUE(schema.columns.empty());
  EXPECT_FALSE(schema.withoutRowID);
  EXPECT_FALSE(schema.strict);
}

TEST(DatabaseReader, QuotesNamesInItsPragmas) {
  for (char const* const name : {"a\"b", "a b", "select", "t);DROP", "x'y", "ta\nble", "Ünï"}) {
    SCOPED_TRACE(name);
    std::string quoted = "\"";
    for (char const c : std::string(name)) quoted += c == '"' ? "\"\"" : std::string(1, c);
    quoted += '"';
    TableSchema const schema = schemaOf("CREATE TABLE " + quoted + "(one INTEGER PRIMARY KEY) STRICT", name);
    EXPECT_EQ(columnNames(schema), (Names{"one"}));
    EXPECT_TRUE(schema.strict);
    EXPECT_EQ(schema.identity, (Names{"one"}));
  }
}

// Identity -----------------------------------------------------------------------------------------

TEST(DatabaseReader, ChoosesWhatNamesARow) {
  struct IdentityCase {
    char const* says;
    char const* sql;
    Names identity;
  };
  IdentityCase const identities[] = {
      {"an alias of the rowid", "CREATE TABLE t(id INTEGER PRIMARY KEY, a)", {"id"}},
      {"the type's case is ignored, the name stays", "CREATE TABLE t(Id integer primary key, a)", {"Id"}},
      {"a table constraint", "CREATE TABLE t(a, id INTEGER, PRIMARY KEY (id))", {"id"}},
      {"descending keys have an index", "CREATE TABLE t(id INTEGER PRIMARY KEY DESC)", {"rowid"}},
      {"INT is no alias", "CREATE TABLE t(id INT PRIMARY KEY)", {"rowid"}},
      {"BIGINT is no alias", "CREATE TABLE t(id BIGINT PRIMARY KEY)", {"rowid"}},
      {"a text key", "CREATE TABLE t(id TEXT PRIMARY KEY)", {"rowid"}},
      {"no key", "CREATE TABLE t(a)", {"rowid"}},
      {"a composite key", "CREATE TABLE t(a, b, PRIMARY KEY (a, b))", {"rowid"}},
      {"a composite key without rowid, by key position",
       "CREATE TABLE t(b, a, PRIMARY KEY (a, b)) WITHOUT ROWID",
       {"a", "b"}},
      {"a text key without rowid", "CREATE TABLE t(a, id TEXT PRIMARY KEY) WITHOUT ROWID", {"id"}},
      {"a column called rowid", "CREATE TABLE t(rowid)", {"_rowid_"}},
      {"two names taken, in other case", "CREATE TABLE t(RowID, _ROWID_)", {"oid"}},
      {"all three names taken", "CREATE TABLE t(rowid, _rowid_, oid)", {}},
      {"all three taken, one an alias", "CREATE TABLE t(rowid INTEGER PRIMARY KEY, _rowid_, oid)", {"rowid"}},
      {"only oid taken", "CREATE TABLE t(OID)", {"rowid"}},
  };
  for (IdentityCase const& each : identities) {
    SCOPED_TRACE(each.says);
    TableSchema const schema = schemaOf(each.sql);
    EXPECT_EQ(schema.identity, each.identity);
    EXPECT_EQ(schema.editable(), !each.identity.empty());
  }
}

TEST(DatabaseReader, GivesOnlyTablesAnIdentity) {
  TableSchema const schema = schemaOf("CREATE TABLE t(id INTEGER PRIMARY KEY)", "t", "view");
  EXPECT_TRUE(schema.identity.empty());
  EXPECT_FALSE(schema.editable());
}

// Remembering --------------------------------------------------------------------------------------

TEST(DatabaseReader, RemembersASchemaByNameUntilTheObjectsAreReadAgain) {
  TemporaryDatabase const database("CREATE TABLE t(a)");
  DatabaseReader reader;
  DatabaseObject const table = reader.open(database.path(), noTask).at(0);
  EXPECT_EQ(reader.schema(table).columns.size(), 1);
  database.run("ALTER TABLE t ADD COLUMN b");
  EXPECT_EQ(reader.schema(table).columns.size(), 1);
  EXPECT_EQ(reader.schema({.name = "t", .kind = "view", .sql = "other"}).object, table);
  EXPECT_EQ(reader.objects().size(), 1);
  EXPECT_EQ(reader.schema(table).columns.size(), 2);
  TemporaryDatabase const other("CREATE TABLE t(x, y, z)");
  reader.open(other.path(), noTask);
  EXPECT_EQ(reader.schema(table).columns.size(), 3);
}

TEST(DatabaseReader, ChargesTheObjectsThatItListsToTheMemoryBudget) {
  std::string sql;
  std::string const comment(50'000, '-');  // SQLite itself forgets it
  for (int view = 0; view < 60; ++view)
    sql += "CREATE VIEW v" + std::to_string(view) + " AS SELECT 1 /*" + comment + "*/;";
  TemporaryDatabase const database(sql);
  DatabaseReader reader;
  EXPECT_EQ(reader.open(database.path(), noTask).size(), 60);
  MemoryBudget const budget(2'500'000);
  EXPECT_EQ(failureOf([&] { reader.open(database.path(), noTask); }), DatabaseError("out of memory", SQLITE_NOMEM));
}

TEST(DatabaseReader, TellsTheFlagsOfATableAmongManyAndViewsThatCannotBeResolved) {
  std::string sql =
      "BEGIN; CREATE VIEW u AS SELECT 1; CREATE VIEW v AS SELECT * FROM u; CREATE VIEW broken AS SELECT * FROM gone;";
  for (int table = 0; table < 8000; ++table) sql += "CREATE TABLE t" + std::to_string(table) + "(a);";
  sql += "CREATE TABLE w(a PRIMARY KEY) WITHOUT ROWID; CREATE TABLE s(a INT, CHECK (a > 0)) STRICT; COMMIT";
  TemporaryDatabase const database(sql);
  DatabaseReader reader;
  reader.open(database.path(), noTask);
  EXPECT_TRUE(reader.schema({.name = "w", .kind = "table", .sql = ""}).withoutRowID);
  EXPECT_TRUE(reader.schema({.name = "s", .kind = "table", .sql = ""}).strict);
  EXPECT_FALSE(reader.schema({.name = "t7", .kind = "table", .sql = ""}).strict);
}

// Structure ----------------------------------------------------------------------------------------

TEST(DatabaseReader, ShowsIndexesForeignKeysAndTriggers) {
  TemporaryDatabase const database(
      "CREATE TABLE parent(id INTEGER PRIMARY KEY, x, y, UNIQUE (x, y));"
      "CREATE TABLE t(a, b, c REFERENCES parent ON DELETE CASCADE ON UPDATE SET NULL,"
      "  FOREIGN KEY (a, b) REFERENCES parent(x, y));"
      "CREATE INDEX plain ON t(a); CREATE UNIQUE INDEX sole ON t(b, lower(c));"
      "CREATE TRIGGER z AFTER INSERT ON t BEGIN SELECT 1; END;"
      "CREATE TRIGGER y AFTER DELETE ON t BEGIN SELECT 2; END;"
      "CREATE TRIGGER other AFTER DELETE ON parent BEGIN SELECT 3; END");
  DatabaseReader reader;
  reader.open(database.path(), noTask);
  StructureDetails const details = reader.structure({.object = {.name = "t", .kind = "table", .sql = ""}});
  EXPECT_EQ(details.indexes, (std::vector<Names>{{"sole", "Unique", "b, NULL, NULL"}, {"plain", "", "a, NULL"}}));
  EXPECT_EQ(details.foreignKeys, (std::vector<Names>{{"a", "parent.x", "Update: NO ACTION · Delete: NO ACTION"},
                                                     {"b", "parent.y", "Update: NO ACTION · Delete: NO ACTION"},
                                                     {"c", "parent.NULL", "Update: SET NULL · Delete: CASCADE"}}));
  EXPECT_EQ(details.triggers, (std::vector<Names>{{"y", "CREATE TRIGGER y AFTER DELETE ON t BEGIN SELECT 2; END"},
                                                  {"z", "CREATE TRIGGER z AFTER INSERT ON t BEGIN SELECT 1; END"}}));
}

// Cancellation -------------------------------------------------------------------------------------

TEST(DatabaseReader, KeepsOneCancellationHandleForItsWholeLife) {
  TemporaryDatabase const database("CREATE TABLE t(a)");
  DatabaseReader reader;
  auto const before = reader.cancellation();
  reader.open(database.path(), noTask);
  reader.close();
  EXPECT_EQ(reader.cancellation(), before);
}

TEST(DatabaseReader, AnswersManyThreadsOneAtATime) {
  TemporaryDatabase const database("CREATE TABLE t(a); CREATE TABLE u(b)");
  DatabaseReader reader;
  reader.open(database.path(), noTask);
  std::vector<std::jthread> callers;
  for (int caller = 0; caller < 4; ++caller) {
    callers.emplace_back([&] {
      for (int round = 0; round < 50; ++round) {
        EXPECT_EQ(reader.objects().size(), 2);
        EXPECT_EQ(reader.schema({.name = "u", .kind = "table", .sql = ""}).columns.size(), 1);
      }
    });
  }
}

}  // namespace
}  // namespace tolva
