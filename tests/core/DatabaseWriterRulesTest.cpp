// SPDX-License-Identifier: Apache-2.0
// What an edit or a delete does where the table has rules of its own: keys, collations, constraints, triggers, and
// columns that store another value than was given.
#include <gtest/gtest.h>
#include <sqlite3.h>

#include <limits>

#include "support/EditScene.hpp"
#include "support/Failure.hpp"

namespace tolva {
namespace {

using Changes = std::vector<CellChange>;
using Scene = EditScene;
using Values = std::vector<SQLiteValue>;

DatabaseError const staleEdit("This row changed in another application. Refresh before editing.", 1);
DatabaseError const staleDelete("This row changed externally. Refresh before deleting.", 1);

// Identities ---------------------------------------------------------------------------------------

/// The guards compare as the column does, which here cannot tell the two keys apart.
TEST(DatabaseWriter, RefusesARowWhoseKeyIsFinerThanItsColumn) {
  Scene scene(
      "CREATE TABLE t(a TEXT COLLATE NOCASE, b, PRIMARY KEY (a COLLATE BINARY)) WITHOUT ROWID;"
      "INSERT INTO t VALUES ('A', 1), ('a', 1)");
  EXPECT_EQ(failureOf([&] {
              scene.apply({{scene.rows[0], "b", 2}});
            }),
            DatabaseError("The edit matched more than one row.", 1));
  EXPECT_EQ(failureOf([&] { scene.deleteRows({scene.rows[0]}); }), staleDelete);
  EXPECT_EQ(scene.content(), "A|1\na|1");
  scene.database.run("DELETE FROM t WHERE b = 1 AND a = 'a' COLLATE BINARY");
  scene.apply({{scene.rows[1], "b", 2}});
  EXPECT_EQ(scene.content(), "A|2") << "the column takes the one that is left for the other";
}

/// Without a key of its own a row is named by its rowid, which VACUUM may give to another row.
TEST(DatabaseWriter, TellsRenumberedRowsApartByTheirOldValues) {
  Scene scene("CREATE TABLE t(a, b); INSERT INTO t VALUES ('p', 0), ('q', 0), ('r', 0)");
  scene.database.run("DELETE FROM t WHERE a = 'p'; VACUUM");
  ASSERT_EQ(scene.database.rows("SELECT rowid, a FROM t"), "1|q\n2|r");
  EXPECT_EQ(failureOf([&] { scene.apply({{scene.rows[1], "a", "new"}}); }), staleEdit);
  EXPECT_EQ(failureOf([&] { scene.deleteRows({scene.rows[1]}); }), staleDelete);
  scene.apply({{scene.rows[1], "b", 7}});
  EXPECT_EQ(scene.content(), "q|0\nr|7") << "equal old values are taken for the same row";
}

TEST(DatabaseWriter, EditsOnByTheRowOfAnEarlierResult) {
  Scene scene("CREATE TABLE t(id INTEGER PRIMARY KEY, a, b); INSERT INTO t VALUES (1, 'x', 10)");
  DatabaseRow row = scene.apply({{scene.rows[0], "a", "new"}})[0].row;
  row = scene.apply({{row, "id", 7}, {row, "b", 11}})[0].row;
  row = scene.apply({{row, "a", "newer"}})[0].row;
  EXPECT_EQ(row, (DatabaseRow{{7, "newer", 11}, {7}}));
  EXPECT_EQ(scene.content(), "7|newer|11");
  scene.deleteRows({row});
  EXPECT_EQ(scene.content(), "");
}

// Values that are stored as others -----------------------------------------------------------------

TEST(DatabaseWriter, FindsARowNoMoreByAResultThatIsNotWhatIsStored) {
  Scene scene("CREATE TABLE t(id INTEGER PRIMARY KEY, a REAL); INSERT INTO t VALUES (1, 0.5)");
  DatabaseRow const row = scene.apply({{scene.rows[0], "a", std::int64_t{9'007'199'254'740'993}}})[0].row;
  EXPECT_EQ(failureOf([&] { scene.apply({{row, "a", 1}}); }), staleEdit);
  EXPECT_EQ(failureOf([&] { scene.deleteRows({row}); }), staleDelete);
  EXPECT_EQ(scene.database.rows("SELECT CAST(a AS INT) FROM t"), "9007199254740992");
}

TEST(DatabaseWriter, StoresNaNAsNullAndFindsItAsThat) {
  Scene scene("CREATE TABLE t(id INTEGER PRIMARY KEY, a); INSERT INTO t VALUES (1, 'x')");
  DatabaseRow const row = scene.apply({{scene.rows[0], "a", std::numeric_limits<double>::quiet_NaN()}})[0].row;
  EXPECT_EQ(scene.content(), "1|NULL");
  EXPECT_EQ(failureOf([&] { scene.apply({{scene.rows[0], "a", 1}}); }), staleEdit);
  scene.apply({{row, "a", 1}});
  EXPECT_EQ(scene.content(), "1|1");
}

TEST(DatabaseWriter, DoesNotShowWhatAGeneratedColumnBecame) {
  Scene scene("CREATE TABLE t(id INTEGER PRIMARY KEY, a, g AS (a)); INSERT INTO t(id, a) VALUES (1, 5)");
  DatabaseRow const row = scene.apply({{scene.rows[0], "a", 7}})[0].row;
  EXPECT_EQ(row.values, (Values{1, 7, 5}));
  EXPECT_EQ(failureOf([&] { scene.deleteRows({row}); }), staleDelete);
  EXPECT_EQ(scene.content(), "1|7|7");
}

TEST(DatabaseWriter, DoesNotShowThatATriggerMovedTheKey) {
  Scene scene(
      "CREATE TABLE t(id INTEGER PRIMARY KEY, a); INSERT INTO t VALUES (1, 'x');"
      "CREATE TRIGGER u AFTER UPDATE OF a ON t BEGIN UPDATE t SET id = id + 100 WHERE id = new.id; END");
  DatabaseRow const row = scene.apply({{scene.rows[0], "a", "new"}})[0].row;
  EXPECT_EQ(row.identity, Values{1});
  EXPECT_EQ(scene.content(), "101|new");
  EXPECT_EQ(failureOf([&] { scene.apply({{row, "a", "newer"}}); }), staleEdit);
}

// Constraints --------------------------------------------------------------------------------------

TEST(DatabaseWriter, TakesEverythingBackWhenTheCommitBreaksAConstraint) {
  Scene scene(
      "CREATE TABLE p(id INTEGER PRIMARY KEY); CREATE TABLE t(id INTEGER PRIMARY KEY, a REFERENCES p DEFERRABLE "
      "INITIALLY DEFERRED); INSERT INTO t VALUES (1, NULL)");
  EXPECT_EQ(failureOf([&] {
              scene.apply({{scene.rows[0], "a", 5}});
            }),
            DatabaseError("FOREIGN KEY constraint failed [COMMIT]", SQLITE_CONSTRAINT_FOREIGNKEY));
  EXPECT_EQ(failureOf([&] {
              scene.writer.insert(scene.schema, {{"a", 5}});
            }),
            DatabaseError("FOREIGN KEY constraint failed [INSERT INTO \"t\" (\"a\") VALUES (?)]",
                          SQLITE_CONSTRAINT_FOREIGNKEY));
  EXPECT_EQ(scene.content(), "1|NULL");
  scene.database.run("INSERT INTO p VALUES (5)");
  scene.apply({{scene.rows[0], "a", 5}});
  EXPECT_EQ(scene.content(), "1|5");
}

/// The table asked for it: the row in the way goes without a word.
TEST(DatabaseWriter, ReplacesAnotherRowWhereTheTableSaysSo) {
  Scene scene(
      "CREATE TABLE t(id INTEGER PRIMARY KEY, a UNIQUE ON CONFLICT REPLACE); INSERT INTO t VALUES (1, 'x'), (2, 'y')");
  EXPECT_EQ(scene.apply({{scene.rows[0], "a", "y"}}).size(), 1);
  EXPECT_EQ(scene.content(), "1|y");
}

TEST(DatabaseWriter, GoesOnAfterAConstraintThatRollsBack) {
  Scene scene(
      "CREATE TABLE t(id INTEGER PRIMARY KEY, a UNIQUE ON CONFLICT ROLLBACK);"
      "INSERT INTO t VALUES (1, 'x'), (2, 'y'), (3, 'z')");
  EXPECT_EQ(failureOf([&] {
              scene.apply({{scene.rows[2], "a", "new"}, {scene.rows[0], "a", "y"}});
            }),
            DatabaseError("UNIQUE constraint failed: t.a", SQLITE_CONSTRAINT_UNIQUE));
  EXPECT_EQ(scene.content(), "1|x\n2|y\n3|z");
  scene.apply({{scene.rows[2], "a", "new"}});
  EXPECT_EQ(scene.content(), "1|x\n2|y\n3|new");
}

TEST(DatabaseWriter, RefusesToDeleteAParentTogetherWithTheChildThatItTakesAlong) {
  Scene scene(
      "CREATE TABLE t(id INTEGER PRIMARY KEY, p REFERENCES t ON DELETE CASCADE); INSERT INTO t VALUES (1, NULL), (2, "
      "1)");
  EXPECT_EQ(failureOf([&] { scene.deleteRows(scene.rows); }), staleDelete);
  EXPECT_EQ(scene.content(), "1|NULL\n2|1");
  scene.deleteRows({scene.rows[1], scene.rows[0]});
  EXPECT_EQ(scene.content(), "") << "the child first";
}

// Virtual tables -----------------------------------------------------------------------------------

TEST(DatabaseWriter, InsertsIntoAndDeletesFromAVirtualTableButCannotEditIt) {
  Scene scene("CREATE VIRTUAL TABLE t USING fts5(a, b); INSERT INTO t VALUES ('x', 'y'), ('z', 'w')");
  EXPECT_EQ(failureOf([&] {
              scene.apply({{scene.rows[0], "a", "new"}});
            }),
            DatabaseError("UPDATE RETURNING is not available on virtual tables", SQLITE_ERROR));
  scene.deleteRows({scene.rows[0]});
  scene.writer.insert(scene.schema, {{"a", "new"}});
  EXPECT_EQ(scene.content(), "z|w\nnew|NULL");
}

}  // namespace
}  // namespace tolva
