// SPDX-License-Identifier: Apache-2.0
#include "core/QueryExecutor.hpp"

#include <gtest/gtest.h>
#include <sqlite3.h>

#include <atomic>
#include <cmath>
#include <fstream>
#include <sstream>
#include <thread>

#include "core/DatabaseWriter.hpp"
#include "platform/TaskCancellation.hpp"
#include "support/Environment.hpp"
#include "support/Failure.hpp"
#include "support/FaultInjector.hpp"
#include "support/HangingHelpers.hpp"
#include "support/HostHeapLimits.hpp"
#include "support/NoTask.hpp"
#include "support/SQLitePeer.hpp"
#include "support/TemporaryDatabase.hpp"
#include "support/TemporaryFolder.hpp"

namespace tolva {
namespace {

using Row = std::vector<SQLiteValue>;
using Names = std::vector<std::string>;

enum class Access { readOnly, writable };

/// Numbers 1 to `count` as a recursive table "n" with the column "i".
std::string numbers(int count) {
  return "WITH RECURSIVE n(i) AS (SELECT 1 UNION ALL SELECT i + 1 FROM n WHERE i < " + std::to_string(count) + ") ";
}

/// Installs an extension in every connection that is opened while it lives: the tests cannot reach the executor's.
class Extension {
 public:
  using Install = int (*)(sqlite3*, char const**, sqlite3_api_routines const*);

  explicit Extension(Install install) : install_(reinterpret_cast<void (*)()>(install)) {
    sqlite3_auto_extension(install_);
  }
  ~Extension() { sqlite3_cancel_auto_extension(install_); }
  Extension(Extension const&) = delete;
  Extension& operator=(Extension const&) = delete;

 private:
  void (*const install_)();
};

struct Scene {
  explicit Scene(std::string const& sql = "CREATE TABLE t(a); INSERT INTO t VALUES (1),(2),(3);",
                 Access access = Access::writable)
      : database(folder, "a.db", sql) {
    executor.open(database.path(), access == Access::readOnly);
  }

  QueryPage start(std::string_view sql) { return executor.start(sql, {}, noTask); }
  QueryPage startWithBackups(std::string_view sql) { return executor.start(sql, backups, noTask); }
  QueryPage page(std::int64_t offset) { return executor.page(offset, noTask); }

  std::filesystem::path spoolFolder() const { return folder / ("tolva-" + std::to_string(::geteuid())); }
  std::ptrdiff_t spools() const { return entries(spoolFolder()); }
  std::ptrdiff_t backupCount() const { return entries(backups); }

  static std::ptrdiff_t entries(std::filesystem::path const& of) {
    if (!std::filesystem::exists(of)) return 0;
    return std::distance(std::filesystem::directory_iterator(of), std::filesystem::directory_iterator());
  }

  TemporaryFolder folder;
  Environment const temporary{"TMPDIR", folder.path()};
  std::filesystem::path const backups = folder / "backups";
  TemporaryDatabase const database;
  QueryExecutor executor{PreviewHelpers("/nonexistent")};
};

/// The rows as "1|a\n2|b".
std::string rowsOf(QueryPage const& page) {
  std::string text;
  for (Row const& row : page.rows) {
    if (!text.empty()) text += '\n';
    for (SQLiteValue const& value : row) text += (&value == row.data() ? "" : "|") + value.display();
  }
  return text;
}

std::stop_token cancelledTask() {
  std::stop_source task;
  task.request_stop();
  return task.get_token();
}

// Scripts ------------------------------------------------------------------------------------------

struct ScriptCase {
  char const* says;
  char const* sql;
  Names columns;
  char const* rows;
  std::int64_t affected;
  char const* content;  // of the table afterwards
};

ScriptCase const scriptCases[] = {
    {"an empty script", "", {}, "", 0, "1\n2\n3"},
    {"only comments", " -- a\n/* b", {}, "", 0, "1\n2\n3"},
    {"one result", "SELECT a, a * 2 AS b FROM t", {"a", "b"}, "1|2\n2|4\n3|6", 0, "1\n2\n3"},
    {"a result without rows", "SELECT a FROM t WHERE a > 7;", {"a"}, "", 0, "1\n2\n3"},
    {"of two results the second", "SELECT 1 AS x; SELECT 2 AS y", {"y"}, "2", 0, "1\n2\n3"},
    {"a comment behind the result", "SELECT 1 AS x; -- done", {"x"}, "1", 0, "1\n2\n3"},
    {"a comment without an end behind it", "SELECT 1 AS x; /* done", {"x"}, "1", 0, "1\n2\n3"},
    {"a statement behind a result", "SELECT 1; INSERT INTO t VALUES (4)", {}, "", 1, "1\n2\n3\n4"},
    {"a lone semicolon behind a result", "SELECT 1;;", {}, "", 0, "1\n2\n3"},
    {"a change before the result",
     "UPDATE t SET a = a + 1 WHERE a > 1; SELECT max(a) m FROM t",
     {"m"},
     "4",
     2,
     "1\n3\n4"},
    {"changes add up", "INSERT INTO t VALUES (4),(5); DELETE FROM t WHERE a < 3", {}, "", 4, "3\n4\n5"},
    {"rows of a change behind which there is more",
     "DELETE FROM t WHERE a = 1 RETURNING a; SELECT 'x' x",
     {"x"},
     "x",
     1,
     "2\n3"},
    {"rows of a change", "DELETE FROM t WHERE a > 1 RETURNING a AS gone", {"gone"}, "2\n3", 2, "1"},
    {"rows of an insert", "INSERT INTO t VALUES (4) RETURNING a, rowid;", {"a", "rowid"}, "4|4", 1, "1\n2\n3\n4"},
    {"a transaction of the script",
     "BEGIN; DELETE FROM t; ROLLBACK; SELECT count(*) c FROM t",
     {"c"},
     "3",
     3,
     "1\n2\n3"},
    {"a result of a pragma", "PRAGMA user_version", {"user_version"}, "0", 0, "1\n2\n3"},
    {"two columns of one name", "SELECT 1 AS a, 2 AS a", {"a", "a"}, "1|2", 0, "1\n2\n3"},
};

TEST(QueryExecutor, ShowsTheLastResultOfAScript) {
  for (ScriptCase const& one : scriptCases) {
    SCOPED_TRACE(one.says);
    Scene scene;
    QueryPage const page = scene.start(one.sql);
    EXPECT_EQ(page.columns, one.columns);
    EXPECT_EQ(rowsOf(page), one.rows);
    EXPECT_TRUE(page.finished);
    EXPECT_EQ(page.affected, one.affected);
    EXPECT_GT(page.duration.count(), 0);
    EXPECT_LT(page.duration.count(), 60);
    EXPECT_EQ(scene.database.rows("SELECT a FROM t"), one.content);
    EXPECT_EQ(scene.spools(), one.columns.empty() ? 0 : 1);
    QueryPage again = scene.page(0);
    EXPECT_GE(again.duration, page.duration);
    again.duration = page.duration;
    EXPECT_EQ(again, page);
  }
}

TEST(QueryExecutor, ShowsEachTypeOfValue) {
  Scene scene;
  QueryPage const page = scene.start(
      "SELECT 1, 0.5, 9e999, -9e999, 'a/\"', NULL, x'', x'00ff', zeroblob(100000), printf('%.*c', 65536, 'x'), "
      "printf('%.*c', 65537, 'x')");
  double const infinity = std::numeric_limits<double>::infinity();
  ASSERT_EQ(page.rows.size(), 1U);
  EXPECT_EQ(page.rows[0], (Row{1, 0.5, infinity, -infinity, "a/\"", Null{}, LargeBlob{0}, LargeBlob{2},
                               LargeBlob{100'000}, std::string(65'536, 'x'), LargeText{65'537}}));
}

TEST(QueryExecutor, StopsAScriptAtTheStatementThatFails) {
  Scene scene;
  EXPECT_EQ(failureOf([&] { scene.start("INSERT INTO t VALUES (4); SELECT * FROM absent; DELETE FROM t"); }),
            DatabaseError("no such table: absent", 1));
  EXPECT_EQ(scene.database.rows("SELECT a FROM t"), "1\n2\n3\n4");
  QueryPage const page = scene.page(0);
  EXPECT_EQ(page.columns, Names{});
  EXPECT_TRUE(page.rows.empty());
  EXPECT_TRUE(page.finished);
  EXPECT_EQ(page.affected, 1);
  EXPECT_EQ(scene.spools(), 0);
  EXPECT_EQ(rowsOf(scene.start("SELECT count(*) FROM t")), "4");
}

struct CountCase {
  char const* says;
  char const* sql;  // its last statement fails
  std::int64_t affected;
  char const* content;  // of the table afterwards
};

/// Two changes come of each row that is inserted: a trigger writes down what is.
CountCase const countCases[] = {
    {"a change", "INSERT INTO t VALUES (4); INSERT INTO t SELECT 10 + a FROM t UNION ALL SELECT 1", 2, "1,2,3,4"},
    {"a change with rows",
     "INSERT INTO t VALUES (4); INSERT INTO t SELECT 10 + a FROM t UNION ALL SELECT 1 RETURNING a", 2, "1,2,3,4"},
    {"one that keeps what it did", "INSERT OR FAIL INTO t VALUES (4), (1)", 0, "1,2,3,4"},
    {"one that undoes the script's transaction",
     "BEGIN; INSERT INTO t VALUES (4); INSERT OR ROLLBACK INTO t VALUES (4)", 2, "1,2,3"},
};

TEST(QueryExecutor, CountsNothingOfTheStatementThatFails) {
  for (CountCase const& one : countCases) {
    SCOPED_TRACE(one.says);
    Scene scene(
        "CREATE TABLE t(a UNIQUE); INSERT INTO t VALUES (1),(2),(3); CREATE TABLE log(a); "
        "CREATE TRIGGER g AFTER INSERT ON t BEGIN INSERT INTO log VALUES (new.a); END");
    EXPECT_EQ(failureOf([&] { scene.start(one.sql); }), DatabaseError("UNIQUE constraint failed: t.a", 2067));
    EXPECT_EQ(scene.page(0).affected, one.affected);
    EXPECT_EQ(scene.database.rows("SELECT group_concat(a) FROM (SELECT a FROM t ORDER BY a)"), one.content);
  }
}

TEST(QueryExecutor, RefusesAScriptWithANULBeforeAnythingRuns) {
  Scene scene;
  scene.start("SELECT 'before'");
  EXPECT_EQ(failureOf([&] { scene.start(std::string_view("DELETE FROM t; \0", 16)); }),
            DatabaseError("The SQL contains a NUL character, where SQLite would stop reading. Remove it.", 1));
  EXPECT_EQ(scene.database.rows("SELECT count(*) FROM t"), "3");
  EXPECT_EQ(rowsOf(scene.page(0)), "before");
}

TEST(QueryExecutor, LeavesATransactionOfTheScriptOpen) {
  Scene scene;
  scene.start("BEGIN; INSERT INTO t VALUES (4)");
  EXPECT_EQ(scene.database.rows("SELECT count(*) FROM t"), "3");
  scene.start("COMMIT");
  EXPECT_EQ(scene.database.rows("SELECT count(*) FROM t"), "4");
}

// Opening and closing --------------------------------------------------------------------------------

TEST(QueryExecutor, NeedsAConnection) {
  QueryExecutor executor{PreviewHelpers("/nonexistent")};
  EXPECT_EQ(failureOf([&] { executor.start("SELECT 1", {}, noTask); }),
            DatabaseError("No query connection is open.", 1));
  QueryPage const page = executor.page(0, noTask);
  EXPECT_TRUE(page.finished);
  EXPECT_TRUE(page.columns.empty() && page.rows.empty());
  Scene scene;
  scene.executor.close();
  EXPECT_EQ(failureOf([&] { scene.start("SELECT 1"); }), DatabaseError("No query connection is open.", 1));
  EXPECT_EQ(failureOf([&] { scene.executor.open(scene.folder / "none.db", false); }).code & 0xFF, SQLITE_CANTOPEN);
  EXPECT_EQ(failureOf([&] { scene.start("SELECT 1"); }), DatabaseError("No query connection is open.", 1));
}

TEST(QueryExecutor, DeletesTheSpoolWithTheResult) {
  Scene scene;
  scene.start("SELECT 1");
  EXPECT_EQ(scene.spools(), 1);
  scene.start("SELECT 2");
  EXPECT_EQ(scene.spools(), 1);
  scene.start("INSERT INTO t VALUES (4)");
  EXPECT_EQ(scene.spools(), 0);
  scene.start("SELECT 3");
  scene.executor.close();
  EXPECT_EQ(scene.spools(), 0);
  EXPECT_TRUE(scene.page(0).rows.empty());
  scene.executor.close();
  scene.executor.open(scene.database.path(), true);
  scene.start("SELECT 4");
  scene.executor.open(scene.database.path(), true);
  EXPECT_EQ(scene.spools(), 0);
  {
    QueryExecutor other{PreviewHelpers("/nonexistent")};
    other.open(scene.database.path(), true);
    other.start("SELECT 5", {}, noTask);
    EXPECT_EQ(scene.spools(), 1);
  }
  EXPECT_EQ(scene.spools(), 0);
}

TEST(QueryExecutor, EndsTheReadTransactionWithTheResult) {
  Scene scene("PRAGMA journal_mode = WAL; CREATE TABLE t(a);" + numbers(2'000) + "INSERT INTO t SELECT i FROM n");
  scene.start("SELECT a FROM t");  // stands at row 500
  SQLitePeer peer(scene.database.path());
  peer.exec("INSERT INTO t VALUES (0)");
  EXPECT_EQ(peer.rows("PRAGMA wal_checkpoint(TRUNCATE)").substr(0, 2), "1|");
  scene.executor.close();
  EXPECT_EQ(peer.rows("PRAGMA wal_checkpoint(TRUNCATE)"), "0|0|0");
}

TEST(QueryExecutor, LocksWritersOfARollbackJournalOutUntilTheEndOfTheResult) {
  Scene scene("CREATE TABLE t(a);" + numbers(2'000) + "INSERT INTO t SELECT i FROM n");
  SQLitePeer peer(scene.database.path());
  DatabaseWriter writer;
  writer.open(scene.database.path());
  auto const rename = [&](char const* from, char const* to) {
    writer.modifySchema(SchemaChange(SchemaChange::RenameColumn{"t", from, to}), scene.backups, noTask);
  };
  ASSERT_FALSE(scene.start("SELECT a FROM t").finished);
  EXPECT_EQ(peer.exec("INSERT INTO t VALUES (0)"), "error 5 database is locked");
  EXPECT_EQ(failureOf([&] { rename("a", "b"); }), DatabaseError("database is locked [COMMIT]", 5));
  for (std::int64_t const offset : {500, 1'000, 1'500, 2'000}) scene.page(offset);
  EXPECT_EQ(peer.exec("INSERT INTO t VALUES (0)"), "ok");
  scene.start("SELECT a FROM t");
  scene.executor.close();
  rename("a", "b");
  EXPECT_EQ(scene.database.rows("SELECT count(b) FROM t"), "2001");
}

// What a script may not do -----------------------------------------------------------------------------

struct RefusedCase {
  Access access;
  char const* sql;
  DatabaseError failure;
};

DatabaseError const readOnly("This object is read-only.", 8);
DatabaseError const unauthorized("not authorized", 23);

RefusedCase const refusedCases[] = {
    {Access::readOnly, "DROP TABLE t", readOnly},
    {Access::readOnly, "DELETE FROM t", readOnly},
    {Access::readOnly, "SELECT 1; INSERT INTO t VALUES (1)", readOnly},
    {Access::readOnly, "DELETE FROM t RETURNING a", readOnly},
    {Access::readOnly, "BEGIN IMMEDIATE", readOnly},
    {Access::readOnly, "PRAGMA journal_mode = WAL", readOnly},
    {Access::readOnly, "CREATE TEMP TABLE x(a)", readOnly},
    {Access::readOnly, "PRAGMA query_only = OFF", unauthorized},
    {Access::writable, "ATTACH 'other.db' AS o", unauthorized},
    {Access::writable, "DETACH main", unauthorized},
    {Access::writable, "PRAGMA query_only = 1", unauthorized},
    {Access::writable, "PRAGMA writable_schema = ON", unauthorized},
    {Access::writable, "PRAGMA foreign_keys = OFF", unauthorized},
    {Access::writable, "PRAGMA Foreign_KEYS(0)", unauthorized},
    {Access::writable, "PRAGMA main.\"foreign_keys\" = 0", unauthorized},
    {Access::writable, "VACUUM INTO 'copy.db'", DatabaseError("authorization denied", 23)},
    {Access::writable, "VACUUM", DatabaseError("authorization denied", 23)},
};

TEST(QueryExecutor, RefusesWhatAScriptMayNotDo) {
  for (RefusedCase const& one : refusedCases) {
    SCOPED_TRACE(one.sql);
    Scene scene("CREATE TABLE t(a); INSERT INTO t VALUES (1)", one.access);
    EXPECT_EQ(failureOf([&] { scene.start(one.sql); }), one.failure);
    EXPECT_EQ(scene.database.rows("SELECT a FROM t"), "1");
  }
}

TEST(QueryExecutor, LetsTheGuardedPragmasBeRead) {
  for (Access const access : {Access::readOnly, Access::writable}) {
    Scene scene("", access);
    EXPECT_EQ(rowsOf(scene.start("PRAGMA foreign_keys")), "1");
    EXPECT_EQ(rowsOf(scene.start("PRAGMA query_only")), access == Access::readOnly ? "1" : "0");
    EXPECT_EQ(rowsOf(scene.start("PRAGMA writable_schema")), "0");
    EXPECT_EQ(rowsOf(scene.start("BEGIN; SELECT 1; COMMIT; SELECT 2")), "2");
  }
}

/// SQLite keeps them for the whole process.
TEST(QueryExecutor, LeavesNoLimitOfMemoryBehind) {
  HostHeapLimits const limits(std::int64_t{1} << 40, std::int64_t{1} << 39);
  for (char const* const sql :
       {"PRAGMA hard_heap_limit = 50000000", "PRAGMA soft_heap_limit = 50000000",
        "PRAGMA soft_heap_limit = 1; SELECT 1", "SELECT * FROM pragma_hard_heap_limit(50000000)",
        "PRAGMA hard_heap_limit = 50000000; SELECT * FROM absent"}) {
    SCOPED_TRACE(sql);
    Scene scene;
    failureOf([&] { scene.start(sql); });
    EXPECT_TRUE(limits.stand());
  }
}

// Backups --------------------------------------------------------------------------------------------

TEST(QueryExecutor, WantsABackupLocationBeforeASchemaChange) {
  for (char const* const sql :
       {"DROP TABLE t", "INSERT INTO t VALUES (4); alter table t rename to u", "SELECT 1 -- drop", "SELECT 'DROP'"}) {
    SCOPED_TRACE(sql);
    Scene scene;
    scene.start("SELECT 'before'");
    EXPECT_EQ(failureOf([&] { scene.start(sql); }), DatabaseError("Schema changes require a backup location.", 1));
    EXPECT_EQ(scene.database.rows("SELECT a FROM t"), "1\n2\n3");
    EXPECT_EQ(rowsOf(scene.page(0)), "before");
  }
  Scene scene;
  EXPECT_NO_THROW(scene.start("SELECT 'dropped' AS alters"));
}

TEST(QueryExecutor, MakesABackupBeforeASchemaChange) {
  Scene scene;
  QueryPage const page =
      scene.startWithBackups("INSERT INTO t VALUES (4); DROP TABLE t; SELECT count(*) FROM sqlite_schema");
  EXPECT_EQ(rowsOf(page), "0");
  ASSERT_EQ(scene.backupCount(), 1);
  EXPECT_EQ(rowsAsText(std::filesystem::directory_iterator(scene.backups)->path(), "SELECT a FROM t"), "1\n2\n3");
  scene.startWithBackups("SELECT 1 -- alter");
  EXPECT_EQ(scene.backupCount(), 2);
  scene.startWithBackups("SELECT 1");
  EXPECT_EQ(scene.backupCount(), 2);
  for (int run = 0; run < 7; ++run) scene.startWithBackups("CREATE TABLE x(a); DROP TABLE x");
  EXPECT_EQ(scene.backupCount(), 5);
}

/// A result that stands between two pages keeps its connection at what the database was then.
TEST(QueryExecutor, BacksUpWhatOthersWroteSinceTheLastPage) {
  Scene scene("PRAGMA journal_mode = WAL; CREATE TABLE t(a);" + numbers(2'000) + "INSERT INTO t SELECT i FROM n");
  ASSERT_FALSE(scene.start("SELECT a FROM t").finished);
  SQLitePeer peer(scene.database.path());
  ASSERT_EQ(peer.exec("INSERT INTO t VALUES ('precious')"), "ok");
  scene.startWithBackups("DROP TABLE t");
  ASSERT_EQ(scene.backupCount(), 1);
  EXPECT_EQ(rowsAsText(std::filesystem::directory_iterator(scene.backups)->path(), "SELECT count(*), max(a) FROM t"),
            "2001|precious");
}

struct ExclusiveCase {
  char const* mode;
  char const* sql;  // before a result that stands
};

ExclusiveCase const exclusiveCases[] = {
    {"DELETE", "PRAGMA locking_mode = EXCLUSIVE"},
    {"DELETE", "PRAGMA locking_mode = EXCLUSIVE; INSERT INTO t VALUES (0)"},
    {"WAL", "PRAGMA locking_mode = EXCLUSIVE"},
    {"WAL", "PRAGMA locking_mode = EXCLUSIVE; INSERT INTO t VALUES (0)"},
    {"WAL", "INSERT INTO t VALUES (0); PRAGMA locking_mode = EXCLUSIVE"},
    {"WAL", "SELECT * FROM t; PRAGMA locking_mode = EXCLUSIVE; INSERT INTO t VALUES (0)"},
};

/// A peer may write or not.
TEST(QueryExecutor, BacksUpADatabaseThatItsScriptHasLocked) {
  for (ExclusiveCase const& one : exclusiveCases) {
    SCOPED_TRACE(std::string(one.mode) + " " + one.sql);
    Scene scene("PRAGMA journal_mode = " + std::string(one.mode) + "; CREATE TABLE t(a);" + numbers(2'000) +
                "INSERT INTO t SELECT i FROM n");
    scene.start(one.sql);
    ASSERT_FALSE(scene.start("SELECT a FROM t").finished);
    SQLitePeer(scene.database.path()).exec("INSERT INTO t VALUES (-1)");
    std::string const content = "SELECT count(*) || ' ' || min(a) FROM t";
    scene.startWithBackups(content + " -- before DROP");
    ASSERT_EQ(scene.backupCount(), 1);
    EXPECT_EQ(rowsAsText(std::filesystem::directory_iterator(scene.backups)->path(), content), rowsOf(scene.page(0)));
  }
}

TEST(QueryExecutor, RunsNothingWhenTheBackupFails) {
  Scene scene;
  scene.start("BEGIN; INSERT INTO t VALUES (4)");
  scene.start("SELECT 'before'");
  EXPECT_EQ(failureOf([&] { scene.startWithBackups("DROP TABLE t"); }),
            DatabaseError("database is locked", SQLITE_BUSY));
  EXPECT_EQ(rowsOf(scene.page(0)), "before");
  EXPECT_EQ(scene.backupCount(), 0);
  scene.start("ROLLBACK");
  scene.startWithBackups("DROP TABLE t");
  EXPECT_EQ(scene.backupCount(), 1);
}

TEST(QueryExecutor, BacksUpAfterACancelBetweenTwoPages) {
  Scene scene;
  scene.start("BEGIN");
  ASSERT_FALSE(scene.start(numbers(2'000) + "SELECT i FROM n, (SELECT a FROM t LIMIT 1)").finished);
  scene.executor.cancellation()->cancel();
  EXPECT_EQ(rowsOf(scene.startWithBackups("SELECT 'no DROP'")), "no DROP");
  EXPECT_EQ(scene.backupCount(), 1);
}

TEST(QueryExecutor, MakesNoBackupOnAReadOnlyConnection) {
  Scene scene("CREATE TABLE t(a)", Access::readOnly);
  EXPECT_EQ(failureOf([&] { scene.startWithBackups("DROP TABLE t"); }), readOnly);
  EXPECT_EQ(scene.backupCount(), 0);
}

// Pages ----------------------------------------------------------------------------------------------

std::int64_t rowsStepped;  // by the function `count_step`, which the tests' statements call for each row

int installCountStep(sqlite3* db, char const**, sqlite3_api_routines const*) {
  return sqlite3_create_function(
      db, "count_step", 1, SQLITE_UTF8, nullptr,
      [](sqlite3_context* context, int, sqlite3_value** values) {
        ++rowsStepped;
        sqlite3_result_value(context, values[0]);
      },
      nullptr, nullptr);
}

TEST(QueryExecutor, StepsNoFurtherThanThePagesAskedFor) {
  Extension const extension(installCountStep);
  rowsStepped = 0;
  Scene scene;
  QueryPage page = scene.start(numbers(1'000'000) + "SELECT count_step(i) FROM n");
  EXPECT_EQ(page.rows.size(), 500U);
  EXPECT_EQ(rowsStepped, 500);
  EXPECT_FALSE(page.finished);
  page = scene.page(1'000);
  EXPECT_EQ(page.rows.size(), 500U);
  EXPECT_EQ(page.rows[0], Row{1'001});
  EXPECT_EQ(rowsStepped, 1'500);
  page = scene.page(250);
  EXPECT_EQ(page.rows[0], Row{251});
  EXPECT_EQ(page.rows.size(), 500U);
  EXPECT_EQ(rowsStepped, 1'500);
}

struct FinishCase {
  int rows;
  std::size_t second;  // rows of the second page
  bool firstFinished;
};

FinishCase const finishCases[] = {{499, 0, true}, {500, 0, false}, {501, 1, false}, {1'000, 500, false}};

TEST(QueryExecutor, IsFinishedOnceTheEndWasSeen) {
  for (FinishCase const& one : finishCases) {
    SCOPED_TRACE(one.rows);
    Scene scene;
    EXPECT_EQ(scene.start(numbers(one.rows) + "SELECT i FROM n").finished, one.firstFinished);
    QueryPage const second = scene.page(500);
    EXPECT_EQ(second.rows.size(), one.second);
    for (std::size_t row = 0; row < second.rows.size(); ++row) {
      EXPECT_EQ(second.rows[row], Row{static_cast<std::int64_t>(501 + row)});
    }
    EXPECT_EQ(second.finished, one.rows != 1'000);
    EXPECT_TRUE(scene.page(1'000).finished);
    EXPECT_EQ(scene.page(0).finished, one.rows <= 500);
  }
}

TEST(QueryExecutor, TakesAnyOffset) {
  Scene scene;
  scene.start("SELECT a FROM t");
  EXPECT_EQ(rowsOf(scene.page(2)), "3");
  EXPECT_EQ(rowsOf(scene.page(3)), "");
  EXPECT_EQ(rowsOf(scene.page(-498)), "1\n2");
  EXPECT_EQ(rowsOf(scene.page(std::numeric_limits<std::int64_t>::min())), "");
  EXPECT_EQ(rowsOf(scene.page(std::numeric_limits<std::int64_t>::max())), "");
  EXPECT_TRUE(scene.page(std::numeric_limits<std::int64_t>::max()).finished);
}

/// The bytes of a row as it is stored around a text.
constexpr int storedAround = 20;

TEST(QueryExecutor, StopsAFillAbove4MiB) {
  Extension const extension(installCountStep);
  for (int const less : {0, 1}) {
    SCOPED_TRACE(less);
    Scene scene;
    rowsStepped = 0;
    // 64 rows come to 4 MiB exactly, which ends a page and not yet a fill.
    QueryPage page = scene.start(numbers(600) + "SELECT printf('%.*c', count_step(" +
                                 std::to_string(65'536 - storedAround - less) + "), 'x') FROM n");
    EXPECT_EQ(page.rows.size(), less ? 65U : 64U);
    EXPECT_EQ(rowsStepped, 65);
    EXPECT_FALSE(page.finished);
    std::int64_t seen = std::ssize(page.rows);
    while (!page.finished) {
      page = scene.page(seen);
      ASSERT_FALSE(page.rows.empty());
      seen += std::ssize(page.rows);
    }
    EXPECT_EQ(seen, 600);
  }
}

/// Four heads of 64 KiB to a row come to 4 MiB with the 16th, which its stored rows bring above that.
TEST(QueryExecutor, CountsTheHeadsOfLargeValuesIntoAFill) {
  Extension const extension(installCountStep);
  rowsStepped = 0;
  Scene scene;
  QueryPage const page = scene.start(numbers(600) + "SELECT count_step(i), zeroblob(100000), zeroblob(100000), " +
                                     "zeroblob(100000), zeroblob(100000) FROM n");
  EXPECT_EQ(rowsStepped, 16);
  EXPECT_EQ(page.rows.size(), 16U);
  EXPECT_FALSE(page.finished);
  EXPECT_EQ(scene.page(16).rows.size(), 16U);
  EXPECT_EQ(rowsStepped, 32);
}

TEST(QueryExecutor, AnswersAFarPageWithWhatOneFillReaches) {
  Scene scene;
  scene.start(numbers(10'000) + "SELECT printf('%.*c', 20000, 'x') FROM n");
  QueryPage const far = scene.page(5'000);
  EXPECT_TRUE(far.rows.empty());
  EXPECT_FALSE(far.finished);
}

TEST(QueryExecutor, RunsAChangeToItsEndBeforeTheFirstPage) {
  Scene scene("CREATE TABLE t(a);" + numbers(20'000) + "INSERT INTO t SELECT i FROM n");
  QueryPage const page = scene.start("DELETE FROM t RETURNING a, printf('%.*c', 1000, 'x')");
  EXPECT_EQ(page.rows.size(), 500U);
  EXPECT_FALSE(page.finished);
  EXPECT_EQ(page.affected, 20'000);
  EXPECT_EQ(scene.database.rows("SELECT count(*) FROM t"), "0");
  QueryPage const last = scene.page(19'900);
  EXPECT_EQ(last.rows.size(), 100U);
  EXPECT_EQ(last.rows[99][0], SQLiteValue(20'000));
  EXPECT_TRUE(last.finished);
  EXPECT_EQ(last.affected, 20'000);
}

// Failing and cancelling -----------------------------------------------------------------------------

TEST(QueryExecutor, KeepsThePagesBeforeAFailure) {
  Scene scene;
  QueryPage page = scene.start(numbers(2'000) + "SELECT abs(iif(i = 700, -9223372036854775808, i)) FROM n");
  EXPECT_EQ(page.rows.size(), 500U);
  EXPECT_EQ(failureOf([&] { scene.page(500); }), DatabaseError("integer overflow", 1));
  page = scene.page(0);
  EXPECT_EQ(page.rows.size(), 500U);
  EXPECT_FALSE(page.finished);
  page = scene.page(500);
  EXPECT_TRUE(page.rows.empty());
  EXPECT_FALSE(page.finished);
  EXPECT_EQ(scene.executor.preview(499, 0, noTask).text, "500");
  EXPECT_EQ(failureOf([&] { scene.executor.preview(500, 0, noTask); }),
            DatabaseError("Query result is no longer available.", 1));
  EXPECT_EQ(scene.executor.selectedRows({{499, 500}}, noTask), std::vector<Row>{{500}});
  EXPECT_EQ(failureOf([&] {
              scene.executor.selectedRows({{499, 501}}, noTask);
            }),
            DatabaseError("The selected query rows are no longer available. Run the query again.", 1));
  EXPECT_EQ(rowsOf(scene.start("SELECT 1")), "1");
}

TEST(QueryExecutor, FailsInTheFirstFillWithAnEmptyResult) {
  Scene scene;
  EXPECT_EQ(failureOf([&] { scene.start("SELECT abs(-9223372036854775808) AS a"); }),
            DatabaseError("integer overflow", 1));
  QueryPage const page = scene.page(0);
  EXPECT_EQ(page.columns, Names{"a"});
  EXPECT_TRUE(page.rows.empty());
  EXPECT_FALSE(page.finished);
}

TEST(QueryExecutor, NoticesACancelledTask) {
  Scene scene;
  EXPECT_THROW(scene.executor.start("DELETE FROM t", {}, cancelledTask()), TaskCancelled);
  EXPECT_EQ(scene.database.rows("SELECT count(*) FROM t"), "3");
  scene.start("SELECT a FROM t");
  EXPECT_THROW(scene.executor.page(0, cancelledTask()), TaskCancelled);
  EXPECT_THROW(scene.executor.preview(0, 0, cancelledTask()), TaskCancelled);
  EXPECT_THROW(scene.executor.selectedRows({{0, 1}}, cancelledTask()), TaskCancelled);
  EXPECT_THROW(scene.executor.selectedRows({}, cancelledTask()), TaskCancelled);
  EXPECT_EQ(rowsOf(scene.page(0)), "1\n2\n3");
}

std::stop_source stoppedBySQL;

/// Gives SQL a function `stop_task` that requests the stop of a task at 700, from within the statement.
int installStopTask(sqlite3* db, char const**, sqlite3_api_routines const*) {
  return sqlite3_create_function(
      db, "stop_task", 1, SQLITE_UTF8, nullptr,
      [](sqlite3_context*, int, sqlite3_value** values) {
        if (sqlite3_value_int(values[0]) == 700) stoppedBySQL.request_stop();
      },
      nullptr, nullptr);
}

TEST(QueryExecutor, NoticesATaskThatIsCancelledBetweenRows) {
  Extension const extension(installStopTask);
  std::string const rows = numbers(1'000'000) + "SELECT i, stop_task(i) FROM n";
  Scene scene;
  for (std::string const& script : {rows + "; SELECT 2", rows}) {
    stoppedBySQL = {};
    EXPECT_THROW(
        {
          scene.executor.start(script, {}, stoppedBySQL.get_token());
          scene.executor.page(500, stoppedBySQL.get_token());
        },
        TaskCancelled);
  }
  EXPECT_EQ(scene.page(0).rows.size(), 500U);
  EXPECT_TRUE(scene.page(500).rows.empty());
  EXPECT_FALSE(scene.page(500).finished);
}

/// Requests the stop of the task at the opening of a connection: of the spool's, when the executor's stands.
int stopTaskAtOpening(sqlite3*, char const**, sqlite3_api_routines const*) {
  stoppedBySQL.request_stop();
  return SQLITE_OK;
}

TEST(QueryExecutor, RunsNothingLaterOfAScriptThatWasCancelledBeforeItsResult) {
  Scene scene;
  stoppedBySQL = {};
  Extension const extension(stopTaskAtOpening);
  EXPECT_THROW(scene.executor.start("DELETE FROM t RETURNING a", {}, stoppedBySQL.get_token()), TaskCancelled);
  QueryPage const page = scene.page(0);
  EXPECT_TRUE(page.rows.empty());
  EXPECT_FALSE(page.finished);
  EXPECT_EQ(scene.database.rows("SELECT count(*) FROM t"), "3");
}

/// A statement without rows that stops its task runs to its end all the same.
TEST(QueryExecutor, NoticesATaskThatIsCancelledBetweenStatements) {
  Extension const extension(installStopTask);
  std::string const stopped = "INSERT INTO t VALUES (4); INSERT INTO t SELECT 5 WHERE stop_task(700) IS NULL; ";
  for (char const* const rest : {"DELETE FROM t; DELETE FROM t", "DELETE FROM t RETURNING a", "SELECT a FROM t"}) {
    SCOPED_TRACE(rest);
    Scene scene;
    stoppedBySQL = {};
    EXPECT_THROW(scene.executor.start(stopped + rest, {}, stoppedBySQL.get_token()), TaskCancelled);
    QueryPage const page = scene.page(0);
    EXPECT_EQ(page.columns, Names{});
    EXPECT_TRUE(page.rows.empty());
    EXPECT_EQ(page.affected, 2);
    EXPECT_EQ(scene.database.rows("SELECT a FROM t"), "1\n2\n3\n4\n5");
  }
  Scene scene;
  stoppedBySQL = {};
  EXPECT_EQ(scene.executor.start(stopped, {}, stoppedBySQL.get_token()).affected, 2) << "nothing was left to stop";
}

struct StoppedCase {
  char const* says;
  char const* before;  // a script that runs before
  char const* sql;
  char const* content;  // of the table on the executor's connection afterwards
  std::int64_t affected;
};

/// A task that is cancelled when it is looked at between two rows.
StoppedCase const stoppedCases[] = {
    {"the result", "", "UPDATE t SET a = a + 10 RETURNING a, stop_task(700)", "1,2,3", 0},
    {"a result of many rows", "", "INSERT INTO t SELECT value FROM n RETURNING a, stop_task(a)", "1,2,3", 0},
    {"rows that are dropped", "", "DELETE FROM t RETURNING stop_task(700); SELECT 1", "1,2,3", 0},
    {"behind another change", "", "INSERT INTO t VALUES (4); DELETE FROM t RETURNING stop_task(700)", "1,2,3,4", 1},
    {"a result in a transaction of the script", "BEGIN; INSERT INTO t VALUES (4)",
     "DELETE FROM t WHERE a < 3 RETURNING a, stop_task(700)", "3,4", 0},
    {"dropped rows in a transaction of the script", "BEGIN; INSERT INTO t VALUES (4)",
     "DELETE FROM t WHERE a < 3 RETURNING stop_task(700); SELECT 1", "3,4", 0},
};

TEST(QueryExecutor, TakesBackAChangeThatIsStoppedBetweenRows) {
  Extension const extension(installStopTask);
  for (StoppedCase const& one : stoppedCases) {
    SCOPED_TRACE(one.says);
    Scene scene("CREATE TABLE t(a); INSERT INTO t VALUES (1),(2),(3); CREATE TABLE n(value);" + numbers(2'000) +
                "INSERT INTO n SELECT i FROM n");
    scene.start(one.before);
    stoppedBySQL = {};
    EXPECT_THROW(scene.executor.start(one.sql, {}, stoppedBySQL.get_token()), TaskCancelled);
    QueryPage const page = scene.page(0);
    EXPECT_TRUE(page.rows.empty());
    EXPECT_EQ(page.affected, one.affected);
    EXPECT_EQ(rowsOf(scene.start("SELECT group_concat(a) FROM (SELECT a FROM t ORDER BY a)")), one.content);
  }
}

/// Lets the disk of the spool fill up at its n-th call.
DatabaseError startWithFullSpool(Scene& scene, long call, std::string const& sql) {
  scene.start("SELECT 1");  // makes the folder
  return failureOf([&] {
    EXPECT_TRUE(
        FaultInjector::failing(scene.spoolFolder(), call, ENOSPC, /*persistent=*/true, [&] { scene.start(sql); }));
  });
}

TEST(QueryExecutor, TakesBackAChangeWhoseRowsCannotBeKept) {
  std::string const rows = "INSERT INTO t SELECT a FROM n RETURNING a, printf('%.*c', 1000, 'x')";
  std::string const content =
      "CREATE TABLE t(a); CREATE TABLE n(a);" + numbers(20'000) + "INSERT INTO n SELECT i FROM n";
  for (bool const within : {false, true}) {
    SCOPED_TRACE(within ? "in a transaction of the script" : "on its own");
    Scene scene(content);
    if (within) scene.start("BEGIN");
    // The rows outgrow the memory of the spool long before the last.
    EXPECT_EQ(startWithFullSpool(scene, 40, rows).code & 0xFF, SQLITE_FULL);
    QueryPage const page = scene.page(0);
    EXPECT_TRUE(page.rows.empty());
    EXPECT_FALSE(page.finished);
    EXPECT_EQ(page.affected, 0);
    EXPECT_EQ(rowsOf(scene.start("SELECT count(*) FROM t")), within ? "20000" : "0");
    if (within) scene.start("ROLLBACK");
    EXPECT_EQ(scene.start("INSERT INTO t VALUES (7) RETURNING a").affected, 1);
  }
}

TEST(QueryExecutor, ChangesNothingWithoutAPlaceForItsRows) {
  Scene scene;
  Environment const temporary("TMPDIR", scene.folder / "absent");
  EXPECT_EQ(failureOf([&] { scene.start("DELETE FROM t RETURNING a"); }),
            DatabaseError("unable to open database file", SQLITE_CANTOPEN));
  EXPECT_EQ(scene.database.rows("SELECT count(*) FROM t"), "3");
  QueryPage const page = scene.page(0);
  EXPECT_TRUE(page.columns.empty() && page.rows.empty());
  EXPECT_EQ(page.affected, 0);
}

/// The few rows reach the file of the spool only when its transaction ends.
TEST(QueryExecutor, CountsAChangeThatHadEndedWhenItsRowsCouldNotBeKept) {
  Scene scene;
  scene.start("SELECT 1");
  long const made = FaultInjector::count(scene.spoolFolder(), [&] { scene.start("SELECT 1 WHERE 0"); });
  EXPECT_EQ(startWithFullSpool(scene, made + 1, "UPDATE t SET a = a + 10 RETURNING a").code & 0xFF, SQLITE_FULL);
  QueryPage const page = scene.page(0);
  EXPECT_TRUE(page.rows.empty());
  EXPECT_FALSE(page.finished);
  EXPECT_EQ(page.affected, 3);
  EXPECT_EQ(scene.database.rows("SELECT a FROM t"), "11\n12\n13");
}

std::atomic<bool> statementRuns;

/// Gives SQL a function `tell` by which a statement says that it runs.
int installTell(sqlite3* db, char const**, sqlite3_api_routines const*) {
  return sqlite3_create_function(
      db, "tell", 0, SQLITE_UTF8, nullptr,
      [](sqlite3_context*, int, sqlite3_value**) {
        statementRuns = true;
        statementRuns.notify_all();
      },
      nullptr, nullptr);
}

TEST(QueryExecutor, IsInterruptedByItsCancellation) {
  Extension const extension(installTell);
  Scene scene;
  for (char const* const rest : {"", "; SELECT 2"}) {
    SCOPED_TRACE(rest);
    statementRuns = false;
    std::jthread const canceller([&] {
      statementRuns.wait(false);
      scene.executor.cancellation()->cancel();
    });
    DatabaseError const failure =
        failureOf([&] { scene.start(numbers(2'000'000'000) + "SELECT count(coalesce(tell(), i)) FROM n" + rest); });
    EXPECT_EQ(failure, DatabaseError("interrupted", 9));
    EXPECT_EQ(failure.errorDescription(), "Cancelled");
    EXPECT_EQ(rowsOf(scene.start("SELECT 1")), "1");
  }
}

/// Between two pages the statement is still running.
TEST(QueryExecutor, TakesACancelBetweenTwoPagesForTheRestOfTheResult) {
  Scene scene;
  ASSERT_FALSE(scene.start(numbers(2'000) + "SELECT i FROM n").finished);
  scene.executor.cancellation()->cancel();
  EXPECT_EQ(scene.page(0).rows.size(), 500U) << "needs no more rows";
  EXPECT_EQ(failureOf([&] { scene.page(500); }), DatabaseError("interrupted", 9));
  EXPECT_EQ(scene.page(0).rows.size(), 500U);
  EXPECT_TRUE(scene.page(500).rows.empty());
  EXPECT_FALSE(scene.page(500).finished);
  scene.start(numbers(2'000) + "SELECT i FROM n");
  scene.executor.cancellation()->cancel();
  EXPECT_TRUE(scene.start(numbers(499) + "SELECT i FROM n").finished) << "another script is not what was cancelled";
  scene.executor.cancellation()->cancel();
  EXPECT_EQ(scene.page(0).rows.size(), 499U) << "nothing was running";
  EXPECT_EQ(rowsOf(scene.start("SELECT 1")), "1");
}

// Previews -------------------------------------------------------------------------------------------

TEST(QueryExecutor, PreviewsWholeValuesAndHeads) {
  Scene scene;
  scene.start("SELECT 7, 'abc', NULL, x'616263', zeroblob(100000), printf('%.*c', 70000, 'x'), x''");
  auto const preview = [&](std::int64_t column) { return scene.executor.preview(0, column, noTask); };
  EXPECT_EQ(preview(0).storageType, "integer");
  EXPECT_EQ(preview(0).text, "7");
  EXPECT_EQ(preview(1).text, "abc");
  EXPECT_EQ(preview(2).text, "NULL");
  EXPECT_EQ(preview(3).storageType, "blob");
  EXPECT_EQ(preview(3).text, "abc");
  EXPECT_FALSE(preview(3).truncated());
  EXPECT_EQ(preview(4).totalBytes, 100'000);
  EXPECT_EQ(preview(4).bytes.size(), 65'536U);
  EXPECT_TRUE(preview(4).truncated());
  EXPECT_EQ(preview(5).storageType, "text");
  EXPECT_EQ(preview(5).text, std::string(65'536, 'x'));
  EXPECT_EQ(preview(6).storageType, "blob");
  EXPECT_EQ(preview(6).totalBytes, 0);
}

TEST(QueryExecutor, PreviewsNoMoreThanItCaptured) {
  Scene scene;
  std::string const fourHeads = "zeroblob(100000), zeroblob(100000), zeroblob(100000), zeroblob(100000), ";
  scene.start("SELECT " + fourHeads + "zeroblob(100000), zeroblob(8388608), zeroblob(8388609), zeroblob(9000000), 'a'");
  for (std::int64_t column : {0, 1, 2, 3}) EXPECT_EQ(scene.executor.preview(0, column, noTask).bytes.size(), 65'536U);
  DatabaseError const overBudget(
      "This query cell exceeded the 256 KiB per-row preview budget. Select fewer large columns in the query to preview "
      "it.",
      1);
  DatabaseError const tooLarge(
      "Query values larger than 8 MiB are not captured for preview. Select a bounded substring explicitly.", 1);
  EXPECT_EQ(failureOf([&] { scene.executor.preview(0, 4, noTask); }), overBudget);
  EXPECT_EQ(failureOf([&] { scene.executor.preview(0, 5, noTask); }), overBudget);
  EXPECT_EQ(failureOf([&] { scene.executor.preview(0, 6, noTask); }), tooLarge);
  EXPECT_EQ(failureOf([&] { scene.executor.preview(0, 7, noTask); }), tooLarge);
  EXPECT_EQ(scene.executor.preview(0, 8, noTask).text, "a");
  scene.start("SELECT printf('%.*c', 9000000, 'x')");
  EXPECT_EQ(failureOf([&] { scene.executor.preview(0, 0, noTask); }), tooLarge);
}

TEST(QueryExecutor, PreviewsOnlyWhatWasFetched) {
  Scene scene;
  DatabaseError const gone("Query result is no longer available.", 1);
  auto const refused = [&](std::int64_t row, std::int64_t column) {
    return failureOf([&] { scene.executor.preview(row, column, noTask); }) == gone;
  };
  EXPECT_TRUE(refused(0, 0));
  scene.start(numbers(1'000) + "SELECT i, i FROM n");
  EXPECT_FALSE(refused(0, 0));
  EXPECT_FALSE(refused(499, 1));
  EXPECT_TRUE(refused(500, 0));
  EXPECT_TRUE(refused(-1, 0));
  EXPECT_TRUE(refused(0, 2));
  EXPECT_TRUE(refused(0, -1));
  scene.page(500);
  EXPECT_FALSE(refused(500, 0));
  scene.executor.close();
  EXPECT_TRUE(refused(0, 0));
}

/// A row of the spool that somebody changed on the disk, which is as long as it was.
TEST(QueryExecutor, PreviewsNoCellThatIsNoLongerInItsRow) {
  Scene scene;
  scene.start(numbers(5'000) + "SELECT iif(i = 8, 'needle', 'straw'), printf('%.*c', 1000, 'x') FROM n");
  scene.page(3'000);  // by then the first rows are only on the disk
  ASSERT_EQ(scene.spools(), 1);
  std::filesystem::path const spool = std::filesystem::directory_iterator(scene.spoolFolder())->path();
  std::ostringstream read;
  read << std::ifstream(spool, std::ios::binary).rdbuf();
  std::string content = read.str();
  std::size_t const between = content.find("needle") + std::string("needle").size();
  content.replace(between, content.find("xxx", between) - between, content.find("xxx", between) - between, '-');
  std::fstream(spool, std::ios::binary | std::ios::in | std::ios::out) << content;
  EXPECT_TRUE(scene.executor.preview(7, 0, noTask).text->starts_with("needle-")) << "the two values are one now";
  DatabaseError const gone("Query result is no longer available.", 1);
  EXPECT_EQ(failureOf([&] { scene.executor.preview(7, 1, noTask); }), gone);
  EXPECT_EQ(scene.page(0).rows.size(), 500U);
  EXPECT_EQ(scene.executor.preview(8, 1, noTask).text, std::string(1'000, 'x'));
}

/// Somebody who looks at a document waits for the helper, and pages on meanwhile.
TEST(QueryExecutor, ShowsPagesWhileAPreviewIsMade) {
  TemporaryDatabase const database("");
  HangingHelpers const helpers;
  QueryExecutor executor{PreviewHelpers(helpers.folder())};
  executor.open(database.path(), true);
  executor.start("SELECT x'255044462d312e37'", {}, noTask);
  bool meanwhile = false;
  for (int attempt = 0; attempt < 5 && !meanwhile; ++attempt) {  // a busy machine may end the helper by the clock
    std::stop_source task;
    bool cancelled = false;
    std::jthread previewing([&] {
      try {
        executor.preview(0, 0, task.get_token());
      } catch (TaskCancelled const&) {
        cancelled = true;
      }
    });
    ASSERT_TRUE(helpers.waitForStart());
    EXPECT_EQ(executor.page(0, noTask).rows.size(), 1U);
    meanwhile = helpers.runs();
    task.request_stop();
    previewing.join();
    EXPECT_TRUE(cancelled || !meanwhile);
    EXPECT_FALSE(helpers.runs());
    helpers.forget();
  }
  EXPECT_TRUE(meanwhile);
}

// Copying --------------------------------------------------------------------------------------------

TEST(QueryExecutor, CopiesTheRowsOfASelection) {
  Scene scene;
  scene.start(numbers(20'000) + "SELECT i FROM n");
  std::vector<Row> const rows = scene.executor.selectedRows({{0, 1}, {499, 502}, {2'000, 2'001}}, noTask);
  EXPECT_EQ(rows, (std::vector<Row>{{1}, {500}, {501}, {502}, {2'001}}));
  EXPECT_TRUE(scene.executor.selectedRows({}, noTask).empty());
  EXPECT_EQ(scene.executor.selectedRows({{0, 10'000}}, noTask).back(), Row{10'000});
  EXPECT_EQ(failureOf([&] {
              scene.executor.selectedRows({{0, 10'001}}, noTask);
            }),
            DatabaseError("Select at most 10,000 query rows to copy.", 1));
}

std::int64_t rowsRead;  // of all statements of the connections that the tests watch

int installRowsRead(sqlite3* db, char const**, sqlite3_api_routines const*) {
  return sqlite3_trace_v2(
      db, SQLITE_TRACE_ROW,
      [](unsigned, void*, void*, void*) {
        ++rowsRead;
        return 0;
      },
      nullptr);
}

TEST(QueryExecutor, ReadsOnlyTheRowsThatItCopies) {
  Scene scene;
  Extension const extension(installRowsRead);  // in the spool's connection alone
  scene.start(numbers(4'000) + "SELECT i FROM n");
  ASSERT_TRUE(scene.page(4'000).finished);
  RowSelection alternate;
  for (std::int64_t position = 0; position < 4'000; position += 2) alternate.insert(position);
  rowsRead = 0;
  EXPECT_EQ(scene.executor.selectedRows(alternate, noTask).size(), 2'000U);
  EXPECT_EQ(rowsRead, 2'000);
}

TEST(QueryExecutor, CopiesNoRowsThatAreNotThere) {
  Scene scene;
  DatabaseError const gone("The selected query rows are no longer available. Run the query again.", 1);
  EXPECT_EQ(failureOf([&] { scene.executor.selectedRows({{0, 1}}, noTask); }), gone);
  scene.start("SELECT a FROM t");
  EXPECT_EQ(scene.executor.selectedRows({{0, 3}}, noTask).size(), 3U);
  EXPECT_EQ(failureOf([&] { scene.executor.selectedRows({{0, 4}}, noTask); }), gone);
  EXPECT_EQ(failureOf([&] { scene.executor.selectedRows({{7, 8}}, noTask); }), gone);
}

TEST(QueryExecutor, CopiesAtMost32MB) {
  Scene scene;
  std::string const text =
      "SELECT printf('%.*c', iif(i <= 1024, 32736, 1), 'x') FROM n";  // 32,768 with the value itself
  scene.start(numbers(1'025) + text);
  EXPECT_EQ(scene.executor.selectedRows({{0, 1'024}}, noTask).size(), 1'024U);
  EXPECT_EQ(failureOf([&] {
              scene.executor.selectedRows({{0, 1'025}}, noTask);
            }),
            DatabaseError("Select fewer rows: copying is limited to 32 MB.", 1));
}

// Faults ---------------------------------------------------------------------------------------------

/// The spool is written when it is made and with its first rows; large ones reach the file.
TEST(QueryExecutorFaults, LeaveNoHalfPage) {
  Scene scene;
  std::string const sql = numbers(1'200) + "SELECT i, printf('%.*c', 300, 'x') FROM n";
  long const calls = forEachFault(
      scene.folder.path(), [] {},
      [&] {
        QueryExecutor executor{PreviewHelpers("/nonexistent")};
        executor.open(scene.database.path(), true);
        std::int64_t seen = std::ssize(executor.start(sql, {}, noTask).rows);
        try {
          for (QueryPage page; !page.finished; seen += std::ssize(page.rows)) page = executor.page(seen, noTask);
          EXPECT_EQ(seen, 1'200);
        } catch (DatabaseError const&) {
          QueryPage const before = executor.page(0, noTask);
          EXPECT_EQ(before.rows.size(), 500U);
          EXPECT_EQ(before.rows[0][0], SQLiteValue(1));
          throw;
        }
      },
      [&](FaultMode, long, FaultOutcome const& outcome) {
        if (outcome.told == FaultOutcome::Told::failure) {
          EXPECT_EQ(scene.spools(), 0) << outcome.text;
        }
        for (auto const& left :
             std::filesystem::directory_iterator(scene.folder / ("tolva-" + std::to_string(::geteuid())))) {
          std::filesystem::remove(left.path());  // by a kill, or by the failure to delete it
        }
        EXPECT_EQ(scene.start(sql).rows.size(), 500U);
        scene.start("");
      },
      /*most=*/80);
  EXPECT_GE(calls, 4);
}

/// Neither the database nor a backup of it is ever half of anything.
TEST(QueryExecutorFaults, LeaveAWholeDatabaseAndNoHalfBackupOfIt) {
  Scene scene;
  scene.executor.close();
  std::string const content = "SELECT name FROM sqlite_schema; PRAGMA integrity_check";
  auto const drop = [&] {
    QueryExecutor executor{PreviewHelpers("/nonexistent")};
    executor.open(scene.database.path(), false);
    executor.start("INSERT INTO t VALUES (4); DROP TABLE t", scene.backups, noTask);
  };
  long const calls = forEachFault(
      scene.folder.path(),
      [&] {
        std::filesystem::remove_all(scene.backups);
        std::filesystem::create_directories(scene.backups);
        scene.database.run(
            "PRAGMA synchronous = OFF; DROP TABLE IF EXISTS t; CREATE TABLE t(a); INSERT INTO t VALUES (1),(2),(3)");
      },
      drop,
      [&](FaultMode, long, FaultOutcome const& outcome) {
        Names backups;
        for (auto const& entry : std::filesystem::directory_iterator(scene.backups)) {
          if (entry.path().filename().native().starts_with('.')) continue;  // what a kill left
          EXPECT_EQ(rowsAsText(entry.path(), "SELECT a FROM t; PRAGMA integrity_check"), "1\n2\n3\nok");
          backups.push_back(entry.path());
        }
        bool const dropped = scene.database.rows(content) == "ok";
        if (!dropped) {
          EXPECT_EQ(scene.database.rows(content), "t\nok");
          std::string const rows = scene.database.rows("SELECT group_concat(a) FROM t");
          EXPECT_TRUE(rows == "1,2,3" || (rows == "1,2,3,4" && backups.size() == 1)) << rows;
        }
        EXPECT_LE(backups.size(), 1U);
        EXPECT_TRUE(!dropped || backups.size() == 1) << "never dropped without a backup";
        if (outcome.told != FaultOutcome::Told::nothing) {
          EXPECT_EQ(dropped, outcome.told == FaultOutcome::Told::success) << outcome.text;
          EXPECT_EQ(Scene::entries(scene.backups), std::ssize(backups)) << "no hidden file is left";
        }
        scene.database.run("PRAGMA synchronous = OFF; DROP TABLE IF EXISTS t; CREATE TABLE t(a)");
        drop();
        EXPECT_EQ(scene.database.rows(content), "ok");
      },
      /*most=*/30);
  EXPECT_GE(calls, 20);
  std::filesystem::remove_all(scene.backups);  // with what the kills left
}

}  // namespace
}  // namespace tolva
