// SPDX-License-Identifier: Apache-2.0
#include "core/DatabaseWriter.hpp"

#include <gtest/gtest.h>
#include <sqlite3.h>
#include <sys/stat.h>

#include <atomic>
#include <chrono>
#include <functional>
#include <thread>

#include "core/SQLiteConnection.hpp"
#include "platform/TaskCancellation.hpp"
#include "support/EditScene.hpp"
#include "support/Environment.hpp"
#include "support/Failure.hpp"
#include "support/HostileDatabases.hpp"
#include "support/SQLitePeer.hpp"
#include "support/TemporaryFolder.hpp"
#include "support/Unprivileged.hpp"
#include "support/ValueText.hpp"

namespace tolva {
namespace {

using Changes = std::vector<CellChange>;
using Values = std::vector<SQLiteValue>;

DatabaseError const staleEdit("This row changed in another application. Refresh before editing.", 1);
DatabaseError const staleDelete("This row changed externally. Refresh before deleting.", 1);

using Scene = EditScene;

std::string const twoRows = "CREATE TABLE t(id INTEGER PRIMARY KEY, a, b); INSERT INTO t VALUES (1,'x',10),(2,'y',20);";

std::stop_token cancelledTask() {
  std::stop_source source;
  source.request_stop();
  return source.get_token();
}

// Opening ------------------------------------------------------------------------------------------

TEST(DatabaseWriter, FailsOnEveryChangeWhileItIsClosed) {
  Scene scene(twoRows);
  EXPECT_TRUE(scene.writer.isOpen());
  scene.writer.close();
  scene.writer.close();
  EXPECT_FALSE(scene.writer.isOpen());
  DatabaseError const closed("No database is open.", 8);
  EXPECT_EQ(failureOf([&] { scene.apply({}); }), closed);
  EXPECT_EQ(failureOf([&] { scene.writer.insert(scene.schema, {}); }), closed);
  EXPECT_EQ(failureOf([&] { scene.deleteRows({}); }), closed);
  EXPECT_EQ(closed.errorDescription(), "This database is currently read-only. No database is open.");
}

TEST(DatabaseWriter, RefusesAFileThatMayNotBeWrittenAndKeepsTheOneBefore) {
  TemporaryFolder folder;
  folder.openToEverybody();
  TemporaryDatabase const open(folder, "open.db", "CREATE TABLE t(id INTEGER PRIMARY KEY)");
  TemporaryDatabase const closed(folder, "closed.db", "CREATE TABLE t(id INTEGER PRIMARY KEY)");
  ASSERT_EQ(::chmod(open.path().c_str(), 0666), 0);
  ASSERT_EQ(::chmod(closed.path().c_str(), 0444), 0);
  EXPECT_EQ(asUnprivileged([&] {
              DatabaseWriter writer;
              writer.open(open.path());
              DatabaseError const refusal = failureOf([&] { writer.open(closed.path()); });
              writer.insert(schemaOf(open.path(), "t"), {{"id", 7}});
              return std::to_string(refusal.code) + " " + refusal.errorDescription();
            }),
            "1 This database can’t be modified. Check its file permissions.");
  EXPECT_EQ(open.rows("SELECT * FROM t"), "7");
}

TEST(DatabaseWriter, RefusesAFileThatIsNotThereAndMakesNone) {
  Scene scene(twoRows);
  TemporaryFolder const folder;
  EXPECT_EQ(failureOf([&] { scene.writer.open(folder / "none.db"); }),
            DatabaseError("This database can’t be modified. Check its file permissions.", 1));
  EXPECT_TRUE(folder.names().empty());
  EXPECT_TRUE(scene.writer.isOpen());
}

TEST(DatabaseWriter, IsClosedAfterAnyOtherFailureToOpen) {
  Scene scene(twoRows);
  TemporaryFolder const folder;
  EXPECT_EQ(failureOf([&] { scene.writer.open(folder.path()); }).code & 0xFF, SQLITE_CANTOPEN);
  EXPECT_FALSE(scene.writer.isOpen());
}

TEST(DatabaseWriter, RefusesASnapshot) {
  TemporaryFolder const folder;
  Environment const home("XDG_DATA_HOME", folder.path());
  std::filesystem::create_directories(folder / "Tolva/Snapshots");
  TemporaryDatabase const snapshot(folder, "Tolva/Snapshots/database.sqlite", "CREATE TABLE t(a)");
  DatabaseWriter writer;
  EXPECT_EQ(failureOf([&] { writer.open(snapshot.path()); }),
            DatabaseError("Historical snapshots cannot be modified.", 8));
  EXPECT_FALSE(writer.isOpen());
}

TEST(DatabaseWriter, OpensNoFileByTheBeginningOfItsName) {
  Scene scene(twoRows);
  DatabaseWriter writer;
  EXPECT_EQ(failureOf([&] { writer.open(scene.database.path().string() + std::string("\0x", 2)); }),
            DatabaseError("unable to open database file", SQLITE_CANTOPEN));
  EXPECT_FALSE(writer.isOpen());
}

TEST(DatabaseWriter, LeavesTheOldDatabaseForTheNew) {
  Scene scene(twoRows);
  TemporaryDatabase const other(twoRows);
  scene.writer.open(other.path());
  scene.apply({{scene.rows[0], "a", "new"}});
  EXPECT_EQ(scene.content(), "1|x|10\n2|y|20");
  EXPECT_EQ(other.rows("SELECT * FROM t"), "1|new|10\n2|y|20");
}

TEST(DatabaseWriter, ChangesNothingInAFolderThatTakesNoJournal) {
  TemporaryFolder folder;
  folder.openToEverybody();
  std::filesystem::create_directory(folder / "closed");
  TemporaryDatabase const database(folder, "closed/a.db", twoRows);
  ASSERT_EQ(::chmod(database.path().c_str(), 0666), 0);
  ASSERT_EQ(::chmod((folder / "closed").c_str(), 0555), 0);
  EXPECT_EQ(asUnprivileged([&] {
              TableSchema const schema = schemaOf(database.path(), "t");
              DatabaseWriter writer;
              writer.open(database.path());
              DatabaseError const refusal = failureOf([&] {
                writer.apply(schema, {{rowsOf(database.path(), schema)[0], "a", "new"}}, noTask);
              });
              return std::to_string(refusal.code) + " " + rowsAsText(database.path(), "SELECT a FROM t");
            }),
            std::to_string(SQLITE_READONLY_DIRECTORY) + " x\ny");
}

// Editing ------------------------------------------------------------------------------------------

TEST(DatabaseWriter, ChangesTwoCellsOfOneRowAtOnce) {
  Scene scene(twoRows +
              "CREATE TABLE log(a); CREATE TRIGGER l AFTER UPDATE ON t BEGIN INSERT INTO log VALUES (new.a); END");
  Changes const results = scene.apply({{scene.rows[0], "a", "new"}, {scene.rows[0], "b", 11}});
  DatabaseRow const after{{1, "new", 11}, {1}};
  EXPECT_EQ(results, (Changes{{after, "a", "new", Values{1}}, {after, "b", 11, Values{1}}}));
  EXPECT_EQ(scene.content(), "1|new|11\n2|y|20");
  EXPECT_EQ(scene.database.rows("SELECT * FROM log"), "new") << "one statement, so the trigger ran once";
}

/// Calls `entry` with every connection that opens in its scope.
class AutoExtension {
 public:
  explicit AutoExtension(int (*entry)(sqlite3*, char**, void const*)) : entry_(reinterpret_cast<void (*)()>(entry)) {
    sqlite3_auto_extension(entry_);
  }
  ~AutoExtension() { sqlite3_cancel_auto_extension(entry_); }
  AutoExtension(AutoExtension const&) = delete;
  AutoExtension& operator=(AutoExtension const&) = delete;

 private:
  void (*const entry_)();
};

/// Keeps what every connection that opens in its scope runs, with its parameters in place. One scope at a time.
class TracedStatements {
 public:
  TracedStatements() : extension_(install) { kept_.clear(); }
  std::vector<std::string> const& texts() const { return kept_; }

 private:
  static int install(sqlite3* db, char**, void const*) {
    return sqlite3_trace_v2(db, SQLITE_TRACE_STMT, keep, nullptr);
  }
  static int keep(unsigned, void*, void* statement, void*) {
    char* const sql = sqlite3_expanded_sql(static_cast<sqlite3_stmt*>(statement));
    kept_.emplace_back(sql);
    sqlite3_free(sql);
    return 0;
  }

  static inline std::vector<std::string> kept_;
  AutoExtension const extension_;
};

TEST(DatabaseWriter, RunsOneGuardedStatementForARow) {
  std::string const sql =
      "CREATE TABLE t(a, k, b, l, c AS (b), PRIMARY KEY (l, k)) WITHOUT ROWID; INSERT INTO t VALUES (1, 'k', NULL, "
      "x'00')";
  TemporaryDatabase const database(sql);
  TableSchema const schema = schemaOf(database.path(), "t");
  DatabaseRow const row = rowsOf(database.path(), schema)[0];
  TracedStatements const traced;
  DatabaseWriter writer;
  writer.open(database.path());
  Changes const results = writer.apply(schema, {{row, "b", "new"}, {row, "a", 1.5}, {row, "b", "newer"}}, noTask);
  writer.deleteRows(schema, {{{1.5, "k", "newer", SQLiteValue::largeBlob(1), "newer"}, row.identity}}, noTask);
  writer.insert(schema, {{"l", 1}, {"k", 2}, {"c", 3}});
  EXPECT_EQ(
      traced.texts(),
      (std::vector<std::string>{
          "PRAGMA foreign_keys = ON", "BEGIN IMMEDIATE",
          R"(SELECT 1,"t"."l","t"."k","t"."b","t"."a","t"."b" FROM "t" LIMIT 0)",
          R"(UPDATE "t" SET "b" = 'new',"a" = 1.5,"b" = 'newer' WHERE "l" IS x'00' AND "k" IS 'k' AND "b" IS NULL)"
          R"( AND "a" IS 1 AND "b" IS NULL RETURNING "l","k")",
          "PRAGMA encoding", "COMMIT", "BEGIN IMMEDIATE",
          R"(SELECT 1,"t"."l","t"."k","t"."a","t"."k","t"."b","t"."c" FROM "t" LIMIT 0)",
          R"(DELETE FROM "t" WHERE "l" IS x'00' AND "k" IS 'k' AND "a" IS 1.5 AND "k" IS 'k' AND "b" IS 'newer')"
          R"( AND "c" IS 'newer')",
          "COMMIT", R"(SELECT 1 FROM "t" LIMIT 0)", R"(INSERT INTO "t" ("k","l") VALUES (2,1))"}));
}

TEST(DatabaseWriter, ReturnsResultsRowByRowInTheOrderOfFirstChanges) {
  Scene scene(twoRows);
  Changes const results = scene.apply({{scene.rows[1], "a", "q"}, {scene.rows[0], "a", "p"}, {scene.rows[1], "b", 21}});
  DatabaseRow const first{{1, "p", 10}, {1}};
  DatabaseRow const second{{2, "q", 21}, {2}};
  EXPECT_EQ(results,
            (Changes{{second, "a", "q", Values{2}}, {second, "b", 21, Values{2}}, {first, "a", "p", Values{1}}}));
  EXPECT_EQ(scene.content(), "1|p|10\n2|q|21");
}

TEST(DatabaseWriter, LetsTheLaterOfTwoChangesOfOneCellStand) {
  Scene scene(twoRows);
  Changes const results = scene.apply({{scene.rows[0], "a", "first"}, {scene.rows[0], "a", "second"}});
  DatabaseRow const after{{1, "second", 10}, {1}};
  EXPECT_EQ(results, (Changes{{after, "a", "first", Values{1}}, {after, "a", "second", Values{1}}}));
  EXPECT_EQ(scene.content(), "1|second|10\n2|y|20");
}

TEST(DatabaseWriter, JudgesAllChangesOfARowByTheRowOfTheFirst) {
  Scene scene(twoRows);
  DatabaseRow other = scene.rows[0];
  other.values[2] = 99;
  scene.apply({{scene.rows[0], "a", "new"}, {other, "b", 11}});
  EXPECT_EQ(scene.content(), "1|new|11\n2|y|20");
}

TEST(DatabaseWriter, TellsTheNewAndTheOldIdentityOfARowWhoseKeyChanges) {
  Scene scene(twoRows);
  DatabaseRow const after{{7, "x", 10}, {7}};
  EXPECT_EQ(scene.apply({{scene.rows[0], "id", 7}}), (Changes{{after, "id", 7, Values{1}}}));
  EXPECT_EQ(scene.content(), "2|y|20\n7|x|10");
}

TEST(DatabaseWriter, EditsARowOfEachKindOfTable) {
  struct TableCase {
    char const* says;
    char const* sql;
    char const* column;
    SQLiteValue value;
    Values identityAfter;
    char const* content;
  };
  TableCase const cases[] = {
      {"no key", "CREATE TABLE t(a); INSERT INTO t VALUES (1), (1)", "a", 2, {1}, "2\n1"},
      {"a text key beside the rowid",
       "CREATE TABLE t(a TEXT PRIMARY KEY); INSERT INTO t VALUES ('k')",
       "a",
       "l",
       {1},
       "l"},
      {"a column named rowid", "CREATE TABLE t(rowid); INSERT INTO t VALUES (5)", "rowid", 6, {1}, "6"},
      {"a composite key without a rowid",
       "CREATE TABLE t(a, b, c, PRIMARY KEY (c, a)) WITHOUT ROWID; INSERT INTO t VALUES ('x', 1, x'00ff')",
       "a",
       "y",
       {Bytes{0, 255}, "y"},
       "y|1|x'00ff'"},
      {"STRICT",
       "CREATE TABLE t(a INT PRIMARY KEY, b ANY) STRICT; INSERT INTO t VALUES (1, '1')",
       "b",
       1.5,
       {1},
       "1|1.5"},
      {"NULL",
       "CREATE TABLE t(a INT PRIMARY KEY, b); INSERT INTO t VALUES (NULL, NULL), (NULL, NULL)",
       "a",
       3,
       {1},
       "3|NULL\nNULL|NULL"},
      {"another encoding",
       "PRAGMA encoding = 'UTF-16'; CREATE TABLE t(a PRIMARY KEY) WITHOUT ROWID; INSERT INTO t VALUES ('é𝄞')",
       "a",
       "𝄞é",
       {"𝄞é"},
       "𝄞é"},
      {"odd names",
       "CREATE TABLE t(\"a\"\"; -- \" INTEGER PRIMARY KEY); INSERT INTO t VALUES (1)",
       "a\"; -- ",
       2,
       {2},
       "2"},
  };
  for (TableCase const& each : cases) {
    SCOPED_TRACE(each.says);
    Scene scene(each.sql);
    Changes const results = scene.apply({{scene.rows[0], each.column, each.value}});
    EXPECT_EQ(results.at(0).row.identity, each.identityAfter);
    EXPECT_EQ(results.at(0).previousIdentity, scene.rows[0].identity);
    EXPECT_EQ(scene.content(), each.content);
    EXPECT_EQ(rowsOf(scene.database.path(), scene.schema)[0].identity, each.identityAfter);
  }
}

TEST(DatabaseWriter, KeepsNulsAndBlobsAsTheyAre) {
  using namespace std::string_literals;
  Scene scene("CREATE TABLE t(id INTEGER PRIMARY KEY, a, b); INSERT INTO t VALUES (1, CAST(x'610062' AS TEXT), x'')",
              RowValues::whole);
  scene.apply({{scene.rows[0], "a", "c\0d"s}, {scene.rows[0], "b", Bytes{0, 1}}});
  EXPECT_EQ(scene.database.rows("SELECT hex(a), typeof(a), b FROM t"), "630064|text|x'0001'");
}

TEST(DatabaseWriter, DoesNotShowWhatATriggerDid) {
  Scene scene(twoRows + "CREATE TRIGGER u AFTER UPDATE OF a ON t BEGIN UPDATE t SET b = 77 WHERE id = new.id; END");
  EXPECT_EQ(scene.apply({{scene.rows[0], "a", "new"}})[0].row.values, (Values{1, "new", 10}));
  EXPECT_EQ(scene.content(), "1|new|77\n2|y|20");
}

TEST(DatabaseWriter, RefusesToEditWhatNoPersonSawWhole) {
  Scene scene(
      "CREATE TABLE t(id INTEGER PRIMARY KEY, a, b AS (a) VIRTUAL, c AS (a) STORED, d, e);"
      "INSERT INTO t(id, a, d, e) VALUES (1, 'x', x'00', printf('%.*c', 65537, 'e'))");
  ASSERT_EQ(scene.rows[0].values[4], SQLiteValue::largeBlob(1));
  ASSERT_EQ(scene.rows[0].values[5], SQLiteValue::largeText(65'537));
  DatabaseError const refusal("Generated or deferred values cannot be edited inline.", 1);
  for (char const* const column : {"b", "c", "d", "e", "A", "rowid", "gone"}) {
    SCOPED_TRACE(column);
    EXPECT_EQ(failureOf([&] { scene.apply({{scene.rows[0], "a", "new"}, {scene.rows[0], column, 1}}); }), refusal);
  }
  DatabaseRow shortRow = scene.rows[0];
  shortRow.values.resize(1);
  EXPECT_EQ(failureOf([&] { scene.apply({{shortRow, "a", "new"}}); }), refusal);
  EXPECT_EQ(scene.database.rows("SELECT a FROM t"), "x");
}

TEST(DatabaseWriter, RefusesADeferredNewValue) {
  Scene scene(twoRows);
  for (SQLiteValue const& marker : {SQLiteValue::largeText(5), SQLiteValue::largeBlob(5)}) {
    DatabaseError const refusal("Open the full value before editing it.", 1);
    EXPECT_EQ(failureOf([&] { scene.apply({{scene.rows[1], "a", "new"}, {scene.rows[0], "a", marker}}); }), refusal);
    EXPECT_EQ(failureOf([&] {
                scene.writer.insert(scene.schema, {{"a", marker}});
              }).detail,
              refusal.detail + " [INSERT INTO \"t\" (\"a\") VALUES (?)]");
  }
  EXPECT_EQ(scene.content(), "1|x|10\n2|y|20");
}

TEST(DatabaseWriter, RefusesToEditWithoutAnIdentityBeforeItAsksForADatabase) {
  DatabaseError const refusal("Tolva couldn’t determine a stable row identity for this object.", 1);
  TemporaryDatabase const database("CREATE VIEW v AS SELECT 1 AS a; CREATE TABLE t(rowid, _rowid_, oid)");
  DatabaseWriter writer;
  EXPECT_EQ(failureOf([&] { writer.apply(schemaOf(database.path(), "v", "view"), {}, noTask); }), refusal);
  EXPECT_EQ(failureOf([&] { writer.apply(schemaOf(database.path(), "t"), {}, noTask); }), refusal);
}

TEST(DatabaseWriter, RefusesARowWithoutAUsableIdentity) {
  Scene scene(
      "CREATE TABLE t(a, b, PRIMARY KEY (a, b)) WITHOUT ROWID; INSERT INTO t VALUES (1, zeroblob(65537)), (2, 3)");
  ASSERT_EQ(scene.rows[0].identity, (Values{1, SQLiteValue::largeBlob(65'537)}));
  for (Values const& identity : {scene.rows[0].identity, Values{}, Values{2}, Values{2, 3, 4}}) {
    DatabaseRow const row{scene.rows[1].values, identity};
    EXPECT_EQ(failureOf([&] {
                scene.apply({{scene.rows[1], "b", 4}, {row, "a", 9}});
              }),
              DatabaseError("This row has no usable stable identity.", 1));
    EXPECT_EQ(failureOf([&] {
                scene.deleteRows({scene.rows[1], row});
              }),
              DatabaseError("This row has no usable identity.", 1));
  }
  EXPECT_EQ(scene.database.rows("SELECT a FROM t"), "1\n2");
}

TEST(DatabaseWriter, RefusesANewKeyThatCannotNameTheRow) {
  Scene scene("CREATE TABLE t(a PRIMARY KEY) WITHOUT ROWID; INSERT INTO t VALUES (1)");
  DatabaseError const refusal("The edited primary key exceeds the inline-edit size limit.", 1);
  EXPECT_EQ(failureOf([&] { scene.apply({{scene.rows[0], "a", Bytes(65'537)}}); }), refusal);
  EXPECT_EQ(failureOf([&] { scene.apply({{scene.rows[0], "a", std::string(65'537, 'k')}}); }), refusal);
  EXPECT_EQ(scene.content(), "1");
  std::string const longest(65'536, 'k');
  DatabaseRow const named = scene.apply({{scene.rows[0], "a", longest}})[0].row;
  EXPECT_EQ(named.identity, Values{longest});
  EXPECT_EQ(scene.apply({{named, "a", Bytes(65'536)}})[0].row.identity, Values{Bytes(65'536)});
  std::vector<DatabaseRow> const rows = rowsOf(scene.database.path(), scene.schema);
  EXPECT_EQ(failureOf([&] {
              scene.apply({{rows[0], "a", 1}});
            }).detail,
            "Generated or deferred values cannot be edited inline.");
}

TEST(DatabaseWriter, TakesTheLockForNoChangesToo) {
  Scene scene(twoRows);
  EXPECT_EQ(scene.apply({}), Changes{});
  SQLitePeer peer(scene.database.path());
  ASSERT_EQ(peer.exec("BEGIN IMMEDIATE"), "ok");
  EXPECT_EQ(failureOf([&] { scene.apply({}); }).code, SQLITE_BUSY);
}

// Other applications -------------------------------------------------------------------------------

TEST(DatabaseWriter, RefusesAnEditThatAnotherProcessMadeStale) {
  struct StaleCase {
    char const* says;
    char const* elsewhere;
    DatabaseError error;
  };
  DatabaseError const none("(nothing failed)", -1);
  StaleCase const cases[] = {
      {"the edited value changed", "UPDATE t SET a = 'z' WHERE id = 1", staleEdit},
      {"to NULL", "UPDATE t SET a = NULL WHERE id = 1", staleEdit},
      {"to a blob of the same bytes", "UPDATE t SET a = x'78' WHERE id = 1", staleEdit},
      {"the row was deleted", "DELETE FROM t WHERE id = 1", staleEdit},
      {"the row was given another key", "UPDATE t SET id = 9 WHERE id = 1", staleEdit},
      {"the table was emptied and filled again", "DELETE FROM t; INSERT INTO t VALUES (1, 'other', 10)", staleEdit},
      {"a value that is not edited changed", "UPDATE t SET b = 99 WHERE id = 1", none},
      {"another row changed", "UPDATE t SET a = 'z', b = 99 WHERE id = 2", none},
      {"the value changed and changed back", "UPDATE t SET a = 'z'; UPDATE t SET a = 'x' WHERE id = 1", none},
  };
  for (StaleCase const& each : cases) {
    SCOPED_TRACE(each.says);
    Scene scene(twoRows);
    SQLitePeer peer(scene.database.path());
    ASSERT_EQ(peer.exec(each.elsewhere), "ok");
    std::string const before = peer.rows("SELECT * FROM t WHERE NOT (id = 1 AND a = 'x')");
    EXPECT_EQ(failureOf([&] { scene.apply({{scene.rows[0], "a", "new"}}); }), each.error);
    EXPECT_EQ(peer.rows("SELECT * FROM t WHERE NOT (id = 1 AND a = 'new')"), before);
    EXPECT_EQ(peer.rows("SELECT count(*) FROM t WHERE a = 'new'"), each.error == none ? "1" : "0");
  }
}

TEST(DatabaseWriter, TakesEverythingBackWhenALaterRowIsStale) {
  Scene scene(twoRows);
  SQLitePeer peer(scene.database.path());
  ASSERT_EQ(peer.exec("UPDATE t SET a = 'z' WHERE id = 2"), "ok");
  EXPECT_EQ(failureOf([&] { scene.apply({{scene.rows[0], "a", "new"}, {scene.rows[1], "a", "new"}}); }), staleEdit);
  EXPECT_EQ(failureOf([&] { scene.deleteRows(scene.rows); }), staleDelete);
  EXPECT_EQ(peer.rows("SELECT * FROM t"), "1|x|10\n2|z|20");
}

TEST(DatabaseWriter, ComparesNullAsAValue) {
  Scene scene("CREATE TABLE t(id INTEGER PRIMARY KEY, a); INSERT INTO t VALUES (1, NULL), (2, NULL)");
  scene.apply({{scene.rows[0], "a", 5}});
  scene.deleteRows({scene.rows[1]});
  EXPECT_EQ(scene.content(), "1|5");
  EXPECT_EQ(failureOf([&] { scene.apply({{scene.rows[0], "a", 6}}); }), staleEdit);
}

TEST(DatabaseWriter, ComparesAsTheColumnDoes) {
  Scene scene("CREATE TABLE t(id INTEGER PRIMARY KEY, a TEXT COLLATE NOCASE, b); INSERT INTO t VALUES (1, 'x', 1)");
  scene.database.run("UPDATE t SET a = 'X', b = 1.0");
  scene.apply({{scene.rows[0], "a", "new"}, {scene.rows[0], "b", 2}});
  EXPECT_EQ(scene.content(), "1|new|2");
}

/// What is read of a text that is not UTF-8 is a repaired one, which must not come back into the database unseen. As an
/// identity it is a marker: repaired, it could name another row.
TEST(DatabaseWriter, MatchesNothingByARepairedText) {
  Scene scene(
      "CREATE TABLE t(a TEXT PRIMARY KEY, b, c) WITHOUT ROWID;"
      "INSERT INTO t VALUES (CAST(x'61ff' AS TEXT), 1, 2), ('k', CAST(x'62fe' AS TEXT), 3)");
  std::string const before = scene.database.rows("SELECT hex(a), hex(b), c FROM t");
  DatabaseRow const& brokenKey = scene.rows[0];
  DatabaseRow const& brokenValue = scene.rows[1];
  ASSERT_EQ(brokenKey.identity, Values{SQLiteValue::largeText(4)});
  ASSERT_EQ(brokenValue.values[1], SQLiteValue("b\uFFFD"));
  EXPECT_EQ(failureOf([&] {
              scene.apply({{brokenKey, "b", 7}});
            }),
            DatabaseError("This row has no usable stable identity.", 1));
  EXPECT_EQ(failureOf([&] { scene.apply({{brokenValue, "b", 7}}); }), staleEdit);
  EXPECT_EQ(failureOf([&] { scene.deleteRows({brokenKey}); }), DatabaseError("This row has no usable identity.", 1));
  EXPECT_EQ(failureOf([&] { scene.deleteRows({brokenValue}); }), staleDelete);
  EXPECT_EQ(scene.database.rows("SELECT hex(a), hex(b), c FROM t"), before);
  scene.apply({{brokenValue, "c", 4}});
  EXPECT_EQ(scene.database.rows("SELECT hex(b), c FROM t WHERE a = 'k'"), "62FE|4") << "the broken text is untouched";
}

TEST(DatabaseWriter, RefusesANewKeyThatNamesAnotherRowWhenRepaired) {
  Scene scene("CREATE TABLE t(a TEXT PRIMARY KEY, b) WITHOUT ROWID; INSERT INTO t VALUES ('a\uFFFD', 1), ('k', 1)");
  ASSERT_EQ(scene.rows[1].identity, Values{"k"});
  EXPECT_EQ(failureOf([&] {
              scene.apply({{scene.rows[1], "a", "a\xff"}});
            }),
            DatabaseError("The edited primary key exceeds the inline-edit size limit.", 1));
  EXPECT_EQ(scene.content(), "a\uFFFD|1\nk|1");
}

TEST(DatabaseWriter, RefusesAnEditOfMoreThanOneRow) {
  Scene scene(twoRows);
  scene.database.run("DROP TABLE t; CREATE TABLE t(id, a, b); INSERT INTO t VALUES (1, 'x', 10), (1, 'x', 20)");
  EXPECT_EQ(failureOf([&] {
              scene.apply({{scene.rows[0], "a", "new"}});
            }),
            DatabaseError("The edit matched more than one row.", 1));
  EXPECT_EQ(scene.content(), "1|x|10\n1|x|20");
  scene.database.run("UPDATE t SET b = 10");
  EXPECT_EQ(failureOf([&] { scene.deleteRows({scene.rows[0]}); }), staleDelete);
  EXPECT_EQ(scene.content(), "1|x|10\n1|x|10");
}

/// SQLite would read the name of a column that is gone as a string, which a row can happen to hold.
TEST(DatabaseWriter, TakesNoGoneColumnForAString) {
  Scene scene("CREATE TABLE t(id TEXT PRIMARY KEY, a, b) WITHOUT ROWID; INSERT INTO t VALUES ('id', 'x', 'b')");
  scene.database.run("DROP TABLE t; CREATE TABLE t(key TEXT, a, c); INSERT INTO t VALUES ('other', 'x', 'c')");
  EXPECT_EQ(failureOf([&] { scene.apply({{scene.rows[0], "a", "new"}}); }), DatabaseError("no such column: t.id", 1));
  EXPECT_EQ(
      failureOf([&] { scene.deleteRows({scene.rows[0]}); }),
      DatabaseError("no such column: t.id [DELETE FROM \"t\" WHERE \"id\" IS ? AND \"id\" IS ? AND \"a\" IS ? AND "
                    "\"b\" IS ?]",
                    1));
  EXPECT_EQ(scene.content(), "other|x|c");
}

/// A connection goes on with the schema that it remembers until it runs a statement.
TEST(DatabaseWriter, TakesNoGoneColumnForAStringAlsoWhereItKnowsTheOldSchema) {
  std::string const table = "CREATE TABLE t(id TEXT PRIMARY KEY, a) WITHOUT ROWID; INSERT INTO t VALUES ('id', 'x')";
  for (bool const deletes : {false, true}) {
    SCOPED_TRACE(deletes ? "delete" : "edit");
    Scene scene(table);
    scene.apply({{scene.rows[0], "a", "x"}});
    SQLitePeer peer(scene.database.path());
    ASSERT_EQ(peer.exec("ALTER TABLE t RENAME COLUMN id TO key; UPDATE t SET key = 'other'"), "ok");
    DatabaseError const error = failureOf([&] {
      if (deletes)
        scene.deleteRows({scene.rows[0]});
      else
        scene.apply({{scene.rows[0], "a", "new"}});
    });
    EXPECT_EQ(error.detail.substr(0, error.detail.find(" [")), "no such column: t.id");
    EXPECT_EQ(scene.content(), "other|x");
  }
}

TEST(DatabaseWriter, EditsByTheSchemaThatAnotherProcessLeft) {
  Scene scene(twoRows);
  scene.apply({{scene.rows[1], "a", "y"}});
  SQLitePeer peer(scene.database.path());
  ASSERT_EQ(peer.exec("ALTER TABLE t ADD COLUMN c DEFAULT 5"), "ok");
  scene.apply({{scene.rows[0], "a", "new"}});
  scene.deleteRows({scene.rows[1]});
  EXPECT_EQ(scene.content(), "1|new|10|5");
}

/// SQLite itself refuses this in every journal mode but WAL.
TEST(DatabaseWriter, ChangesNoFileThatHasLostItsName) {
  DatabaseError const refusal("attempt to write a readonly database", SQLITE_READONLY_DBMOVED);
  for (std::string const mode : {"DELETE", "WAL"}) {
    for (bool const replaced : {false, true}) {
      SCOPED_TRACE(mode + (replaced ? ", replaced" : ", removed"));
      Scene scene("PRAGMA journal_mode = " + mode + "; " + twoRows);
      scene.apply({{scene.rows[0], "a", "x"}});
      TemporaryDatabase const other("PRAGMA journal_mode = " + mode + "; " + twoRows);
      if (replaced)
        std::filesystem::rename(other.path(), scene.database.path());
      else
        std::filesystem::remove(scene.database.path());
      EXPECT_EQ(failureOf([&] { scene.apply({{scene.rows[0], "a", "new"}}); }), refusal);
      EXPECT_EQ(failureOf([&] { scene.deleteRows({scene.rows[0]}); }), refusal);
      EXPECT_EQ(failureOf([&] { scene.writer.insert(scene.schema, {}); }), refusal);
      TemporaryFolder const backups;
      SchemaChange const change(SchemaChange::AddColumn{"t", {.name = "c", .type = "TEXT"}});
      EXPECT_EQ(failureOf([&] { scene.writer.modifySchema(change, backups.path(), noTask); }), refusal);
      EXPECT_TRUE(backups.names().empty());
      scene.writer.close();
      if (replaced) {
        EXPECT_EQ(scene.content(), "1|x|10\n2|y|20");
        EXPECT_EQ(scene.database.rows("PRAGMA integrity_check"), "ok");
      }
    }
  }
}

TEST(DatabaseWriter, TellsThatAnotherProcessHoldsTheLock) {
  Scene scene(twoRows);
  SQLitePeer peer(scene.database.path());
  ASSERT_EQ(peer.exec("BEGIN IMMEDIATE"), "ok");
  std::string const sentence =
      "Another connection is holding a database lock. Wait for its transaction to finish, then try again. database is "
      "locked ";
  auto const begun = std::chrono::steady_clock::now();
  EXPECT_EQ(failureOf([&] {
              scene.apply({{scene.rows[0], "a", "new"}});
            }).errorDescription(),
            sentence + "[BEGIN IMMEDIATE]");
  EXPECT_GE(std::chrono::steady_clock::now() - begun, std::chrono::milliseconds(1100));
  EXPECT_EQ(failureOf([&] { scene.deleteRows({scene.rows[0]}); }).errorDescription(), sentence + "[BEGIN IMMEDIATE]");
  EXPECT_EQ(failureOf([&] { scene.writer.insert(scene.schema, {}); }).errorDescription(),
            sentence + "[INSERT INTO \"t\" DEFAULT VALUES]");
  ASSERT_EQ(peer.exec("COMMIT"), "ok");
  scene.apply({{scene.rows[0], "a", "new"}});
  EXPECT_EQ(scene.content(), "1|new|10\n2|y|20");
}

TEST(DatabaseWriter, TakesEverythingBackWhenAReaderHoldsUpTheCommit) {
  Scene scene(twoRows);
  SQLitePeer peer(scene.database.path());
  ASSERT_EQ(peer.exec("BEGIN"), "ok");
  ASSERT_EQ(peer.rows("SELECT count(*) FROM t"), "2");
  EXPECT_EQ(failureOf([&] { scene.apply({{scene.rows[0], "a", "new"}}); }).code, SQLITE_BUSY);
  EXPECT_EQ(failureOf([&] { scene.writer.insert(scene.schema, {}); }).code, SQLITE_BUSY);
  ASSERT_EQ(peer.exec("COMMIT"), "ok");
  EXPECT_EQ(scene.content(), "1|x|10\n2|y|20");
  scene.deleteRows({scene.rows[0]});
  EXPECT_EQ(scene.content(), "2|y|20");
}

// Constraints --------------------------------------------------------------------------------------

TEST(DatabaseWriter, TellsABrokenConstraintAndTakesEverythingBack) {
  Scene scene(
      "CREATE TABLE t(id INTEGER PRIMARY KEY, a UNIQUE, b REFERENCES t(id)); INSERT INTO t VALUES "
      "(1,'x',NULL),(2,'y',1)");
  struct ConstraintCase {
    char const* column;
    SQLiteValue value;
    char const* text;
  };
  ConstraintCase const cases[] = {
      {"a", "y", "That change violates a database constraint. UNIQUE constraint failed: t.a"},
      {"id", 2, "That change violates a database constraint. UNIQUE constraint failed: t.id"},
      {"id", 3, "That change violates a database constraint. FOREIGN KEY constraint failed"},
      {"b", 9, "That change violates a database constraint. FOREIGN KEY constraint failed"},
  };
  for (ConstraintCase const& each : cases) {
    SCOPED_TRACE(each.text);
    EXPECT_EQ(failureOf([&] {
                scene.apply({{scene.rows[0], each.column, each.value}});
              }).errorDescription(),
              each.text);
  }
  EXPECT_EQ(failureOf([&] { scene.deleteRows({scene.rows[0]}); }).errorDescription(),
            "That change violates a database constraint. FOREIGN KEY constraint failed [DELETE FROM \"t\" WHERE "
            "\"id\" IS ? AND \"id\" IS ? AND \"a\" IS ? AND \"b\" IS ?]");
  EXPECT_EQ(scene.content(), "1|x|NULL\n2|y|1");
}

TEST(DatabaseWriter, RefusesWhatATriggerIgnores) {
  Scene scene(twoRows +
              "CREATE TRIGGER u BEFORE UPDATE ON t BEGIN SELECT RAISE(IGNORE); END;"
              "CREATE TRIGGER d BEFORE DELETE ON t BEGIN SELECT RAISE(IGNORE); END");
  EXPECT_EQ(failureOf([&] { scene.apply({{scene.rows[0], "a", "new"}}); }), staleEdit);
  EXPECT_EQ(failureOf([&] { scene.deleteRows({scene.rows[0]}); }), staleDelete);
  EXPECT_EQ(scene.content(), "1|x|10\n2|y|20");
}

TEST(DatabaseWriter, RefusesARowThatATriggerOfTheSameEditChanged) {
  Scene scene(twoRows +
              "CREATE TRIGGER u AFTER UPDATE ON t WHEN new.id = 1 BEGIN UPDATE t SET a = 'z' WHERE id = 2; END");
  EXPECT_EQ(failureOf([&] { scene.apply({{scene.rows[0], "a", "new"}, {scene.rows[1], "a", "new"}}); }), staleEdit);
  EXPECT_EQ(scene.content(), "1|x|10\n2|y|20");
}

// Cancelling ---------------------------------------------------------------------------------------

TEST(DatabaseWriter, TouchesNothingForACancelledTask) {
  Scene scene(twoRows);
  EXPECT_THROW(scene.writer.apply(scene.schema, {{scene.rows[0], "a", "new"}}, cancelledTask()), TaskCancelled);
  EXPECT_THROW(scene.writer.deleteRows(scene.schema, scene.rows, cancelledTask()), TaskCancelled);
  EXPECT_EQ(scene.content(), "1|x|10\n2|y|20");
}

/// Gives every connection that opens in its scope the SQL function stop_task(), which cancels the task. One scope at a
/// time.
class StopTaskFunction {
 public:
  StopTaskFunction() : extension_(install) {}
  std::stop_token newTask() {
    task_ = {};
    return task_.get_token();
  }

 private:
  static int install(sqlite3* db, char**, void const*) {
    return sqlite3_create_function(db, "stop_task", 0, SQLITE_UTF8, nullptr, stop, nullptr, nullptr);
  }
  static void stop(sqlite3_context*, int, sqlite3_value**) { task_.request_stop(); }

  static inline std::stop_source task_;
  AutoExtension const extension_;
};

TEST(DatabaseWriter, TakesEverythingBackForATaskThatIsCancelledBetweenRows) {
  StopTaskFunction function;
  Scene scene(twoRows +
              "CREATE TRIGGER u AFTER UPDATE ON t BEGIN SELECT stop_task(); END;"
              "CREATE TRIGGER d AFTER DELETE ON t BEGIN SELECT stop_task(); END");
  for (bool const lastRow : {false, true}) {
    SCOPED_TRACE(lastRow ? "before the commit" : "before the second row");
    Changes changes{{scene.rows[0], "a", "new"}, {scene.rows[1], "a", "new"}};
    std::vector<DatabaseRow> rows = scene.rows;
    if (lastRow) {
      changes.pop_back();
      rows.pop_back();
    }
    EXPECT_THROW(scene.writer.apply(scene.schema, changes, function.newTask()), TaskCancelled);
    EXPECT_THROW(scene.writer.deleteRows(scene.schema, rows, function.newTask()), TaskCancelled);
    EXPECT_EQ(scene.content(), "1|x|10\n2|y|20");
  }
}

TEST(DatabaseWriter, StopsTheRunningStatementForAnotherThread) {
  std::string const forEver = " ON t BEGIN SELECT count(*) FROM many x, many y, many z; END;";
  Scene scene(twoRows +
              "CREATE TABLE many(a); INSERT INTO many WITH RECURSIVE c(i) AS (SELECT 1 UNION ALL SELECT i + 1 "
              "FROM c WHERE i < 3000) SELECT i FROM c; CREATE TRIGGER u AFTER UPDATE" +
              forEver + "CREATE TRIGGER d AFTER DELETE" + forEver + "CREATE TRIGGER i AFTER INSERT" + forEver);
  std::function<void()> const operations[] = {[&] {
                                                scene.apply({{scene.rows[0], "a", "new"}});
                                              },
                                              [&] { scene.deleteRows(scene.rows); },
                                              [&] {
                                                scene.writer.insert(scene.schema, {{"a", 1}});
                                              }};
  for (auto const& operation : operations) {
    std::atomic<bool> ended = false;
    std::jthread const canceller([&] {
      while (!ended) {  // a cancel before the statement runs is lost
        scene.writer.cancellation()->cancel();
        std::this_thread::sleep_for(std::chrono::milliseconds(5));
      }
    });
    DatabaseError const error = failureOf(operation);
    ended = true;
    EXPECT_TRUE(error.isCancellation()) << error.detail;
    EXPECT_EQ(error.errorDescription(), "Cancelled");
  }
  EXPECT_EQ(scene.content(), "1|x|10\n2|y|20");
}

/// A statement that is being prepared hears no cancel, and the connection may know an older schema.
TEST(DatabaseWriter, IsNotHeldUpByATriggerThatDoubles) {
  Scene scene(twoRows);
  scene.apply({{scene.rows[0], "a", "x"}});
  std::string triggers;
  for (std::string const event : {"UPDATE", "DELETE", "INSERT"}) {
    triggers += "CREATE TRIGGER after_" + event + " AFTER " + event + " ON t BEGIN " + doublingQuery() + "; END;";
  }
  scene.database.run(triggers);
  EXPECT_EQ(failureOf([&] {
              scene.apply({{scene.rows[0], "a", "new"}});
            }),
            DatabaseError("out of memory", SQLITE_NOMEM));
  EXPECT_EQ(failureOf([&] { scene.deleteRows({scene.rows[0]}); }).code, SQLITE_NOMEM);
  EXPECT_EQ(failureOf([&] { scene.writer.insert(scene.schema, {}); }).code, SQLITE_NOMEM);
  EXPECT_EQ(scene.content(), "1|x|10\n2|y|20");
  scene.database.run("DROP TRIGGER after_UPDATE");
  scene.apply({{scene.rows[0], "a", "new"}});
  EXPECT_EQ(scene.content(), "1|new|10\n2|y|20");
}

TEST(DatabaseWriter, ServesCallersOneAfterTheOther) {
  Scene scene("CREATE TABLE t(id INTEGER PRIMARY KEY, a); INSERT INTO t VALUES (1, 0)");
  constexpr int threads = 4;
  constexpr int edits = 25;
  std::atomic<int> applied = 0;
  {
    std::vector<std::jthread> callers;
    for (int thread = 0; thread < threads; ++thread) {
      callers.emplace_back([&] {
        for (int edit = 0; edit < edits; ++edit) {
          DatabaseRow const row{{1, edit}, {1}};
          DatabaseError const error = failureOf([&] { scene.apply({{row, "a", edit + 1}}); });
          if (error.code == -1) ++applied;
          scene.writer.insert(scene.schema, {});
        }
      });
    }
  }
  EXPECT_EQ(applied, edits) << "each value was replaced by one caller only";
  EXPECT_EQ(scene.database.rows("SELECT count(*), max(a) FROM t"), "101|25");
}

// Inserting ----------------------------------------------------------------------------------------

TEST(DatabaseWriter, InsertsOrdinaryColumnsInTheirOrderAndDropsTheRest) {
  struct InsertCase {
    char const* says;
    std::map<std::string, SQLiteValue> values;
    char const* row;
  };
  InsertCase const cases[] = {
      {"nothing", {}, "1|d|NULL|dd"},
      {"only a generated column", {{"c", 5}}, "1|d|NULL|dd"},
      {"names that are no column", {{"gone", 5}, {"A", 6}, {"rowid", 9}}, "1|d|NULL|dd"},
      {"some values", {{"b", 5}, {"c", 5}, {"id", 7}}, "7|d|5|dd"},
      {"all values", {{"a", "x"}, {"b", Bytes{1}}, {"id", 7}}, "7|x|x'01'|xx"},
      {"NULL in place of a default", {{"a", Null{}}}, "1|NULL|NULL|NULL"},
  };
  for (InsertCase const& each : cases) {
    SCOPED_TRACE(each.says);
    Scene scene("CREATE TABLE t(id INTEGER PRIMARY KEY, a DEFAULT 'd', b, c AS (a || a))");
    scene.writer.insert(scene.schema, each.values);
    EXPECT_EQ(scene.content(), each.row);
  }
}

TEST(DatabaseWriter, NamesTheInsertThatFails) {
  Scene scene("CREATE TABLE t(id INTEGER PRIMARY KEY, a NOT NULL, b); INSERT INTO t VALUES (1, 1, 1)");
  EXPECT_EQ(failureOf([&] { scene.writer.insert(scene.schema, {}); }),
            DatabaseError("NOT NULL constraint failed: t.a [INSERT INTO \"t\" DEFAULT VALUES]", 1299));
  EXPECT_EQ(
      failureOf([&] {
        scene.writer.insert(scene.schema, {{"b", 1}, {"a", 1}, {"id", 1}});
      }),
      DatabaseError("UNIQUE constraint failed: t.id [INSERT INTO \"t\" (\"id\",\"a\",\"b\") VALUES (?,?,?)]", 1555));
  EXPECT_EQ(scene.content(), "1|1|1");
}

TEST(DatabaseWriter, NeitherInsertsNorDeletesWithoutAnIdentity) {
  DatabaseError const refusal("This object is read-only.", 1);
  TemporaryDatabase const database("CREATE VIEW v AS SELECT 1 AS a; CREATE TABLE t(rowid, _rowid_, oid)");
  DatabaseWriter writer;
  for (TableSchema const& schema : {schemaOf(database.path(), "v", "view"), schemaOf(database.path(), "t")}) {
    EXPECT_EQ(failureOf([&] { writer.insert(schema, {}); }), refusal);
    EXPECT_EQ(failureOf([&] { writer.deleteRows(schema, {}, noTask); }), refusal);
  }
}

// Deleting -----------------------------------------------------------------------------------------

TEST(DatabaseWriter, DeletesOnlyRowsThatAreAsThePersonSawThem) {
  struct DeleteCase {
    char const* says;
    char const* elsewhere;
    bool stale;
  };
  DeleteCase const cases[] = {
      {"nothing changed", "SELECT 1", false},
      {"any value changed", "UPDATE t SET b = 11 WHERE id = 1", true},
      {"the row was deleted", "DELETE FROM t WHERE id = 1", true},
      {"a deferred blob changed", "UPDATE t SET blob = x'0203' WHERE id = 1", false},
      {"another row changed", "UPDATE t SET b = 11 WHERE id = 2", false},
  };
  for (DeleteCase const& each : cases) {
    SCOPED_TRACE(each.says);
    Scene scene("CREATE TABLE t(id INTEGER PRIMARY KEY, b, blob); INSERT INTO t VALUES (1, 10, x'01'), (2, 20, x'02')");
    SQLitePeer peer(scene.database.path());
    peer.rows(each.elsewhere);
    std::string const before = scene.content();
    EXPECT_EQ(failureOf([&] { scene.deleteRows({scene.rows[0]}); }),
              each.stale ? staleDelete : DatabaseError("(nothing failed)", -1));
    EXPECT_EQ(scene.content(), each.stale ? before : scene.database.rows("SELECT * FROM t WHERE id = 2"));
  }
}

TEST(DatabaseWriter, CountsOnlyTheRowItselfAmongWhatItsDeletionTakesAlong) {
  Scene scene(twoRows +
              "CREATE TABLE child(p REFERENCES t(id) ON DELETE CASCADE); INSERT INTO child VALUES (1), (1), (2);"
              "CREATE TABLE log(id); CREATE TRIGGER d AFTER DELETE ON t BEGIN INSERT INTO log VALUES (old.id); END");
  scene.deleteRows({scene.rows[0]});
  EXPECT_EQ(scene.database.rows("SELECT p FROM child"), "2");
  EXPECT_EQ(scene.database.rows("SELECT id FROM log"), "1");
}

TEST(DatabaseWriter, DeletesRowsOfDifferentShapes) {
  Scene scene(
      "CREATE TABLE t(id INTEGER PRIMARY KEY, a); INSERT INTO t VALUES (1, 'x'), (2, x'00'), (3, NULL), (4, 'y')");
  scene.deleteRows({scene.rows[0], scene.rows[1], scene.rows[2]});
  EXPECT_EQ(scene.content(), "4|y");
  EXPECT_EQ(failureOf([&] { scene.deleteRows({scene.rows[3], scene.rows[3]}); }), staleDelete) << "twice";
  EXPECT_EQ(scene.content(), "4|y");
}

TEST(DatabaseWriter, RefusesToDeleteARowOfAnotherShape) {
  Scene scene(twoRows);
  DatabaseRow row = scene.rows[0];
  row.values.pop_back();
  EXPECT_EQ(failureOf([&] { scene.deleteRows({row}); }), DatabaseError("This row has no usable identity.", 1));
  EXPECT_EQ(scene.content(), "1|x|10\n2|y|20");
}

/// SQLite takes expressions up to 1,000 deep and counts a chain of AND by its length.
TEST(DatabaseWriter, ChangesTablesAsWideAsTheyCanBeRead) {
  for (std::size_t const count : {499U, 500U, 999U, 1001U, 1999U}) {
    SCOPED_TRACE(count);
    std::string columns = "c0";
    for (std::size_t column = 1; column < count; ++column) columns += ",c" + std::to_string(column);
    Scene scene("CREATE TABLE t(" + columns + "); INSERT INTO t(c0) VALUES (1), (2)");
    Changes changes;
    for (DatabaseColumn const& column : scene.schema.columns) changes.push_back({scene.rows[0], column.name, 5});
    DatabaseRow const row = scene.apply(changes)[0].row;
    EXPECT_EQ(row.values, Values(count, 5));
    EXPECT_EQ(failureOf([&] { scene.deleteRows({scene.rows[0]}); }), staleDelete);
    DatabaseRow other = row;
    other.values.back() = 6;
    EXPECT_EQ(failureOf([&] { scene.deleteRows({other}); }), staleDelete) << "the last column is compared too";
    scene.deleteRows({row});
    EXPECT_EQ(scene.database.rows("SELECT c0 FROM t"), "2");
  }
}

TEST(DatabaseWriter, EditsManyShapesInOneTransaction) {
  std::string columns;
  for (int column = 0; column < 100; ++column) columns += ", c" + std::to_string(column);
  std::string const count = "WITH RECURSIVE n(i) AS (SELECT 1 UNION ALL SELECT i + 1 FROM n WHERE i < 100)";
  Scene scene("CREATE TABLE t(id INTEGER PRIMARY KEY" + columns + "); INSERT INTO t(id) " + count + "SELECT i FROM n");
  Changes changes;
  for (std::size_t row = 0; row < 100; ++row) changes.push_back({scene.rows[row], "c" + std::to_string(row), 1});
  scene.apply(changes);
  for (std::size_t row = 0; row < 100; ++row) {
    EXPECT_EQ(scene.database.rows("SELECT id FROM t WHERE c" + std::to_string(row) + " = 1"), std::to_string(row + 1));
  }
}

}  // namespace
}  // namespace tolva
