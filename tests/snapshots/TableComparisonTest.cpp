// SPDX-License-Identifier: Apache-2.0
#include "snapshots/TableComparison.hpp"

#include <gtest/gtest.h>
#include <sqlite3.h>

#include <algorithm>
#include <chrono>
#include <cstring>
#include <functional>
#include <memory>
#include <stop_token>
#include <string>
#include <thread>

#include "core/SQLiteConnection.hpp"
#include "platform/TaskCancellation.hpp"
#include "platform/Uptime.hpp"
#include "snapshots/ComparisonPlan.hpp"
#include "snapshots/ComparisonScene.hpp"
#include "support/CountedCalls.hpp"

namespace tolva {
namespace {

using namespace std::chrono_literals;

std::string rowsFrom(int first, int last) {
  return "WITH c(x) AS (SELECT " + std::to_string(first) + " UNION ALL SELECT x + 1 FROM c WHERE x < " +
         std::to_string(last) + ") INSERT INTO t SELECT x, x FROM c;";
}

constexpr char const* damage =
    "SQLite detected damage in this database. Restore a known-good backup or recover a separate copy. Tolva does not "
    "automatically repair databases.";

// Which tables -----------------------------------------------------------------------------------------

struct TableCase {
  char const* sql;
  std::string explanation;
};

TEST(TableComparison, MatchesRowsByADeclaredKeyThatLetsNoNullIn) {
  std::string const noKey = "No declared primary key. Rowid/fingerprint matching could misidentify changed rows.";
  std::string const nullable = "The declared primary key permits NULL; reliable row matching is unavailable.";
  TableCase const cases[] = {
      {"CREATE TABLE t(a)", noKey},
      {"CREATE TABLE t(id INTEGER PRIMARY KEY)", "Matched by declared primary key: id"},
      {"CREATE TABLE t(id INT PRIMARY KEY)", nullable},
      {"CREATE TABLE t(id INTEGER PRIMARY KEY DESC)", nullable},
      {"CREATE TABLE t(id INT PRIMARY KEY NOT NULL)", "Matched by declared primary key: id"},
      {"CREATE TABLE t(id INT PRIMARY KEY) WITHOUT ROWID", "Matched by declared primary key: id"},
      {"CREATE TABLE t(id TEXT PRIMARY KEY) STRICT", "Matched by declared primary key: id"},
      {"CREATE TABLE t(a NOT NULL, b, PRIMARY KEY(b, a))", nullable},
      {"CREATE TABLE t(a, b, c, PRIMARY KEY(b, a)) WITHOUT ROWID", "Matched by declared primary key: b, a"},
      {"CREATE VIRTUAL TABLE t USING fts5(a)", "Views, virtual tables and shadow tables are not row-compared."},
  };
  for (TableCase const& each : cases) {
    ComparisonScene scene;
    auto const differences = scene.compareWith(each.sql, "", "");
    auto const found = std::ranges::find(differences, "table:t", &TableDifference::id);
    ASSERT_NE(found, differences.end()) << each.sql;
    EXPECT_EQ(found->explanation, each.explanation) << each.sql;
    EXPECT_EQ(found->status, each.explanation.starts_with("Matched") ? "Compared" : "Not compared") << each.sql;
    EXPECT_EQ(found->beforeSQL, each.sql);
    EXPECT_EQ(found->afterSQL, each.sql);
  }
}

TEST(TableComparison, RefusesWideKeysAndTables) {
  auto const columns = [](int count) {
    std::string list = "c0";
    for (int column = 1; column < count; ++column) list += ",c" + std::to_string(column);
    return list;
  };
  auto const table = [&](int count, int key) {
    return "CREATE TABLE t(" + columns(count) + ",PRIMARY KEY(" + columns(key) + ")) WITHOUT ROWID";
  };
  ComparisonScene scene;
  EXPECT_EQ(scene.compareWith(table(200, 16), "", "")[0].status, "Compared");
  EXPECT_EQ(scene.compareWith(table(201, 1), "", "")[0].explanation,
            "Row comparison is limited to 200 columns per table.");
  EXPECT_EQ(scene.compareWith(table(20, 17), "", "")[0].explanation, "Comparison keys are limited to 16 columns.");
}

/// The comparison of two databases of `sql`, in which the collation "custom" is somebody else's.
std::vector<TableDifference> comparedWithCustomCollation(ComparisonScene& scene, std::string const& sql) {
  for (char const* name : {"before.db", "after.db"}) {
    sqlite3* handle = nullptr;
    EXPECT_EQ(sqlite3_open((scene.folder / name).c_str(), &handle), SQLITE_OK);
    auto const equal = [](void*, int, void const*, int, void const*) { return 0; };
    sqlite3_create_collation(handle, "custom", SQLITE_UTF8, nullptr, equal);
    EXPECT_EQ(rowsAsText(handle, sql), "");
    sqlite3_close(handle);
  }
  return scene.compare(scene.lease("before.db"), scene.lease("after.db"));
}

TEST(TableComparison, RefusesACollationOfSomebodyElse) {
  ComparisonScene scene;
  auto const differences =
      comparedWithCustomCollation(scene, "CREATE TABLE t(k TEXT COLLATE custom PRIMARY KEY NOT NULL)");
  EXPECT_EQ(summaryOf(differences), "table:t Not compared 0 0 0\n");
  EXPECT_EQ(differences[0].explanation, "The primary key requires an unsupported collation.");
}

TEST(TableComparison, ComparesNoTableWithACollationOfSomebodyElseInAnyColumn) {
  ComparisonScene scene;
  auto const differences =
      comparedWithCustomCollation(scene, "CREATE TABLE t(id INTEGER PRIMARY KEY, a TEXT COLLATE custom)");
  EXPECT_EQ(summaryOf(differences), "table:t Not compared 0 0 0\n");
  EXPECT_TRUE(differences[0].explanation.starts_with("no such collation sequence: custom ["))
      << differences[0].explanation;
}

TEST(TableComparison, ComparesNoTableWhoseKeyIsInAnIndexThatItCannotName) {
  ComparisonScene scene;
  std::string const sql = "CREATE TABLE \"t\xff\"(k TEXT NOT NULL PRIMARY KEY, a);";
  auto const differences = scene.compare(sql, sql);
  EXPECT_EQ(summaryOf(differences), "table:t\uFFFD Not compared 0 0 0\n");
  EXPECT_EQ(differences[0].explanation, "The primary key requires an unsupported collation.");
}

TEST(TableComparison, RefusesTwoIdentitiesBehindOneDefinition) {
  ComparisonScene scene;
  // A table that is there already makes SQLite pass over the second entry, which is the one that is read last.
  std::string const definition = "CREATE TABLE IF NOT EXISTS t(k TEXT NOT NULL PRIMARY KEY, a)";
  std::string const entry = "INSERT INTO sqlite_schema SELECT 'table', 't', 't', rootpage, '" + definition +
                            "' FROM sqlite_schema WHERE name = 't'";
  std::string const before =
      "CREATE TABLE t(k TEXT COLLATE NOCASE NOT NULL PRIMARY KEY, a); PRAGMA writable_schema=ON;" + entry;
  std::string const after = "CREATE TABLE t(k TEXT NOT NULL PRIMARY KEY, a); PRAGMA writable_schema=ON;" + entry;
  auto const differences = scene.compare(before, after);
  EXPECT_EQ(summaryOf(differences), "table:t Not compared 0 0 0\n");
  EXPECT_EQ(differences[0].explanation, "Row identity differs between snapshots.");
}

// Values -----------------------------------------------------------------------------------------------

TEST(TableComparison, ComparesByBytesAndStorageClass) {
  struct ValueCase {
    char const* before;
    char const* after;
    bool differ;
  };
  ValueCase const cases[] = {
      {"1", "1", false},
      {"1", "1.0", true},
      {"'1'", "1", true},
      {"NULL", "NULL", false},
      {"NULL", "0", true},
      {"0", "NULL", true},
      {"'a'", "'a'", false},
      {"'a'", "'A'", true},
      {"'a'", "'a '", true},
      {"'a'", "x'61'", true},
      {"x'61'", "x'61'", false},
      {"x'61'", "x'62'", true},
      {"''", "x''", true},
      {"''", "NULL", true},
      {"0.0", "-0.0", false},
      {"'a'||char(0)", "'a'", true},
      {"9e999", "9e999", false},
      {"char(0,1)", "char(0,2)", true},
      {"'e'||char(769)", "char(233)", true},
  };
  for (ValueCase const& each : cases) {
    ComparisonScene scene;
    std::string const table = "CREATE TABLE t(id INTEGER PRIMARY KEY, a COLLATE NOCASE); INSERT INTO t VALUES (1, ";
    auto const differences = scene.compareWith(table, std::string(each.before) + ")", std::string(each.after) + ")");
    EXPECT_EQ(differences[0].updated, each.differ ? 1 : 0) << each.before << " " << each.after;
  }
}

TEST(TableComparison, MatchesKeysByTheirCollation) {
  struct KeyCase {
    char const* collation;
    char const* before;
    char const* after;
    std::string counts;
  };
  KeyCase const cases[] = {
      {"BINARY", "'a'", "'A'", "1 0 1"},
      {"NOCASE", "'a'", "'A'", "0 1 0"},
      {"RTRIM", "'a'", "'a  '", "0 1 0"},
      {"RTRIM", "'a'", "'A'", "1 0 1"},
      {"NOCASE", "'\u00e4'", "'\u00c4'", "1 0 1"},
      {"NOCASE", "x'61'", "x'41'", "1 0 1"},
      {"BINARY", "1", "1.0", "0 1 0"},
      {"BINARY", "1", "'1'", "1 0 1"},
  };
  for (KeyCase const& each : cases) {
    ComparisonScene scene;
    std::string const table = "CREATE TABLE t(k COLLATE " + std::string(each.collation) +
                              " NOT NULL PRIMARY KEY, a); INSERT INTO t(a, k) VALUES (1, ";
    auto const differences = scene.compareWith(table, std::string(each.before) + ")", std::string(each.after) + ")");
    EXPECT_EQ(summaryOf(differences), "table:t Compared " + each.counts + "\n") << each.collation << each.before;
  }
}

TEST(TableComparison, SeesGeneratedColumns) {
  ComparisonScene scene;
  std::string const table =
      "CREATE TABLE t(id INTEGER PRIMARY KEY, a, g AS (a + 1), s AS (a * 2) STORED); INSERT INTO t(a) VALUES ";
  scene.compareWith(table, "(1)", "(2)");
  EXPECT_EQ(scene.cells(1), (std::vector<DifferenceCell>{{"id", "INTEGER 1", "INTEGER 1", false},
                                                         {"a", "INTEGER 1", "INTEGER 2", true},
                                                         {"g", "INTEGER 2", "INTEGER 3", true},
                                                         {"s", "INTEGER 2", "INTEGER 4", true}}));
}

// Bounds -----------------------------------------------------------------------------------------------

constexpr char const* table = "CREATE TABLE t(id INTEGER PRIMARY KEY, a);";

TEST(TableComparison, TellsATableThatHasTooManyDifferencesForTheStore) {
  ComparisonScene scene;
  DatabaseDiffService service({.storagePages = 16});
  std::string const others = std::string(table) + "CREATE TABLE u(id INTEGER PRIMARY KEY);";
  Lease const before = scene.snapshot("before.db", others);
  Lease const after = scene.snapshot("after.db", others + rowsFrom(1, 10'000) + "INSERT INTO u VALUES (1)");
  auto const differences = service.compare(before, after, {}, noTask);
  EXPECT_EQ(summaryOf(differences), "table:t Not compared 0 0 0\ntable:u Compared 1 0 0\n");
  EXPECT_EQ(differences[0].explanation,
            "Comparison result storage reached its 64 MiB budget or the disk is full; rows were not compared.");
  EXPECT_EQ(failureOf([&] { service.rows("table:t", 0, 1, noTask); }),
            DatabaseError("No row comparison is available for this table."));
  EXPECT_EQ(service.rows("table:u", 0, 9, noTask).size(), 1U);
}

TEST(TableComparison, TakesAStoreOfLessThanAPageForOneOfOne) {
  ComparisonScene scene;
  Lease const before = scene.snapshot("before.db", table);
  Lease const after = scene.snapshot("after.db", table);
  for (std::int64_t const pages : {1, 0, -1}) {
    DatabaseDiffService service({.storagePages = pages});
    EXPECT_EQ(service.compare(before, after, {}, noTask)[0].explanation,
              "Comparison result storage reached its 64 MiB budget or the disk is full; rows were not compared.")
        << pages;
  }
}

TEST(TableComparison, FailsForEachTableBehindAFullStore) {
  ComparisonScene scene;
  DatabaseDiffService service({.storagePages = 2});
  std::string const sql =
      std::string(table) + "CREATE TABLE a(id INTEGER PRIMARY KEY); CREATE TABLE u(id INTEGER PRIMARY KEY)";
  Lease const before = scene.snapshot("before.db", sql);
  Lease const after = scene.snapshot("after.db", sql);
  EXPECT_EQ(summaryOf(service.compare(before, after, {}, noTask)),
            "table:a Compared 0 0 0\ntable:t Not compared 0 0 0\ntable:u Not compared 0 0 0\n");
}

TEST(TableComparison, TellsARowThatIsTooLarge) {
  ComparisonScene scene;
  std::string const sql = std::string(table) + "CREATE TABLE u(id INTEGER PRIMARY KEY); INSERT INTO t VALUES (1, ";
  EXPECT_EQ(summaryOf(scene.compareWith(sql, "zeroblob(1048576))", "zeroblob(1048576))")),
            "table:t Compared 0 0 0\ntable:u Compared 0 0 0\n");
  auto const differences = scene.compareWith(sql, "zeroblob(1048577))", "zeroblob(1048577))");
  EXPECT_EQ(summaryOf(differences), "table:t Not compared 0 0 0\ntable:u Compared 0 0 0\n");
  EXPECT_EQ(differences[0].explanation, "A row exceeds the 1 MiB comparison limit; rows were not compared.");
}

TEST(TableComparison, TellsATableThatTakesTooLong) {
  ComparisonScene scene;
  std::string const sql = std::string(table) + "CREATE TABLE k(a); CREATE TABLE u(id INTEGER PRIMARY KEY)";
  Lease const before = scene.snapshot("before.db", sql);
  Lease const after = scene.snapshot("after.db", sql);
  DatabaseDiffService service({.tableSeconds = 0});
  auto const differences = service.compare(before, after, {}, noTask);
  EXPECT_EQ(summaryOf(differences),
            "table:k Not compared 0 0 0\ntable:t Not compared 0 0 0\ntable:u Not compared 0 0 0\n");
  std::string const late = "Table comparison exceeded its time budget; no row counts were retained.";
  EXPECT_EQ(differences[0].explanation,
            "No declared primary key. Rowid/fingerprint matching could misidentify changed rows.");
  EXPECT_EQ(differences[1].explanation, late);
  EXPECT_EQ(differences[2].explanation, late);
  auto const left = scene.left();
  ASSERT_EQ(left.size(), 1U);
  EXPECT_EQ(rowsAsText(left[0] / "results.sqlite", "SELECT count(*) FROM sqlite_schema"), "0");
}

TEST(TableComparison, TellsTheTaskBeforeTheTimeAndTheTimeBeforeTheRoom) {
  ComparisonScene scene;
  Lease const before = scene.snapshot("before.db", table);
  Lease const after = scene.snapshot("after.db", table);
  DatabaseDiffService service({.storagePages = 1, .tableSeconds = 0});
  EXPECT_EQ(service.compare(before, after, {}, noTask)[0].explanation,
            "Table comparison exceeded its time budget; no row counts were retained.");
  std::stop_source task;
  auto const stop = [&](std::string const&) { task.request_stop(); };
  EXPECT_THROW(service.compare(before, after, stop, task.get_token()), TaskCancelled);
  DatabaseDiffService patient({.storagePages = 1});
  EXPECT_EQ(patient.compare(before, after, {}, noTask)[0].explanation,
            "Comparison result storage reached its 64 MiB budget or the disk is full; rows were not compared.");
}

TEST(TableComparison, StopsAStatementAtTheDeadline) {
  ComparisonScene scene;
  // Far more rows than are compared in that time.
  std::string const sql = std::string(table) + rowsFrom(1, 300'000);
  Lease const before = scene.snapshot("before.db", sql);
  Lease const after = scene.snapshot("after.db", sql + "UPDATE t SET a = -a");
  DatabaseDiffService service({.tableSeconds = 0.01});
  auto const differences = service.compare(before, after, {}, noTask);
  EXPECT_EQ(differences[0].explanation, "Table comparison exceeded its time budget; no row counts were retained.");
  DatabaseDiffService patient;
  EXPECT_EQ(summaryOf(patient.compare(before, after, {}, noTask)), "table:t Compared 0 300000 0\n");
}

TEST(TableComparison, EndsTheWholeAtItsDeadline) {
  ComparisonScene scene;
  Lease const before = scene.snapshot("before.db", table);
  Lease const after = scene.snapshot("after.db", table);
  DatabaseDiffService service({.totalSeconds = 0});
  EXPECT_EQ(failureOf([&] { service.compare(before, after, {}, noTask); }),
            DatabaseError("Comparison exceeded five minutes. No complete result is available."));
  EXPECT_TRUE(scene.left().empty());
  EXPECT_EQ(before.use_count(), 1);
  EXPECT_EQ(summaryOf(scene.compare(before, after)), "table:t Compared 0 0 0\n");
}

TEST(TableComparison, EndsATableAtTheDeadlineOfTheWhole) {
  ComparisonScene scene;
  std::string const two = std::string(table) + "CREATE TABLE u(id INTEGER PRIMARY KEY);";
  // The time for the whole has begun when the first table is told of.
  auto const dawdle = [&](std::string const&) { std::this_thread::sleep_for(2100ms); };
  DatabaseDiffService service({.totalSeconds = 2});
  Lease const before = scene.snapshot("before.db", table);
  Lease const after = scene.snapshot("after.db", table);
  auto const differences = service.compare(before, after, dawdle, noTask);
  EXPECT_EQ(summaryOf(differences), "table:t Not compared 0 0 0\n");
  EXPECT_EQ(differences[0].explanation, "Table comparison exceeded its time budget; no row counts were retained.");
  Lease const older = scene.snapshot("older.db", two);
  Lease const newer = scene.snapshot("newer.db", two);
  EXPECT_EQ(failureOf([&] { service.compare(older, newer, dawdle, noTask); }),
            DatabaseError("Comparison exceeded five minutes. No complete result is available."));
}

// Within a statement -----------------------------------------------------------------------------------

/// A result store and two sides of a table `t` with one row or more, in which a test can define functions.
struct Sides {
  /// Both have the columns of `definition` behind the key, and `rows`.
  Sides(std::string const& definition, std::string const& rows) {
    for (std::string const side : {"older", "newer"}) {
      connection->execute("ATTACH ':memory:' AS " + side);
      connection->execute("CREATE TABLE " + side + ".t(id INTEGER PRIMARY KEY, n" + definition + ")");
      connection->execute("INSERT INTO " + side + ".t(n) " + rows);
    }
  }

  RowCounts compare(int columns, Uptime deadline, std::stop_token task) const {
    ComparisonPlan plan{.store = "changes_0",
                        .table = "t",
                        .identity = {.columns = {"id"}, .collations = {"BINARY"}, .allColumns = {"id", "n"}}};
    for (int column = 0; column < columns; ++column) plan.identity.allColumns.push_back("g" + std::to_string(column));
    return compareTable(*connection, plan, deadline, std::move(task));
  }

  std::shared_ptr<SQLiteConnection> const connection =
      SQLiteConnection::open({}, {.readOnly = false, .inMemory = true});

 private:
  CountedCalls filling_{connection->handle(), [] {}};  // a row that is inserted has its columns computed as well
};

/// Columns each of which has a function called, with a value of 16 KiB that is made for it.
std::string callingColumns(int count) {
  std::string sql;
  for (int column = 0; column < count; ++column) {
    std::string const number = std::to_string(column);
    sql += ", g" + number + " AS (counted(hex(zeroblob(n + " + number + "))))";
  }
  return sql;
}

TEST(TableComparison, EndsTheCallsOfOneRowAtTheDeadline) {
  Sides const sides(callingColumns(40), "VALUES (8192)");
  Uptime const deadline = uptime() + 500ms;
  CountedCalls counted(sides.connection->handle(), [&] { std::this_thread::sleep_until(deadline); });
  EXPECT_EQ(failureOf([&] { sides.compare(40, deadline, noTask); }),
            DatabaseError("Table comparison exceeded its time budget; no row counts were retained."));
  EXPECT_LE(counted.calls(), 3);
  EXPECT_EQ(sides.compare(40, Uptime::max(), noTask), RowCounts{});
  EXPECT_GE(counted.calls(), 80);
}

TEST(TableComparison, EndsTheCallsOfOneRowWithItsTask) {
  Sides const sides(callingColumns(40), "VALUES (8192)");
  std::stop_source task;
  CountedCalls counted(sides.connection->handle(), [&] { task.request_stop(); });
  EXPECT_THROW(sides.compare(40, Uptime::max(), task.get_token()), TaskCancelled);
  EXPECT_EQ(counted.calls(), 3);
}

TEST(TableComparison, HearsItsTaskBetweenTheRowsOfAStatement) {
  Sides const sides(callingColumns(1),
                    "WITH c(x) AS (SELECT 1 UNION ALL SELECT x + 1 FROM c LIMIT 20000) SELECT 1 FROM c");
  std::stop_source task;
  CountedCalls counted(sides.connection->handle(), [&] { task.request_stop(); });
  EXPECT_THROW(sides.compare(1, Uptime::max(), task.get_token()), TaskCancelled);
  EXPECT_LT(counted.calls(), 10'000);
}

TEST(TableComparison, TellsARowThatTakesTooLong) {
  ComparisonScene scene;
  std::string sql = "CREATE TABLE t(id INTEGER PRIMARY KEY, n";
  for (int column = 0; column < 100; ++column) {
    sql += ", g" + std::to_string(column) + " AS (instr(hex(zeroblob(n)), hex(zeroblob(n / 2)) || '1'))";
  }
  sql += "); INSERT INTO t(n) VALUES (20000)";
  DatabaseDiffService service({.tableSeconds = 0.05});
  Lease const before = scene.snapshot("before.db", sql);
  Lease const after = scene.snapshot("after.db", sql);
  auto const differences = service.compare(before, after, {}, noTask);
  EXPECT_EQ(summaryOf(differences), "table:t Not compared 0 0 0\n");
  EXPECT_EQ(differences[0].explanation, "Table comparison exceeded its time budget; no row counts were retained.");
}

/// Interrupts a statement that drops a table, as it begins.
int interruptDrop(unsigned, void* handle, void*, void* sql) {
  if (std::strncmp(static_cast<char const*>(sql), "DROP", 4) == 0) sqlite3_interrupt(static_cast<sqlite3*>(handle));
  return 0;
}

TEST(TableComparison, TellsACancellationOfItsTidyingAsOne) {
  Sides const sides("", "VALUES (1)");
  sides.connection->execute("PRAGMA main.max_page_count=1");
  auto const compare = [&] { sides.compare(0, Uptime::max(), noTask); };
  EXPECT_EQ(failureOf(compare).detail,
            "Comparison result storage reached its 64 MiB budget or the disk is full; rows were not compared.");
  sqlite3* const handle = sides.connection->handle();
  sqlite3_trace_v2(handle, SQLITE_TRACE_STMT, interruptDrop, handle);
  EXPECT_TRUE(failureOf(compare).isCancellation());
  sqlite3_trace_v2(handle, 0, nullptr, nullptr);
}

TEST(TableComparison, TellsAnErrorInAtMost600Characters) {
  ComparisonScene scene;
  // The failing statement is in the message, and with it the column's name: 1,000 letters with an accent each.
  std::string name;
  for (int letter = 0; letter < 1000; ++letter) name += "e\u0301";
  std::string const sql =
      "CREATE TABLE t(id INTEGER PRIMARY KEY, a); INSERT INTO t(a) VALUES (-9223372036854775808);"
      "PRAGMA writable_schema=ON; UPDATE sqlite_schema SET sql = 'CREATE TABLE t(id INTEGER PRIMARY KEY, a, \"" +
      name + "\" AS (abs(a)))'";
  auto const differences = scene.compareWith(sql, "", "");
  ASSERT_EQ(summaryOf(differences), "table:t Not compared 0 0 0\n");
  std::string const& told = differences[0].explanation;
  EXPECT_TRUE(
      told.starts_with("integer overflow [INSERT INTO changes_0(kind,o0,n0) SELECT 'Updated',a.\"id\",b.\"id\""))
      << told;
  std::size_t accents = 0;
  for (std::size_t at = told.find("\u0301"); at != told.npos; at = told.find("\u0301", at + 1)) ++accents;
  EXPECT_EQ(told.size() - 2 * accents, 600U) << "an accent is no character of its own";
  EXPECT_GT(accents, 50U);
}

// Damage -----------------------------------------------------------------------------------------------

TEST(TableComparison, NoticesAnIndexThatMissesRows) {
  ComparisonScene scene;
  // SQLite would count the table itself, or the other index, if it had its way.
  for (std::string const columns : {", a", "", ", a INT, b); CREATE INDEX i ON t(a"}) {
    SCOPED_TRACE(columns);
    std::string const sql =
        "CREATE TABLE t(k TEXT NOT NULL PRIMARY KEY" + columns + "); INSERT INTO t(k) VALUES ('a'), ('b'), ('c');";
    std::string const damaged =
        "CREATE TABLE u(k TEXT NOT NULL PRIMARY KEY); INSERT INTO u VALUES ('a'), ('c');"
        "PRAGMA writable_schema=ON; UPDATE sqlite_schema SET rootpage ="
        "(SELECT rootpage FROM sqlite_schema WHERE name = 'sqlite_autoindex_u_1') WHERE name = 'sqlite_autoindex_t_1';"
        "DELETE FROM sqlite_schema WHERE tbl_name = 'u'";
    struct Side {
      std::string before;
      std::string after;
    };
    for (Side const& side : {Side{sql + damaged, sql}, Side{sql, sql + damaged}, Side{sql + damaged, sql + damaged}}) {
      auto const differences = scene.compare(side.before, side.after);
      EXPECT_EQ(summaryOf(differences), "table:t Not compared 0 0 0\n");
      EXPECT_EQ(differences[0].explanation, damage);
    }
    EXPECT_EQ(summaryOf(scene.compare(sql, sql)), "table:t Compared 0 0 0\n");
  }
}

/// Has the index `i` of `t` hold the rows of another table, which goes.
std::string indexedAs(std::string const& rows) {
  return "CREATE TABLE u(id INTEGER PRIMARY KEY, a, b); CREATE INDEX j ON u(a); INSERT INTO u VALUES " + rows +
         "; PRAGMA writable_schema=ON; UPDATE sqlite_schema SET rootpage ="
         "(SELECT rootpage FROM sqlite_schema WHERE name = 'j') WHERE name = 'i';"
         "DELETE FROM sqlite_schema WHERE tbl_name = 'u'";
}

TEST(TableComparison, NoticesThatAnIndexBesideTheKeyMissesRows) {
  ComparisonScene scene;
  std::string const sql = "CREATE TABLE t(id INTEGER PRIMARY KEY, a, b); CREATE INDEX i ON t(a); INSERT INTO t VALUES ";
  std::string const three = sql + "(1, 1, 'x'), (2, 2, 'x'), (3, 3, 'x');";
  std::string const five = sql + "(1, 1, 'x'), (2, 2, 'x'), (3, 3, 'x'), (4, 4, 'x'), (5, 5, 'x');";
  std::string const damaged = five + indexedAs("(1, 1, 'x'), (2, 2, 'x'), (3, 3, 'x')");
  for (auto const& [before, after] : {std::pair(three, damaged), {damaged, three}}) {
    auto const differences = scene.compare(before, after);
    ASSERT_EQ(summaryOf(differences), "table:t Not compared 0 0 0\n");
    EXPECT_EQ(differences[0].explanation, damage);
  }
  EXPECT_EQ(summaryOf(scene.compare(three, five)), "table:t Compared 2 0 0\n");
  EXPECT_EQ(summaryOf(scene.compare(five, three)), "table:t Compared 0 0 2\n");
}

TEST(TableComparison, NoticesRowsThatATreeHoldsInAnotherOrder) {
  ComparisonScene scene;
  std::string const sql =
      "CREATE TABLE t(k PRIMARY KEY, a) WITHOUT ROWID; CREATE INDEX i ON t(a);"
      "INSERT INTO t VALUES (1, 1), (2, 2), (3, 3);";
  std::string const damaged =
      "CREATE TABLE u(k, a, PRIMARY KEY(k DESC)) WITHOUT ROWID; INSERT INTO u SELECT * FROM t;"
      "PRAGMA writable_schema=ON; UPDATE sqlite_schema SET rootpage ="
      "(SELECT rootpage FROM sqlite_schema WHERE name = 'u') WHERE name = 't';"
      "DELETE FROM sqlite_schema WHERE tbl_name = 'u'";
  auto const differences = scene.compare(sql, sql + damaged);
  ASSERT_EQ(summaryOf(differences), "table:t Not compared 0 0 0\n");
  EXPECT_EQ(differences[0].explanation, damage);
}

TEST(TableComparison, NoticesANullInAKey) {
  ComparisonScene scene;
  auto const sql = [](char const* values) {
    return "CREATE TABLE t(k TEXT PRIMARY KEY, a); INSERT INTO t VALUES " + std::string(values) +
           "; PRAGMA writable_schema=ON; UPDATE sqlite_schema SET sql = 'CREATE TABLE t(k TEXT NOT NULL PRIMARY KEY, "
           "a)'"
           " WHERE type = 'table'";
  };
  for (auto const& [before, after] : {std::pair("(NULL, 1)", "('a', 1)"), {"('a', 1)", "(NULL, 1)"}}) {
    auto const differences = scene.compare(sql(before), sql(after));
    EXPECT_EQ(summaryOf(differences), "table:t Not compared 0 0 0\n");
    EXPECT_EQ(differences[0].explanation, damage);
  }
  EXPECT_EQ(summaryOf(scene.compare(sql("('a', 1)"), sql("('b', 1)"))), "table:t Compared 1 0 1\n");
}

}  // namespace
}  // namespace tolva
