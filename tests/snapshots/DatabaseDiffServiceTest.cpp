// SPDX-License-Identifier: Apache-2.0
#include "snapshots/DatabaseDiffService.hpp"

#include <gtest/gtest.h>
#include <sqlite3.h>
#include <sys/stat.h>

#include <atomic>
#include <chrono>
#include <stdexcept>
#include <thread>

#include "snapshots/ComparisonScene.hpp"
#include "support/Descriptors.hpp"
#include "support/Sanitizer.hpp"

namespace tolva {
namespace {

using namespace std::chrono_literals;

using Rows = std::vector<DifferenceRow>;
using Cells = std::vector<DifferenceCell>;

constexpr char const* table = "CREATE TABLE t(id INTEGER PRIMARY KEY, a, b TEXT COLLATE NOCASE);";

/// Enough rows for statements that take a while.
constexpr char const* manyRows =
    "WITH c(x) AS (SELECT 1 UNION ALL SELECT x + 1 FROM c LIMIT 100000) INSERT INTO t SELECT x, x, x FROM c";

// What differs -----------------------------------------------------------------------------------------

TEST(DatabaseDiffService, TellsInsertedUpdatedAndDeletedRows) {
  ComparisonScene scene;
  auto const differences = scene.compareWith(table, "INSERT INTO t VALUES (1, 1, 'x'), (2, 2, 'y'), (3, 3, 'z')",
                                             "INSERT INTO t VALUES (2, 2, 'Y'), (3, 3, 'z'), (4, x'00', NULL)");
  std::string const sql = "CREATE TABLE t(id INTEGER PRIMARY KEY, a, b TEXT COLLATE NOCASE)";
  EXPECT_EQ(differences, (std::vector<TableDifference>{{.name = "t",
                                                        .kind = "table",
                                                        .status = "Compared",
                                                        .explanation = "Matched by declared primary key: id",
                                                        .inserted = 1,
                                                        .updated = 1,
                                                        .deleted = 1,
                                                        .beforeSQL = sql,
                                                        .afterSQL = sql}}));
  EXPECT_EQ(scene.rows(),
            (Rows{{1, "Inserted", "id=INTEGER 4"}, {2, "Updated", "id=INTEGER 2"}, {3, "Deleted", "id=INTEGER 1"}}));
  EXPECT_EQ(scene.cells(1), (Cells{{"id", std::nullopt, "INTEGER 4", true},
                                   {"a", std::nullopt, "BLOB hex 00 [1 bytes]", true},
                                   {"b", std::nullopt, "NULL", true}}));
  EXPECT_EQ(scene.cells(2), (Cells{{"id", "INTEGER 2", "INTEGER 2", false},
                                   {"a", "INTEGER 2", "INTEGER 2", false},
                                   {"b", "TEXT \"y\"", "TEXT \"Y\"", true}}));
  EXPECT_EQ(scene.cells(3), (Cells{{"id", "INTEGER 1", std::nullopt, true},
                                   {"a", "INTEGER 1", std::nullopt, true},
                                   {"b", "TEXT \"x\"", std::nullopt, true}}));
}

TEST(DatabaseDiffService, TellsATableWithTheSameRowsAsCompared) {
  ComparisonScene scene;
  std::string const rows = "INSERT INTO t VALUES (1, NULL, 'x'), (2, 1.5, 'y')";
  EXPECT_EQ(summaryOf(scene.compareWith(table, rows, rows)), "table:t Compared 0 0 0\n");
  EXPECT_EQ(scene.rows(), Rows{});
  EXPECT_EQ(failureOf([&] { scene.cells(1); }), DatabaseError("This comparison row is no longer available."));
}

TEST(DatabaseDiffService, TellsWhatBecameOfTheDefinitions) {
  ComparisonScene scene;
  auto const differences = scene.compare(
      "CREATE TABLE gone(a); CREATE TABLE other(a); CREATE INDEX i ON other(a); CREATE VIEW same AS SELECT 1;"
      "CREATE VIEW v AS SELECT 1; CREATE TABLE T(id INTEGER PRIMARY KEY)",
      "CREATE TABLE other(a, b); CREATE INDEX i ON other(a); CREATE VIEW same AS SELECT 1; CREATE VIEW v AS SELECT 2;"
      "CREATE TABLE t(id INTEGER PRIMARY KEY); CREATE TRIGGER r AFTER INSERT ON other BEGIN SELECT 1; END");
  EXPECT_EQ(summaryOf(differences),
            "table:T Removed 0 0 0\ntable:gone Removed 0 0 0\ntable:other Schema changed 0 0 0\n"
            "table:t Added 0 0 0\ntrigger:r Added 0 0 0\nview:v Schema changed 0 0 0\n");
  EXPECT_EQ(differences[0].explanation, "Schema object removed; rows not compared.");
  EXPECT_EQ(differences[0].beforeSQL, "CREATE TABLE T(id INTEGER PRIMARY KEY)");
  EXPECT_EQ(differences[0].afterSQL, std::nullopt);
  EXPECT_EQ(differences[2].explanation, "Definition changed; rows not compared.");
  EXPECT_EQ(differences[2].beforeSQL, "CREATE TABLE other(a)");
  EXPECT_EQ(differences[2].afterSQL, "CREATE TABLE other(a, b)");
  EXPECT_EQ(differences[3].explanation, "Schema object added; rows not compared.");
  EXPECT_EQ(differences[3].beforeSQL, std::nullopt);
  EXPECT_EQ(differences[3].afterSQL, "CREATE TABLE t(id INTEGER PRIMARY KEY)");
}

TEST(DatabaseDiffService, TellsTheTablesAsItComesToThem) {
  ComparisonScene scene;
  std::string const sql =
      "CREATE TABLE b(id INTEGER PRIMARY KEY); CREATE TABLE a(id INTEGER PRIMARY KEY); CREATE VIEW v AS SELECT 1";
  Lease const before = scene.snapshot("before.db", sql);
  Lease const after = scene.snapshot("after.db", sql + "; CREATE TABLE c(id)");
  std::string told;
  scene.service.compare(
      before, after, [&](std::string const& name) { told += name + " "; }, noTask);
  EXPECT_EQ(told, "a b ");
}

TEST(DatabaseDiffService, TakesNamesAsTheyAre) {
  for (std::string const name :
       {"we\"ird", "a.b", "gr\u00fc\u00dfe \U0001F600", "changes_0", "select", "main", "x'y]`"}) {
    ComparisonScene scene;
    std::string quoted = "\"";
    for (char const c : name) quoted += c == '"' ? std::string("\"\"") : std::string(1, c);
    quoted += "\"";
    std::string const sql = "CREATE TABLE " + quoted +
                            "(\"o0\" INTEGER PRIMARY KEY, kind, id, r, a, b, \"say \"\"x\"\"\", n0); INSERT INTO " +
                            quoted + " VALUES ";
    auto const differences = scene.compareWith(sql, "(1, 'k', 2, 3, 4, 5, 6, 7)", "(1, 'k', 2, 3, 4, 5, 66, 7)");
    EXPECT_EQ(summaryOf(differences), "table:" + name + " Compared 0 1 0\n");
    Cells const cells = scene.cells(1, "table:" + name);
    ASSERT_EQ(cells.size(), 8U);
    EXPECT_EQ(cells[0], (DifferenceCell{"o0", "INTEGER 1", "INTEGER 1", false}));
    EXPECT_EQ(cells[1], (DifferenceCell{"kind", "TEXT \"k\"", "TEXT \"k\"", false}));
    EXPECT_EQ(cells[6], (DifferenceCell{"say \"x\"", "INTEGER 6", "INTEGER 66", true}));
  }
}

TEST(DatabaseDiffService, KeepsApartObjectsThatLookAlike) {
  ComparisonScene scene;
  using namespace std::literals;
  std::string const one = "CREATE TABLE \"t\xff\"(id INTEGER PRIMARY KEY, a);"s;
  std::string const other = "CREATE TABLE \"t\xfe\"(id INTEGER PRIMARY KEY, a);"s;
  auto const removed = scene.compare(one + other, one);
  ASSERT_EQ(removed.size(), 2U);
  EXPECT_EQ(removed[0].name, "t\uFFFD");
  EXPECT_EQ(removed[0].status, "Removed");
  EXPECT_EQ(removed[1].status, "Compared");
  auto const both = scene.compare(one + other, one + other + "INSERT INTO \"t\xfe\" VALUES (1, 1)");
  ASSERT_EQ(both.size(), 2U);
  EXPECT_EQ(both[0].status, "Compared");
  EXPECT_EQ(both[0].inserted, 1);
  EXPECT_EQ(both[1].status, "Not compared");
  EXPECT_EQ(both[1].explanation, "Another table is shown by the same name.");
  EXPECT_EQ(scene.rows("table:t\uFFFD"), (Rows{{1, "Inserted", "id=INTEGER 1"}}));
}

TEST(DatabaseDiffService, SeesThatDefinitionsDifferInBytesThatAreShownAlike) {
  ComparisonScene scene;
  auto const differences = scene.compare("CREATE VIEW v AS SELECT '\xff'", "CREATE VIEW v AS SELECT '\xfe'");
  ASSERT_EQ(summaryOf(differences), "view:v Schema changed 0 0 0\n");
  EXPECT_EQ(differences[0].beforeSQL, differences[0].afterSQL);
}

TEST(DatabaseDiffService, DoesNotTakeTwoColumnsThatLookAlikeForOne) {
  ComparisonScene scene;
  std::string const sql = "CREATE TABLE t(id INTEGER PRIMARY KEY, \"a\xff\", \"a\uFFFD\"); INSERT INTO t VALUES ";
  auto const differences = scene.compareWith(sql, "(1, 1, 1)", "(1, 2, 1)");
  EXPECT_EQ(summaryOf(differences), "table:t Not compared 0 0 0\n");
  EXPECT_EQ(differences[0].explanation, "Unsupported column metadata.");
}

// Rows and cells ---------------------------------------------------------------------------------------

TEST(DatabaseDiffService, PagesThroughTheRows) {
  ComparisonScene scene;
  scene.compareWith(
      table, "", "WITH c(x) AS (SELECT 1 UNION ALL SELECT x + 1 FROM c LIMIT 250) INSERT INTO t SELECT x, x, x FROM c");
  struct PageCase {
    std::int64_t after;
    std::int64_t limit;
    std::size_t rows;
    std::int64_t first;
  };
  PageCase const pages[] = {{0, 0, 1, 1},       {0, -5, 1, 1},     {0, 1, 1, 1},         {0, 99, 99, 1},
                            {0, 100, 100, 1},   {0, 1000, 100, 1}, {100, 100, 100, 101}, {200, 100, 50, 201},
                            {249, 100, 1, 250}, {-7, 2, 2, 1}};
  for (PageCase const& page : pages) {
    auto const rows = scene.service.rows("table:t", page.after, page.limit, noTask);
    ASSERT_EQ(rows.size(), page.rows) << page.after << " " << page.limit;
    EXPECT_EQ(rows.front().id, page.first);
  }
  EXPECT_EQ(scene.service.rows("table:t", 250, 100, noTask), Rows{});
}

TEST(DatabaseDiffService, ShowsAKeyOfSeveralColumns) {
  ComparisonScene scene;
  scene.compareWith("CREATE TABLE t(a, k TEXT, j, PRIMARY KEY(j, k)) WITHOUT ROWID; INSERT INTO t VALUES ",
                    "(1, 'x', 1), (1, 'gone', 2.5)", "(2, 'x', 1), (1, 'new', x'61')");
  EXPECT_EQ(scene.rows(), (Rows{{1, "Inserted", "j=BLOB hex 61 [1 bytes], k=TEXT \"new\""},
                                {2, "Updated", "j=INTEGER 1, k=TEXT \"x\""},
                                {3, "Deleted", "j=REAL 2.5, k=TEXT \"gone\""}}));
}

TEST(DatabaseDiffService, ShowsARowOfManyLargeValues) {
  if (sanitized) GTEST_SKIP() << "takes several hundred MiB";
  ComparisonScene scene;
  std::string sql = "CREATE TABLE t(id INTEGER PRIMARY KEY, n, a";
  for (int column = 0; column < 150; ++column) {
    sql += ", g" + std::to_string(column) + " AS (CAST(zeroblob(n) AS TEXT))";
  }
  sql += "); INSERT INTO t(id, n, a) VALUES (1, 1000000, ";
  ASSERT_EQ(summaryOf(scene.compareWith(sql, "1)", "2)")), "table:t Compared 0 1 0\n");
  Cells const cells = scene.cells(1);
  ASSERT_EQ(cells.size(), 153U);
  EXPECT_EQ(cells[2], (DifferenceCell{"a", "INTEGER 1", "INTEGER 2", true}));
  EXPECT_TRUE(cells[152].after->ends_with("[1000000 bytes]"));
}

TEST(DatabaseDiffService, HasRowsOnlyOfTablesThatItCompared) {
  ComparisonScene scene;
  DatabaseError const noRows("No row comparison is available for this table.");
  DatabaseError const noCells("No row comparison is available.");
  EXPECT_EQ(failureOf([&] { scene.rows(); }), noRows);
  EXPECT_EQ(failureOf([&] { scene.cells(1); }), noCells);
  scene.compareWith(table, "CREATE TABLE k(a)", "CREATE TABLE k(a)");
  EXPECT_EQ(scene.rows(), Rows{});
  EXPECT_EQ(failureOf([&] { scene.rows("table:k"); }), noRows);
  EXPECT_EQ(failureOf([&] { scene.cells(1, "table:k"); }), noCells);
  scene.service.close();
  EXPECT_EQ(failureOf([&] { scene.rows(); }), noRows);
  EXPECT_EQ(failureOf([&] { scene.cells(1); }), noCells);
}

TEST(DatabaseDiffService, ReadsNothingForACancelledTask) {
  ComparisonScene scene;
  scene.compareWith(table, "", "INSERT INTO t VALUES (1, 1, 1)");
  std::stop_source task;
  task.request_stop();
  EXPECT_THROW(scene.service.rows("table:t", 0, 1, task.get_token()), TaskCancelled);
  EXPECT_THROW(scene.service.cells("table:t", 1, task.get_token()), TaskCancelled);
  EXPECT_EQ(scene.cells(1).size(), 3U);
}

/// What is prepared for so many columns takes memory, and with it asks the task and the clock.
TEST(DatabaseDiffService, ReadsNothingOfAWideTableForACancelledTaskOrTooLate) {
  ComparisonScene scene;
  std::string wide = "CREATE TABLE t(id INTEGER PRIMARY KEY";
  for (int column = 1; column < 200; ++column) wide += ", c" + std::to_string(column);
  wide += ");";
  scene.compareWith(wide, "", "INSERT INTO t(id) VALUES (1)");
  std::stop_source task;
  task.request_stop();
  EXPECT_THROW(scene.service.cells("table:t", 1, task.get_token()), TaskCancelled);
  DatabaseDiffService late({.readingSeconds = 0});
  late.compare(scene.snapshot("older.db", wide), scene.snapshot("newer.db", wide + "INSERT INTO t(id) VALUES (1)"), {},
               noTask);
  EXPECT_EQ(failureOf([&] { late.cells("table:t", 1, noTask); }),
            DatabaseError("Reading the comparison took too long."));
}

TEST(DatabaseDiffService, ReadsForALimitedTime) {
  ComparisonScene scene;
  DatabaseDiffService service({.readingSeconds = 0});
  Lease const before = scene.snapshot("before.db", table);
  Lease const after = scene.snapshot("after.db", std::string(table) + "INSERT INTO t VALUES (1, 1, 1)");
  service.compare(before, after, {}, noTask);
  DatabaseError const late("Reading the comparison took too long.");
  EXPECT_EQ(failureOf([&] { service.rows("table:t", 0, 1, noTask); }), late);
  EXPECT_EQ(failureOf([&] { service.cells("table:t", 1, noTask); }), late);
}

TEST(DatabaseDiffService, TellsARowThatASnapshotDoesNotGiveAgain) {
  ComparisonScene scene;
  // The index holds all keys in the opposite order, so that they are read and not found.
  std::string const sql = "CREATE TABLE t(k TEXT NOT NULL PRIMARY KEY, a);";
  std::string const damaged =
      "INSERT INTO t VALUES ('a', 1), ('b', 2), ('c', 3); CREATE TABLE u(k TEXT NOT NULL UNIQUE, a);"
      "CREATE INDEX i ON u(k DESC); INSERT INTO u SELECT * FROM t; PRAGMA writable_schema=ON;"
      "UPDATE sqlite_schema SET rootpage = (SELECT rootpage FROM sqlite_schema WHERE name = 'i')"
      " WHERE name = 'sqlite_autoindex_t_1'; DELETE FROM sqlite_schema WHERE tbl_name = 'u'";
  auto const differences = scene.compare(sql, sql + damaged);
  ASSERT_EQ(summaryOf(differences), "table:t Compared 3 0 0\n");
  int gone = 0;
  for (DifferenceRow const& row : scene.rows()) {
    try {
      EXPECT_EQ(row.identity, "k=" + scene.cells(row.id)[0].after.value_or(""));
    } catch (DatabaseError const& error) {
      ++gone;
      EXPECT_EQ(error, DatabaseError("This comparison row is no longer available."));
    }
  }
  EXPECT_GT(gone, 0);
}

// What is refused --------------------------------------------------------------------------------------

TEST(DatabaseDiffService, RefusesSnapshotsThatDoNotBelongTogether) {
  ComparisonScene scene;
  Lease const one = scene.snapshot("one.db", table);
  Lease const same = scene.lease("one.db", one->snapshot.id);
  Lease const foreign = scene.lease("one.db", UUID::make(), std::string(64, 'b'));
  Lease const alien = scene.lease("one.db", one->snapshot.id, std::string(64, 'b'));
  DatabaseError const otherHistory("Choose snapshots from the same source history.");
  EXPECT_EQ(failureOf([&] { scene.compare(one, one); }), DatabaseError("Choose two different snapshots."));
  EXPECT_EQ(failureOf([&] { scene.compare(one, same); }), DatabaseError("Choose two different snapshots."));
  EXPECT_EQ(failureOf([&] { scene.compare(one, foreign); }), otherHistory);
  EXPECT_EQ(failureOf([&] { scene.compare(one, alien); }), otherHistory);
  EXPECT_TRUE(std::filesystem::is_empty(scene.folder / "tmp"));
}

TEST(DatabaseDiffService, RefusesASecondComparisonMeanwhile) {
  ComparisonScene scene;
  Lease const before = scene.snapshot("before.db", table);
  Lease const after = scene.snapshot("after.db", table);
  DatabaseDiffService other;
  other.compare(before, after, {}, noTask);
  DatabaseError const refusal("Another snapshot comparison is running. Wait for it to finish or cancel it first.");
  int told = 0;
  auto const compareMeanwhile = [&](std::string const&) {
    ++told;
    std::thread([&] {
      for (int time = 0; time < 2; ++time) {
        EXPECT_EQ(failureOf([&] { other.compare(before, after, {}, noTask); }), refusal) << time;
      }
      EXPECT_EQ(failureOf([&] { other.rows("table:t", 0, 1, noTask); }),
                DatabaseError("No row comparison is available for this table."))
          << "what it had is closed before";
    }).join();
  };
  EXPECT_EQ(summaryOf(scene.service.compare(before, after, compareMeanwhile, noTask)), "table:t Compared 0 0 0\n");
  EXPECT_EQ(told, 1);
  EXPECT_EQ(summaryOf(other.compare(before, after, {}, noTask)), "table:t Compared 0 0 0\n");
  EXPECT_EQ(scene.rows(), Rows{}) << "a finished comparison stays open beside another";
}

/// Has the guard report that a file was opened for writing, whatever was asked for.
class WritableOpens {
 public:
  WritableOpens() {
    open_ = vfs_->xOpen;
    vfs_->xOpen = openWritable;
  }
  ~WritableOpens() { vfs_->xOpen = open_; }
  WritableOpens(WritableOpens const&) = delete;
  WritableOpens& operator=(WritableOpens const&) = delete;

 private:
  using Open = int (*)(sqlite3_vfs*, char const*, sqlite3_file*, int, int*);

  static int openWritable(sqlite3_vfs* vfs, char const* path, sqlite3_file* file, int flags, int* given) {
    int told = 0;
    int const opened = open_(vfs, path, file, flags, &told);
    if (given) *given = (told & ~SQLITE_OPEN_READONLY) | SQLITE_OPEN_READWRITE;
    return opened;
  }

  static inline Open open_ = nullptr;
  sqlite3_vfs* const vfs_ = sqlite3_vfs_find("tolva");
};

TEST(DatabaseDiffService, RefusesAFileThatIsNotOpenedForReadingOnly) {
  ComparisonScene scene;
  Lease const before = scene.snapshot("before.db", table);
  Lease const after = scene.snapshot("after.db", table);
  scene.compare(before, after);  // SQLite is prepared by then
  {
    WritableOpens const writable;
    EXPECT_EQ(failureOf([&] { scene.compare(before, after); }),
              DatabaseError("Snapshot attachment must be genuinely read-only."));
  }
  EXPECT_TRUE(scene.left().empty());
  EXPECT_EQ(summaryOf(scene.compare(before, after)), "table:t Compared 0 0 0\n");
}

TEST(DatabaseDiffService, ReadsAFileOfAnyName) {
  ComparisonScene scene;
  for (std::string const name : {"a?mode=rw.db", "a#b.db", "a%20b.db", "gr\u00fc\u00dfe \xff&=+.db", "\"'.db"}) {
    Lease const before = scene.snapshot(name, table);
    Lease const after = scene.snapshot("after.db", std::string(table) + "INSERT INTO t VALUES (1, 1, 1)");
    EXPECT_EQ(summaryOf(scene.compare(before, after)), "table:t Compared 1 0 0\n") << name;
    auto const doubled = std::make_shared<SnapshotLease const>(
        before->snapshot, std::filesystem::path("/" + before->databaseURL.string()),
        StoreLock(scene.folder / "lock", LockKind::shared));
    EXPECT_EQ(summaryOf(scene.compare(doubled, after)), "table:t Compared 1 0 0\n") << "/" << name;
  }
}

TEST(DatabaseDiffService, ReadsNoFileThatIsNone) {
  ComparisonScene scene;
  Lease const before = scene.snapshot("before.db", table);
  scene.folder.write("text.db", std::string(4096, 'x'));
  EXPECT_EQ(failureOf([&] { scene.compare(before, scene.lease("text.db")); }).code, SQLITE_NOTADB);
  EXPECT_EQ(failureOf([&] { scene.compare(scene.lease("text.db"), before); }).code, SQLITE_NOTADB);
  EXPECT_EQ(failureOf([&] { scene.compare(before, scene.lease("absent.db")); }).code & 0xFF, SQLITE_CANTOPEN);
  EXPECT_EQ(failureOf([&] { scene.compare(scene.lease("absent.db"), before); }).code & 0xFF, SQLITE_CANTOPEN);
  Lease const cut = scene.lease(std::string("before.db\0x", 11));
  EXPECT_EQ(failureOf([&] { scene.compare(before, cut); }).code & 0xFF, SQLITE_CANTOPEN);
  EXPECT_TRUE(scene.left().empty());
  EXPECT_FALSE(std::filesystem::exists(scene.folder / "absent.db"));
}

TEST(DatabaseDiffService, RefusesSnapshotsOfDifferentEncodings) {
  ComparisonScene scene;
  std::string const wide = "PRAGMA encoding='UTF-16'; CREATE TABLE t(a)";
  std::string const reason = "attached databases must use the same text encoding as main database";
  EXPECT_TRUE(failureOf([&] { scene.compare("CREATE TABLE t(a)", wide); }).detail.starts_with(reason));
  EXPECT_TRUE(scene.left().empty());
}

TEST(DatabaseDiffService, TakesAnEmptyFileInAnyEncoding) {
  ComparisonScene scene;
  for (char const* encoding : {"UTF-8", "UTF-16le", "UTF-16be"}) {
    std::string const sql = "PRAGMA encoding='" + std::string(encoding) + "'; CREATE TABLE t(a)";
    EXPECT_EQ(summaryOf(scene.compare("", sql)), "table:t Added 0 0 0\n") << encoding;
    EXPECT_EQ(summaryOf(scene.compare(sql, "")), "table:t Removed 0 0 0\n") << encoding;
  }
  EXPECT_EQ(summaryOf(scene.compare("", "")), "");
}

// Its folder and its leases ----------------------------------------------------------------------------

TEST(DatabaseDiffService, KeepsItsStoreInAPrivateFolderUntilItIsClosed) {
  ComparisonScene scene;
  Lease const before = scene.snapshot("before.db", table);
  Lease const after = scene.snapshot("after.db", table);
  long const descriptors = openDescriptors();
  scene.compare(before, after);
  auto const left = scene.left();
  ASSERT_EQ(left.size(), 1U);
  std::string const name = left[0].filename();
  std::string const prefix = "tolva-diff-";
  ASSERT_TRUE(name.starts_with(prefix));
  ASSERT_TRUE(UUID::parse(name.substr(prefix.size())));
  EXPECT_EQ(name, prefix + UUID::parse(name.substr(prefix.size()))->text());
  struct stat status {};
  ASSERT_EQ(::stat(left[0].c_str(), &status), 0);
  EXPECT_EQ(status.st_mode & 0777, 0700U);
  EXPECT_TRUE(std::filesystem::exists(left[0] / "results.sqlite"));
  EXPECT_EQ(before.use_count(), 2);
  EXPECT_EQ(after.use_count(), 2);
  scene.service.close();
  scene.service.close();
  EXPECT_TRUE(scene.left().empty());
  EXPECT_EQ(before.use_count(), 1);
  EXPECT_EQ(after.use_count(), 1);
  EXPECT_EQ(openDescriptors(), descriptors);
}

TEST(DatabaseDiffService, ClosesItsResultBeforeTheNextAndWithItself) {
  ComparisonScene scene;
  Lease const before = scene.snapshot("before.db", table);
  Lease const after = scene.snapshot("after.db", table);
  {
    DatabaseDiffService service;
    service.compare(before, after, {}, noTask);
    auto const first = scene.left();
    service.compare(before, after, {}, noTask);
    auto const second = scene.left();
    ASSERT_EQ(second.size(), 1U);
    EXPECT_NE(first, second);
    EXPECT_THROW(failureOf([&] {
                   std::stop_source task;
                   task.request_stop();
                   service.compare(before, after, {}, task.get_token());
                 }),
                 TaskCancelled);
    EXPECT_TRUE(scene.left().empty()) << "even when nothing follows";
    service.compare(before, after, {}, noTask);
  }
  EXPECT_TRUE(scene.left().empty());
  EXPECT_EQ(before.use_count(), 1);
}

TEST(DatabaseDiffService, ClosesWhateverHasBecomeOfItsFolder) {
  ComparisonScene scene;
  scene.compareWith(table, "", "");
  std::filesystem::remove_all(scene.left().front());
  scene.service.close();
  scene.compareWith(table, "", "");
  scene.folder.write("tmp/" + scene.left().front().lexically_relative(scene.folder / "tmp").string() + "/more", "x");
  scene.service.close();
  EXPECT_TRUE(scene.left().empty());
}

TEST(DatabaseDiffService, KeepsWhatItComparedWhenItsFolderGoes) {
  ComparisonScene scene;
  std::string const sql = "CREATE TABLE a(id INTEGER PRIMARY KEY); CREATE TABLE b(id INTEGER PRIMARY KEY);";
  Lease const before = scene.snapshot("before.db", sql);
  Lease const after = scene.snapshot("after.db", sql + "INSERT INTO a VALUES (1); INSERT INTO b VALUES (1)");
  auto const remove = [&](std::string const& name) {
    if (name == "b") std::filesystem::remove_all(scene.left().front());
  };
  auto const differences = scene.service.compare(before, after, remove, noTask);
  EXPECT_EQ(summaryOf(differences), "table:a Compared 1 0 0\ntable:b Not compared 0 0 0\n");
  EXPECT_TRUE(differences[1].explanation.starts_with(
      "This database is currently read-only. attempt to write a readonly database [CREATE TABLE changes_1("))
      << differences[1].explanation;
  EXPECT_EQ(scene.rows("table:a"), (Rows{{1, "Inserted", "id=INTEGER 1"}}));
  EXPECT_EQ(scene.cells(1, "table:a"), (Cells{{"id", std::nullopt, "INTEGER 1", true}}));
  scene.service.close();
  EXPECT_TRUE(scene.left().empty());
}

TEST(DatabaseDiffService, NeedsAPrivateTemporaryFolder) {
  ComparisonScene scene;
  std::filesystem::path const own = scene.folder / "tmp" / ("tolva-" + std::to_string(::geteuid()));
  std::filesystem::create_directory(own);
  ASSERT_EQ(::chmod(own.c_str(), 0777), 0);
  EXPECT_EQ(failureOf([&] { scene.compareWith(table, "", ""); }),
            DatabaseError("unable to open database file", SQLITE_CANTOPEN));
  EXPECT_TRUE(scene.left().empty());
}

TEST(DatabaseDiffService, LeavesTheSnapshotsAsTheyAre) {
  ComparisonScene scene;
  Lease const before = scene.snapshot("before.db", std::string(table) + manyRows);
  Lease const after = scene.snapshot("after.db", table);
  std::string const bytes = scene.folder.read("before.db");
  auto const names = scene.folder.names();
  scene.compare(before, after);
  scene.rows();
  scene.cells(1);
  EXPECT_EQ(scene.folder.names(), names);
  scene.service.close();
  EXPECT_EQ(scene.folder.read("before.db"), bytes);
}

// Ending early -----------------------------------------------------------------------------------------

TEST(DatabaseDiffService, EndsAsAFailureOfWhoIsTold) {
  ComparisonScene scene;
  Lease const before = scene.snapshot("before.db", table);
  Lease const after = scene.snapshot("after.db", table);
  auto const fail = [](std::string const&) { throw std::runtime_error("told"); };
  EXPECT_THROW(scene.service.compare(before, after, fail, noTask), std::runtime_error);
  auto const failToo = [](std::string const&) { throw DatabaseError("told"); };
  EXPECT_EQ(failureOf([&] { scene.service.compare(before, after, failToo, noTask); }), DatabaseError("told"));
  EXPECT_TRUE(scene.left().empty());
  EXPECT_EQ(before.use_count(), 1);
  EXPECT_EQ(summaryOf(scene.compare(before, after)), "table:t Compared 0 0 0\n") << "the next one is not refused";
}

TEST(DatabaseDiffService, EndsWithItsTask) {
  ComparisonScene scene;
  // A single statement reads all of these values, which takes it a second.
  std::string const sql =
      "CREATE TABLE t(id INTEGER PRIMARY KEY, n, g AS (length(hex(zeroblob(n)))));"
      "WITH c(x) AS (SELECT 1 UNION ALL SELECT x + 1 FROM c LIMIT 2000) INSERT INTO t(n) SELECT 100000 FROM c";
  Lease const before = scene.snapshot("before.db", sql);
  Lease const after = scene.snapshot("after.db", sql);
  for (auto const delay : {0ms, 1ms, 5ms, 20ms}) {
    std::stop_source task;
    std::jthread stopper;
    auto const stop = [&](std::string const&) {
      if (delay == 0ms) task.request_stop();
      stopper = std::jthread([&] {
        std::this_thread::sleep_for(delay);
        task.request_stop();
      });
    };
    EXPECT_THROW(scene.service.compare(before, after, stop, task.get_token()), TaskCancelled) << delay.count();
    EXPECT_TRUE(scene.left().empty());
    EXPECT_EQ(before.use_count(), 1);
  }
}

TEST(DatabaseDiffService, EndsWithItsHandle) {
  ComparisonScene scene;
  Lease const before = scene.snapshot("before.db", std::string(table) + manyRows);
  Lease const after = scene.snapshot("after.db", table);
  std::jthread canceller;
  auto const cancel = [&](std::string const&) {
    canceller = std::jthread([&](std::stop_token ended) {
      while (!ended.stop_requested()) scene.service.cancellation()->cancel();
    });
  };
  DatabaseError const failure = failureOf([&] { scene.service.compare(before, after, cancel, noTask); });
  canceller.request_stop();
  canceller.join();
  EXPECT_TRUE(failure.isCancellation()) << failure.detail;
  EXPECT_TRUE(scene.left().empty());
  EXPECT_EQ(before.use_count(), 1);
  EXPECT_EQ(summaryOf(scene.compare(before, after)), "table:t Compared 0 0 100000\n");
}

}  // namespace
}  // namespace tolva
