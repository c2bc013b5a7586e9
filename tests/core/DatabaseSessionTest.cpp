// SPDX-License-Identifier: Apache-2.0
#include "core/DatabaseSession.hpp"

#include <gtest/gtest.h>
#include <sqlite3.h>
#include <sys/resource.h>

#include <chrono>
#include <functional>
#include <future>
#include <thread>

#include "core/DatabaseMonitor.hpp"
#include "core/MemoryBudget.hpp"
#include "core/SQLiteLibrary.hpp"
#include "platform/TaskCancellation.hpp"
#include "platform/Uptime.hpp"
#include "support/Failure.hpp"
#include "support/HostileDatabases.hpp"
#include "support/NoTask.hpp"
#include "support/ProcessorTime.hpp"
#include "support/SQLitePeer.hpp"
#include "support/Sanitizer.hpp"
#include "support/TemporaryDatabase.hpp"
#include "support/TemporaryFolder.hpp"
#include "support/Unprivileged.hpp"

namespace tolva {
namespace {

using namespace std::chrono_literals;
using Names = std::vector<std::string>;

constexpr char const* tooLong = "Database Info took too long. Try again when the database is less busy.";

DatabaseInfo infoOf(TemporaryDatabase const& database) { return DatabaseSession(database.path()).inspect(noTask); }

DatabaseInfo infoOf(std::string const& sql) { return infoOf(TemporaryDatabase(sql)); }

/// What a program that uses SQLite as well may do to each connection that this thread opens, for a scope.
class OpenedConnections {
 public:
  explicit OpenedConnections(std::function<void(sqlite3*)> action) : action_(std::move(action)) {
    current = this;
    sqlite3_auto_extension(reinterpret_cast<void (*)()>(&opened));
  }
  ~OpenedConnections() { current = nullptr; }  // the entry point stays: other threads may be opening
  OpenedConnections(OpenedConnections const&) = delete;
  OpenedConnections& operator=(OpenedConnections const&) = delete;

 private:
  static int opened(sqlite3* db, char**, sqlite3_api_routines const*) {
    if (current) current->action_(db);
    return SQLITE_OK;
  }

  static thread_local OpenedConnections* current;
  std::function<void(sqlite3*)> const action_;
};

thread_local OpenedConnections* OpenedConnections::current = nullptr;

/// The text of a statement; empty for one of SQLite's own.
std::string_view textOf(void* statement) {
  char const* const sql = sqlite3_sql(static_cast<sqlite3_stmt*>(statement));
  return sql ? sql : "";
}

/// Does `action` each time a statement that begins with `sql` begins or, if `at` is SQLITE_TRACE_ROW, has a row.
class Statements {
 public:
  Statements(unsigned at, std::string sql, std::function<void()> action)
      : sql_(std::move(sql)),
        action_(std::move(action)),
        connections_([this, at](sqlite3* db) { sqlite3_trace_v2(db, at, &reached, this); }) {}

 private:
  static int reached(unsigned, void* self, void* statement, void*) {
    auto const& statements = *static_cast<Statements const*>(self);
    if (textOf(statement).starts_with(statements.sql_)) statements.action_();
    return 0;
  }

  std::string const sql_;
  std::function<void()> const action_;
  OpenedConnections const connections_;
};

/// `count` tables called t00001 and on, which share one page: thousands of CREATE statements take seconds.
std::string manyTables(int count) {
  return "CREATE TABLE t00001(a); PRAGMA writable_schema = ON;"
         "WITH RECURSIVE n(i) AS (SELECT 2 UNION ALL SELECT i + 1 FROM n WHERE i < " +
         std::to_string(count) +
         ") INSERT INTO sqlite_schema SELECT 'table', printf('t%05d', i), printf('t%05d', i), 2, "
         "printf('CREATE TABLE t%05d(a)', i) FROM n; PRAGMA writable_schema = OFF;";
}

/// "CREATE TABLE name(a /*xxx*/)", `bytes` long.
std::string longStatement(std::string const& name, std::size_t bytes) {
  std::string const head = "CREATE TABLE " + name + "(a /*";
  return head + std::string(bytes - head.size() - 3, 'x') + "*/)";
}

// The answer ---------------------------------------------------------------------------------------

TEST(DatabaseSession, TellsWhatADatabaseIs) {
  TemporaryDatabase const database(
      "PRAGMA page_size = 8192; CREATE TABLE a(id INTEGER PRIMARY KEY AUTOINCREMENT, b UNIQUE); CREATE TABLE c(d);"
      "CREATE INDEX i ON c(d); CREATE VIEW v AS SELECT 1; CREATE VIEW w AS SELECT 2; CREATE VIEW x AS SELECT 3;"
      "CREATE TRIGGER r AFTER INSERT ON c BEGIN SELECT 1; END; ANALYZE");
  DatabaseInfo const expected{
      .databaseURL = database.path(),
      .sqliteVersion = sqlite3_libversion(),
      .journalMode = "DELETE",
      .pageSize = 8192,
      .tables = 2,
      .views = 3,
      .indexes = 2,
      .triggers = 1,
      .databaseSize = FileObservation::present(static_cast<std::int64_t>(file_size(database.path()))),
      .walSize = FileObservation::missing(),
      .shmSize = FileObservation::missing(),
      .inspectionReadOnly = true,
      .capabilities = {.hasForeignKeys = false, .inspectionComplete = true, .hasViews = true, .hasTriggers = true}};
  EXPECT_EQ(infoOf(database), expected);
}

TEST(DatabaseSession, TellsOfADatabaseWithNothingInIt) {
  DatabaseInfo const info = infoOf("PRAGMA user_version = 1");
  EXPECT_EQ(info.tables + info.views + info.indexes + info.triggers, 0);
  EXPECT_EQ(info.capabilities, (DatabaseCapabilities{.hasForeignKeys = false, .inspectionComplete = true}));
}

TEST(DatabaseSession, TellsOfTheFilesInWALMode) {
  TemporaryDatabase const database("CREATE TABLE t(a)");
  SQLitePeer peer(database.path());
  ASSERT_EQ(peer.rows("PRAGMA journal_mode = wal"), "wal");
  ASSERT_EQ(peer.exec("INSERT INTO t VALUES (1)"), "ok");
  DatabaseSession session(database.path());
  DatabaseInfo const info = session.inspect(noTask);
  EXPECT_EQ(info.journalMode, "WAL");
  EXPECT_EQ(info.walSize, FileObservation::present(static_cast<std::int64_t>(file_size(session.walURL()))));
  EXPECT_EQ(info.shmSize, FileObservation::present(static_cast<std::int64_t>(file_size(session.shmURL()))));
}

TEST(DatabaseSession, NamesTheFilesByAbsolutePaths) {
  DatabaseSession const session("some.db");
  EXPECT_EQ(session.databaseURL(), std::filesystem::current_path() / "some.db");
  EXPECT_EQ(session.walURL(), session.databaseURL().string() + "-wal");
  EXPECT_EQ(session.shmURL(), session.databaseURL().string() + "-shm");
}

TEST(DatabaseSession, CountsTheIndexesThatSQLiteMakesButNotItsTables) {
  DatabaseInfo const info = infoOf("CREATE TABLE t(id INTEGER PRIMARY KEY AUTOINCREMENT, a UNIQUE, b UNIQUE)");
  EXPECT_EQ(info.tables, 1);
  EXPECT_EQ(info.indexes, 2);
}

/// The statements that an inspection of `database` runs, in their order, and how it ends.
Names statementsOf(TemporaryDatabase const& database, std::function<void(sqlite3*)> const& prepare) {
  Names statements;
  OpenedConnections const connections([&](sqlite3* db) {
    prepare(db);
    auto const atStatement = [](unsigned, void* seen, void* statement, void*) {
      std::string_view const sql = textOf(statement);
      if (!sql.empty()) static_cast<Names*>(seen)->emplace_back(sql);
      return 0;
    };
    sqlite3_trace_v2(db, SQLITE_TRACE_STMT, atStatement, &statements);
  });
  statements.push_back(failureOf([&] { infoOf(database); }).detail);
  return statements;
}

Names const statementsOfAnInspection{
    "PRAGMA foreign_keys = ON",
    "PRAGMA query_only = ON",
    "BEGIN",
    "PRAGMA journal_mode",
    "PRAGMA page_size",
    "SELECT type, count(*) FROM sqlite_schema WHERE name NOT GLOB 'sqlite_*' OR type = 'index' GROUP BY type",
    "SELECT name, sql FROM sqlite_schema WHERE type = 'table' AND name NOT GLOB 'sqlite_*' ORDER BY name LIMIT 4097",
    "PRAGMA foreign_key_list(\"t\")",
    "ROLLBACK",
    "(nothing failed)"};

TEST(DatabaseSession, ReadsOneStateAndRollsBack) {
  TemporaryDatabase const database("CREATE TABLE t(a)");
  EXPECT_EQ(statementsOf(database, [](sqlite3*) {}), statementsOfAnInspection);
}

TEST(DatabaseSession, RollsBackAfterAFailure) {
  TemporaryDatabase const database("CREATE TABLE t(a)");
  auto const refuseCounting = [](void*, int action, char const* function, char const* name, char const*, char const*) {
    std::string_view const called = action == SQLITE_FUNCTION && name ? name : "";
    return called == "count" && !function ? SQLITE_DENY : SQLITE_OK;
  };
  Names const statements =
      statementsOf(database, [&](sqlite3* db) { sqlite3_set_authorizer(db, refuseCounting, nullptr); });
  ASSERT_GE(statements.size(), 2);
  EXPECT_EQ(statements.back(), "not authorized to use function: count");
  EXPECT_EQ(statements.at(statements.size() - 2), "ROLLBACK");
}

TEST(DatabaseSession, IgnoresAFailureToRollBack) {
  TemporaryDatabase const database("CREATE TABLE t(a)");
  auto const refuseRollback = [](void*, int action, char const* name, char const*, char const*, char const*) {
    return action == SQLITE_TRANSACTION && std::string_view(name) == "ROLLBACK" ? SQLITE_DENY : SQLITE_OK;
  };
  Names expected = statementsOfAnInspection;
  std::erase(expected, "ROLLBACK");
  EXPECT_EQ(statementsOf(database, [&](sqlite3* db) { sqlite3_set_authorizer(db, refuseRollback, nullptr); }),
            expected);
}

// Foreign keys and modules ---------------------------------------------------------------------------

TEST(DatabaseSession, LooksForForeignKeysInAllTablesUntilItHasSeenOne) {
  TemporaryDatabase const database(
      "CREATE TABLE a(x); CREATE TABLE b(x REFERENCES a); CREATE TABLE c(x REFERENCES a); CREATE TABLE d(x)");
  int asked = 0;
  Statements const statements(SQLITE_TRACE_STMT, "PRAGMA foreign_key_list(", [&] { ++asked; });
  EXPECT_EQ(infoOf(database).capabilities.hasForeignKeys, true);
  EXPECT_EQ(asked, 2);
}

TEST(DatabaseSession, AsksForForeignKeysByTheNameThatSQLiteKnows) {
  struct NameCase {
    char const* says;
    std::string create;
  };
  NameCase const names[] = {
      {"quotes", R"(CREATE TABLE "a""b');"(x REFERENCES p))"},
      {"blanks and line ends", "CREATE TABLE \" a\n\"(x REFERENCES p)"},
      {"nothing", "CREATE TABLE \"\"(x REFERENCES p)"},
      {"another alphabet", "CREATE TABLE größe(x REFERENCES p)"},
      {"no UTF-8", "CREATE TABLE \"a\xff\"(x REFERENCES p)"},
      {"wide text", "PRAGMA encoding = 'UTF-16'; CREATE TABLE größe(x REFERENCES p)"},
      {"a NUL",
       "CREATE TABLE t(x REFERENCES p); PRAGMA writable_schema = ON;"
       "UPDATE sqlite_schema SET name = 't' || char(0) || '\"u' WHERE name = 't'"},
  };
  for (NameCase const& each : names) {
    SCOPED_TRACE(each.says);
    EXPECT_EQ(infoOf(each.create).capabilities.hasForeignKeys, true);
  }
}

TEST(DatabaseSession, NamesTheModulesOfTextSearchInOrder) {
  DatabaseInfo const info = infoOf(
      "CREATE VIRTUAL TABLE one USING fts5(x); CREATE VIRTUAL TABLE [a b] USING /* c */ FTS4; CREATE TABLE fts3(x);"
      "CREATE VIRTUAL TABLE IF NOT EXISTS main.two USING \"Fts5\"(x); CREATE VIRTUAL TABLE r USING rtree(id, a, b)");
  EXPECT_EQ(info.capabilities.ftsModules, (Names{"FTS4", "FTS5"}));
  EXPECT_TRUE(info.capabilities.inspectionComplete);
}

TEST(DatabaseSession, NamesAModuleThatIsNotThere) {
  DatabaseInfo const info = infoOf(
      "CREATE VIRTUAL TABLE t USING fts4(x); PRAGMA writable_schema = ON;"
      "UPDATE sqlite_schema SET sql = 'CREATE VIRTUAL TABLE t USING fts3(x)' WHERE name = 't'");
  EXPECT_EQ(info.capabilities.ftsModules, (Names{"FTS3"}));
  EXPECT_EQ(infoOf("CREATE VIRTUAL TABLE t USING fts4(x); PRAGMA writable_schema = ON;"
                   "UPDATE sqlite_schema SET sql = 'CREATE VIRTUAL TABLE t USING gone(x)' WHERE name = 't'")
                .capabilities.ftsModules,
            Names());
}

// Limits -------------------------------------------------------------------------------------------

TEST(DatabaseSession, LooksAtFourThousandNinetySixTables) {
  struct TablesCase {
    char const* says;
    std::string sql;
    std::int64_t tables;
    std::optional<bool> hasForeignKeys;
    bool complete;
  };
  TablesCase const cases[] = {
      {"as many as it looks at", manyTables(4'096), 4'096, false, true},
      {"one beyond", manyTables(4'097), 4'097, {}, false},
      {"a key in the last one", manyTables(4'095) + "CREATE TABLE z(a REFERENCES t00001)", 4'096, true, true},
      {"a key in the one beyond", manyTables(4'096) + "CREATE TABLE z(a REFERENCES t00001)", 4'097, {}, false},
      {"a key in the first of many", manyTables(4'999) + "CREATE TABLE a(a REFERENCES t00001)", 5'000, true, false},
      {"many without a key", manyTables(5'000), 5'000, {}, false},
  };
  for (TablesCase const& each : cases) {
    SCOPED_TRACE(each.says);
    DatabaseInfo const info = infoOf(each.sql);
    EXPECT_EQ(info.tables, each.tables);
    EXPECT_EQ(info.capabilities.hasForeignKeys, each.hasForeignKeys);
    EXPECT_EQ(info.capabilities.inspectionComplete, each.complete);
  }
}

TEST(DatabaseSession, LooksAtFourMebibytesOfSchemaText) {
  constexpr int tables = 70;
  constexpr std::size_t name = 3;
  std::string sql;
  for (int table = 0; table < tables - 1; ++table) {
    sql += longStatement("t" + std::to_string(10 + table), 60'000 - name) + ";";
  }
  std::size_t const rest = 4'194'304 - 60'000 * (tables - 1);
  for (std::size_t const beyond : {0U, 1U}) {
    SCOPED_TRACE(beyond);
    TemporaryDatabase const database(sql + longStatement("z99", rest - name + beyond));
    EXPECT_EQ(database.rows("SELECT sum(length(name) + length(sql)) FROM sqlite_schema"),
              std::to_string(4'194'304 + beyond));
    DatabaseCapabilities const capabilities = infoOf(database).capabilities;
    EXPECT_EQ(capabilities.inspectionComplete, beyond == 0);
    EXPECT_EQ(capabilities.hasForeignKeys, beyond == 0 ? std::optional(false) : std::nullopt);
  }
}

TEST(DatabaseSession, LooksAtNothingOfATableBeyondTheSchemaText) {
  std::string sql;
  for (int table = 0; table < 70; ++table) sql += longStatement("t" + std::to_string(10 + table), 60'000) + ";";
  sql += "CREATE VIRTUAL TABLE z USING fts5(x); CREATE TABLE zz(x REFERENCES t10)";
  DatabaseCapabilities const capabilities = infoOf(sql).capabilities;
  EXPECT_EQ(capabilities.ftsModules, Names());
  EXPECT_EQ(capabilities.hasForeignKeys, std::nullopt);
}

TEST(DatabaseSession, SkipsATableWhoseStatementIsTooLongToCarry) {
  for (std::size_t const bytes : {65'536U, 65'537U}) {
    SCOPED_TRACE(bytes);
    std::string statement = longStatement("t", bytes);
    statement.replace(statement.rfind("x*/)"), 4, "*/ )");
    TemporaryDatabase const database(statement + "; CREATE VIRTUAL TABLE u USING fts5(x)");
    DatabaseCapabilities const capabilities = infoOf(database).capabilities;
    EXPECT_EQ(capabilities.inspectionComplete, bytes == 65'536);
    EXPECT_EQ(capabilities.hasForeignKeys, bytes == 65'536 ? std::optional(false) : std::nullopt);
    EXPECT_EQ(capabilities.ftsModules, (Names{"FTS5"}));  // the next table is looked at
  }
}

TEST(DatabaseSession, SkipsATableWhoseNameIsTooLongToCarry) {
  TemporaryDatabase const database("CREATE TABLE " + std::string(65'537, 'n') + "(x REFERENCES p)");
  DatabaseInfo const info = infoOf(database);
  EXPECT_EQ(info.tables, 1);
  EXPECT_FALSE(info.capabilities.inspectionComplete);
  EXPECT_EQ(info.capabilities.hasForeignKeys, std::nullopt);
}

TEST(DatabaseSession, SkipsATableWithoutAStatement) {
  DatabaseInfo const info = infoOf(
      "CREATE TABLE t(a); CREATE INDEX i ON t(a); PRAGMA writable_schema = ON;"
      "INSERT INTO sqlite_schema SELECT 'table', 'i', 't', rootpage, NULL FROM sqlite_schema WHERE name = 'i'");
  EXPECT_EQ(info.tables, 2);
  EXPECT_FALSE(info.capabilities.inspectionComplete);
}

// Hostile and busy files -----------------------------------------------------------------------------

TEST(DatabaseSession, DoesNotResolveViews) {
  TemporaryFolder const folder;
  writeMultiplyingViews(folder / "t.db");
  DatabaseInfo const info = DatabaseSession(folder / "t.db").inspect(noTask);
  EXPECT_EQ(info.tables, 3'001);
  EXPECT_EQ(info.views, 18);
  EXPECT_TRUE(info.capabilities.inspectionComplete);
}

TEST(DatabaseSession, EndsOnSchemasWithoutMeasure) {
  struct HostileCase {
    char const* says;
    void (*write)(std::filesystem::path const&);
    char const* text;
  };
  HostileCase const files[] = {
      {"a view with a list of 20 million items", writeLongList, "out of memory"},
      {"a token of 150 MB", writeLongToken, "out of memory"},
      {"a schema without end", writeEndlessSchema, "Cancelled"},
      {"300 entries that share a text of 100 MB", writeSharedSQL, "Cancelled"},
  };
  for (HostileCase const& each : files) {
    SCOPED_TRACE(each.says);
    TemporaryFolder const folder;
    each.write(folder / "t.db");
    auto const begun = processorTime();
    std::string const text = failureOf([&] { DatabaseSession(folder / "t.db").inspect(noTask); }).errorDescription();
    // On a busy machine time can run out before memory does.
    EXPECT_TRUE(text == each.text || text == "Cancelled" || text == tooLong) << text;
    EXPECT_LT(processorTime() - begun, sanitized ? 60s : 4s);
  }
}

TEST(DatabaseSession, KeepsNothingOfKindsThatItDoesNotCount) {
  TemporaryFolder const folder;
  writeManyKinds(folder / "t.db");
  rusage before{};
  getrusage(RUSAGE_SELF, &before);
  try {
    DatabaseInfo const info = DatabaseSession(folder / "t.db").inspect(noTask);
    EXPECT_EQ(info.tables, 1);
    EXPECT_EQ(info.indexes, 2);
  } catch (DatabaseError const& error) {  // on a busy machine time can run out
    EXPECT_TRUE(error.isCancellation() || error == DatabaseError(tooLong)) << error.errorDescription();
  }
  rusage after{};
  getrusage(RUSAGE_SELF, &after);
  if (sanitized) return;
  EXPECT_LE(after.ru_maxrss - before.ru_maxrss, MemoryBudget::ordinary / 1024) << "KiB";
}

TEST(DatabaseSession, SaysThatAnotherProcessHoldsTheDatabase) {
  TemporaryDatabase const database("CREATE TABLE t(a)");
  SQLitePeer peer(database.path());
  ASSERT_EQ(peer.exec("BEGIN EXCLUSIVE"), "ok");
  DatabaseError const failure = failureOf([&] { infoOf(database); });
  EXPECT_EQ(failure.code, SQLITE_BUSY);
  EXPECT_EQ(failure.errorDescription(),
            "Another connection is holding a database lock. Wait for its transaction to finish, then try again. "
            "database is locked");
  ASSERT_EQ(peer.exec("ROLLBACK"), "ok");
  EXPECT_EQ(infoOf(database).tables, 1);
}

TEST(DatabaseSession, SaysThatAnotherProcessHoldsADatabaseInWALMode) {
  TemporaryDatabase const database("PRAGMA journal_mode = wal; CREATE TABLE t(a)");
  SQLitePeer peer(database.path());
  ASSERT_EQ(peer.rows("PRAGMA locking_mode = EXCLUSIVE"), "exclusive");
  ASSERT_EQ(peer.exec("INSERT INTO t VALUES (1)"), "ok");
  DatabaseError const failure = failureOf([&] { infoOf(database); });
  EXPECT_TRUE(failure.errorDescription().starts_with("Another connection is holding a database lock. "));
}

TEST(DatabaseSession, LeavesBehindTheCompanionsThatReadingMade) {
  TemporaryFolder const folder;
  TemporaryDatabase const database(folder, "t.db", "PRAGMA journal_mode = wal; CREATE TABLE t(a)");
  ASSERT_EQ(folder.names(), std::vector<std::string>{"t.db"});
  DatabaseMonitor monitor(database.path());
  monitor.sample(noTask);
  EXPECT_EQ(infoOf(database).walSize, FileObservation::present(0));
  EXPECT_EQ(folder.names(), (std::vector<std::string>{"t.db", "t.db-shm", "t.db-wal"}));
  EXPECT_EQ(monitor.sample(noTask).revision, 1) << "what made them is nobody else's change, but a stamp cannot tell";
}

TEST(DatabaseSession, CannotReadADatabaseInWALModeInAFolderThatMayNotBeWritten) {
  TemporaryFolder folder;
  folder.openToEverybody();
  TemporaryDatabase const database(folder, "t.db", "PRAGMA journal_mode = wal; CREATE TABLE t(a)");
  std::filesystem::permissions(folder.path(), std::filesystem::perms(0555));
  EXPECT_EQ(asUnprivileged([&] { return std::to_string(failureOf([&] { infoOf(database); }).code); }),
            std::to_string(SQLITE_READONLY_DIRECTORY));
  std::filesystem::permissions(folder.path(), std::filesystem::perms::owner_all);
}

TEST(DatabaseSession, IsOfALinkItselfWhereItIsGivenOne) {
  TemporaryFolder const folder;
  TemporaryDatabase const database(folder, "t.db", "CREATE TABLE t(a)");
  std::filesystem::create_symlink("t.db", folder / "link.db");
  DatabaseInfo const info = DatabaseSession(folder / "link.db").inspect(noTask);
  EXPECT_EQ(info.tables, 1);
  EXPECT_EQ(info.databaseSize, FileObservation::present(4)) << "the length of the link";
}

TEST(DatabaseSession, TakesAPathThatNamesNothingForAFailureOfTheInspection) {
  TemporaryDatabase const database("CREATE TABLE t(a)");
  for (std::filesystem::path const& path :
       {std::filesystem::path(), std::filesystem::path(database.path().string() + '\0')}) {
    DatabaseSession session(path);
    EXPECT_EQ(failureOf([&] { session.inspect(noTask); }),
              DatabaseError("unable to open database file", SQLITE_CANTOPEN));
  }
}

TEST(DatabaseSession, LetsOthersWriteAgainAtOnce) {
  TemporaryDatabase const database("CREATE TABLE t(a)");
  DatabaseSession session(database.path());
  session.inspect(noTask);
  SQLitePeer peer(database.path());
  EXPECT_EQ(peer.exec("INSERT INTO t VALUES (1)"), "ok");
}

TEST(DatabaseSession, PassesFailuresOfTheFileThrough) {
  TemporaryFolder const folder;
  auto const inspected = [](std::filesystem::path const& path) {
    return failureOf([&] { DatabaseSession(path).inspect(noTask); });
  };
  EXPECT_EQ(inspected(folder / "none.db"), DatabaseError("unable to open database file", SQLITE_CANTOPEN));
  EXPECT_EQ(inspected(folder.write("noise.db", std::string(4096, 'n'))),
            DatabaseError("file is not a database", SQLITE_NOTADB));
  EXPECT_EQ(folder.names(), (Names{"noise.db"}));
}

// Time ---------------------------------------------------------------------------------------------

/// The answer, or the failure, of an inspection that sleeps to its deadline where a statement begins or has a row.
std::string afterSleeping(std::filesystem::path const& database, unsigned at, std::string const& statement) {
  bool slept = false;
  Statements const statements(at, statement, [&] {
    if (!slept) std::this_thread::sleep_for(3050ms);
    slept = true;
  });
  DatabaseSession session(database);
  return failureOf([&] { session.inspect(noTask); }).errorDescription();
}

TEST(DatabaseSession, TakesTooLongForWhicheverCheckComesNext) {
  TemporaryDatabase const database("CREATE TABLE t(a); CREATE TABLE u(a)");
  struct SleepCase {
    char const* says;
    unsigned at;
    char const* statement;
  };
  SleepCase const sleeps[] = {
      {"before the first scalar", SQLITE_TRACE_STMT, "BEGIN"},
      {"between the scalars", SQLITE_TRACE_STMT, "PRAGMA journal_mode"},
      {"before the counts", SQLITE_TRACE_STMT, "PRAGMA page_size"},
      {"at a count", SQLITE_TRACE_ROW, "SELECT type, count(*)"},
      {"at a table", SQLITE_TRACE_ROW, "SELECT name, sql"},
      {"behind the first table", SQLITE_TRACE_STMT, "PRAGMA foreign_key_list(\"t\")"},
      {"behind the last table", SQLITE_TRACE_STMT, "PRAGMA foreign_key_list(\"u\")"},
  };
  std::vector<std::future<std::string>> told;
  for (SleepCase const& each : sleeps) {
    told.push_back(std::async(std::launch::async, afterSleeping, database.path(), each.at, each.statement));
  }
  for (std::size_t sleep = 0; sleep < told.size(); ++sleep) {
    SCOPED_TRACE(sleeps[sleep].says);
    EXPECT_EQ(told[sleep].get(), tooLong);
  }
}

TEST(DatabaseSession, ReadsAsCancelledWhereAStatementIsStoppedAtTheDeadline) {
  TemporaryDatabase const database(manyTables(5'000));
  EXPECT_EQ(afterSleeping(database.path(), SQLITE_TRACE_STMT, "SELECT type, count(*)"), "Cancelled");
}

TEST(DatabaseSession, IsCancelledWhereAStatementIsPreparedOverTheDeadline) {
  ASSERT_TRUE(SQLiteLibrary::enforcesMemoryBudgets());
  TemporaryDatabase const database("CREATE TABLE t(a)");
  OpenedConnections const slow([](sqlite3* db) {
    auto const authorize = [](void*, int action, char const*, char const*, char const*, char const*) {
      if (action != SQLITE_SELECT) return SQLITE_OK;
      std::this_thread::sleep_for(3150ms);
      for (int allocation = 0; allocation < 5000; ++allocation) sqlite3_free(sqlite3_malloc(8));
      return SQLITE_OK;
    };
    sqlite3_set_authorizer(db, authorize, nullptr);
  });
  EXPECT_TRUE(failureOf([&] { infoOf(database); }).isCancellation());
}

TEST(DatabaseSession, StaysOutOfMemoryWhereThereIsTime) {
  TemporaryDatabase const database("CREATE TABLE t(a)");
  OpenedConnections const starved([](sqlite3* db) {
    auto const authorize = [](void*, int action, char const*, char const*, char const*, char const*) {
      if (action == SQLITE_SELECT) sqlite3_free(sqlite3_malloc(512 << 20));  // spends the budget of the inspection
      return SQLITE_OK;
    };
    sqlite3_set_authorizer(db, authorize, nullptr);
  });
  ASSERT_TRUE(SQLiteLibrary::enforcesMemoryBudgets());
  EXPECT_EQ(failureOf([&] { infoOf(database); }).code, SQLITE_NOMEM);
}

// Page size ----------------------------------------------------------------------------------------

/// Lets SQLite skip the pragma, as the authorizer of a host program may.
void ignorePageSize(sqlite3* db) {
  auto const authorize = [](void*, int action, char const* pragma, char const*, char const*, char const*) {
    return action == SQLITE_PRAGMA && std::string_view(pragma) == "page_size" ? SQLITE_IGNORE : SQLITE_OK;
  };
  sqlite3_set_authorizer(db, authorize, nullptr);
}

TEST(DatabaseSession, NeedsAPageSize) {
  TemporaryDatabase const database("CREATE TABLE t(a)");
  OpenedConnections const ignoring(ignorePageSize);
  EXPECT_EQ(failureOf([&] { infoOf(database); }), DatabaseError("SQLite did not return a page size."));
}

TEST(DatabaseSession, AsksForThePageSizeOnlyAfterTheScans) {
  TemporaryDatabase const database("CREATE TABLE t(a)");
  bool scanned = false;
  OpenedConnections const ignoring([&](sqlite3* db) {
    ignorePageSize(db);
    auto const atRow = [](unsigned, void* seen, void* statement, void*) {
      if (textOf(statement).starts_with("SELECT name, sql")) *static_cast<bool*>(seen) = true;
      return 0;
    };
    sqlite3_trace_v2(db, SQLITE_TRACE_ROW, atRow, &scanned);
  });
  EXPECT_EQ(failureOf([&] { infoOf(database); }).detail, "SQLite did not return a page size.");
  EXPECT_TRUE(scanned);
}

// Cancellation -------------------------------------------------------------------------------------

TEST(DatabaseSession, LooksAtNothingForACancelledTask) {
  TemporaryFolder const folder;
  DatabaseSession session(folder / "none.db");
  std::stop_source task;
  task.request_stop();
  EXPECT_THROW(session.inspect(task.get_token()), TaskCancelled);
  session.close();
  EXPECT_THROW(session.inspect(task.get_token()), TaskCancelled);
}

/// Whether `operation` ends as cancelled: noticed between two steps, or within one.
bool isCancelled(std::function<void()> const& operation) {
  try {
    operation();
  } catch (TaskCancelled const&) {
    return true;
  } catch (DatabaseError const& error) {
    return error.isCancellation();
  }
  return false;
}

TEST(DatabaseSession, EndsAtTheNextCheckOfACancelledTask) {
  TemporaryDatabase const database("CREATE TABLE t(a); CREATE TABLE u(a)");
  for (char const* const statement :
       {"BEGIN", "PRAGMA page_size", "SELECT type, count(*)", "SELECT name, sql", "PRAGMA foreign_key_list(\"u\")"}) {
    SCOPED_TRACE(statement);
    std::stop_source task;
    Statements const statements(SQLITE_TRACE_STMT, statement, [&] { task.request_stop(); });
    DatabaseSession session(database.path());
    EXPECT_TRUE(isCancelled([&] { session.inspect(task.get_token()); }));
  }
}

TEST(DatabaseSession, StopsAStatementOfACancelledTask) {
  TemporaryDatabase const database(manyTables(5'000));
  std::stop_source task;
  Statements const statements(SQLITE_TRACE_STMT, "SELECT type, count(*)", [&] { task.request_stop(); });
  DatabaseSession session(database.path());
  EXPECT_TRUE(failureOf([&] { session.inspect(task.get_token()); }).isCancellation());
}

TEST(DatabaseSession, IsCancelledFromAnotherThread) {
  TemporaryDatabase const database("CREATE TABLE t(a); CREATE TABLE u(a)");
  DatabaseSession session(database.path());
  {
    Statements const statements(SQLITE_TRACE_ROW, "SELECT name, sql",
                                [&] { std::jthread([&] { session.cancellation()->cancel(); }).join(); });
    DatabaseError const failure = failureOf([&] { session.inspect(noTask); });
    EXPECT_TRUE(failure.isCancellation());
    EXPECT_EQ(failure.errorDescription(), "Cancelled");
  }
  session.cancellation()->cancel();  // while nothing runs
  EXPECT_EQ(session.inspect(noTask).tables, 2);
}

TEST(DatabaseSession, SurvivesACancellationAtAnyMoment) {
  TemporaryDatabase const database(manyTables(300));
  DatabaseSession session(database.path());
  std::jthread const canceller([&](std::stop_token const& stop) {
    while (!stop.stop_requested()) session.cancellation()->cancel();
  });
  for (int round = 0; round < 50; ++round) {
    DatabaseError const failure = failureOf([&] { session.inspect(noTask); });
    EXPECT_TRUE(failure.isCancellation() || failure.code == -1) << failure.detail;
  }
}

// End ----------------------------------------------------------------------------------------------

/// Counts its closings, and asks the session something meanwhile.
class CountingGateway : public SessionGateway {
 public:
  void close() override {
    ++closings;
    if (meanwhile) meanwhile();
  }

  int closings = 0;
  std::function<void()> meanwhile;
};

TEST(DatabaseSession, DoesNotInspectAfterClose) {
  TemporaryDatabase const database("CREATE TABLE t(a)");
  DatabaseSession session(database.path());
  session.close();
  EXPECT_EQ(failureOf([&] { session.inspect(noTask); }), DatabaseError("This database session is closed."));
  session.close();
  EXPECT_EQ(failureOf([&] { session.inspect(noTask); }), DatabaseError("This database session is closed."));
}

TEST(DatabaseSession, ClosesItsGatewayOutsideItsTurn) {
  TemporaryDatabase const database("CREATE TABLE t(a)");
  auto const gateway = std::make_shared<CountingGateway>();
  DatabaseSession session(database.path(), gateway);
  DatabaseError meanwhile("");
  gateway->meanwhile = [&] { meanwhile = failureOf([&] { session.inspect(noTask); }); };
  EXPECT_EQ(session.inspect(noTask).tables, 1);
  EXPECT_EQ(gateway->closings, 0);
  session.close();
  EXPECT_EQ(gateway->closings, 1);
  EXPECT_EQ(meanwhile, DatabaseError("This database session is closed."));
}

TEST(DatabaseSession, IsClosedEvenIfItsGatewayFails) {
  TemporaryDatabase const database("CREATE TABLE t(a)");
  auto const gateway = std::make_shared<CountingGateway>();
  DatabaseSession session(database.path(), gateway);
  gateway->meanwhile = [] { throw DatabaseError("The gateway does not close."); };
  EXPECT_EQ(failureOf([&] { session.close(); }), DatabaseError("The gateway does not close."));
  EXPECT_EQ(failureOf([&] { session.inspect(noTask); }), DatabaseError("This database session is closed."));
  gateway->meanwhile = {};
  session.close();
  EXPECT_EQ(gateway->closings, 2);
}

TEST(DatabaseSession, AnswersManyThreadsOneAtATime) {
  TemporaryDatabase const database("CREATE TABLE t(a)");
  DatabaseSession session(database.path());
  DatabaseInfo const info = session.inspect(noTask);
  std::vector<std::jthread> callers;
  for (int caller = 0; caller < 4; ++caller) {
    callers.emplace_back([&] {
      for (int round = 0; round < 10; ++round) EXPECT_TRUE(session.inspect(noTask) == info);
    });
  }
}

}  // namespace
}  // namespace tolva
