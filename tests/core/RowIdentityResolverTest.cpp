// SPDX-License-Identifier: Apache-2.0
#include "core/RowIdentityResolver.hpp"

#include <gtest/gtest.h>
#include <sqlite3.h>

#include <chrono>
#include <utility>

#include "core/SQLiteStatement.hpp"
#include "support/Failure.hpp"
#include "support/HostileDatabases.hpp"
#include "support/NoTask.hpp"
#include "support/ProcessorTime.hpp"
#include "support/Sanitizer.hpp"
#include "support/TemporaryDatabase.hpp"

namespace tolva {
namespace {

using Names = std::vector<std::string>;

std::shared_ptr<SQLiteConnection> inMemory(std::string const& sql) {
  auto connection = SQLiteConnection::open({}, {.readOnly = false, .inMemory = true});
  connection->execute(sql);
  return connection;
}

ComparisonIdentity identityOf(std::string const& sql) {
  return RowIdentityResolver::resolve(*inMemory(sql), "main", "t", noTask);
}

DatabaseError refusalOf(std::string const& sql) {
  return failureOf([&] { identityOf(sql); });
}

/// "c1 INT, c2 INT, ..." and the like.
std::string numbered(int count, std::string const& behind = "") {
  std::string list;
  for (int column = 1; column <= count; ++column) list += (column > 1 ? ", c" : "c") + std::to_string(column) + behind;
  return list;
}

TEST(RowIdentityResolver, TakesADeclaredKeyInItsOrder) {
  struct KeyCase {
    char const* says;
    char const* sql;
    ComparisonIdentity identity;
  };
  KeyCase const keys[] = {
      {"an alias of the rowid", "CREATE TABLE t(a, id integer primary key)", {{"id"}, {"BINARY"}, {"a", "id"}}},
      {"a key that is declared NOT NULL", "CREATE TABLE t(id TEXT NOT NULL PRIMARY KEY)", {{"id"}, {"BINARY"}, {"id"}}},
      {"columns in the order of the key",
       "CREATE TABLE t(a NOT NULL, b, c NOT NULL, PRIMARY KEY (c, a))",
       {{"c", "a"}, {"BINARY", "BINARY"}, {"a", "b", "c"}}},
      {"a collation of each column",
       "CREATE TABLE t(a TEXT COLLATE nocase, b TEXT COLLATE RTRIM, c, PRIMARY KEY (a, b, c)) WITHOUT ROWID",
       {{"a", "b", "c"}, {"NOCASE", "RTRIM", "BINARY"}, {"a", "b", "c"}}},
      {"the collation of the key before that of the column",
       "CREATE TABLE t(a TEXT NOT NULL COLLATE NOCASE, PRIMARY KEY (a COLLATE BINARY))",
       {{"a"}, {"BINARY"}, {"a"}}},
      {"a descending INTEGER that is declared NOT NULL",
       "CREATE TABLE t(a INTEGER NOT NULL PRIMARY KEY DESC)",
       {{"a"}, {"BINARY"}, {"a"}}},
      {"all columns, generated ones too",
       "CREATE TABLE t(id INTEGER PRIMARY KEY, b AS (id) VIRTUAL, c AS (id) STORED)",
       {{"id"}, {"BINARY"}, {"id", "b", "c"}}},
      {"a name with a quote", "CREATE TABLE t(\"a\"\"b\" INTEGER PRIMARY KEY)", {{"a\"b"}, {"BINARY"}, {"a\"b"}}},
  };
  for (KeyCase const& each : keys) {
    SCOPED_TRACE(each.says);
    EXPECT_EQ(identityOf(each.sql), each.identity);
  }
}

TEST(RowIdentityResolver, LooksOnlyIntoTheNamedSchema) {
  auto const connection = inMemory("CREATE TABLE t(a INTEGER PRIMARY KEY)");
  connection->execute("ATTACH ':memory:' AS \"the \"\"other\"\"\"");
  connection->execute("CREATE TABLE \"the \"\"other\"\"\".\"t\"\"t\"(b TEXT NOT NULL COLLATE NOCASE PRIMARY KEY)");
  connection->execute("CREATE TABLE \"the \"\"other\"\"\".t(b TEXT NOT NULL COLLATE NOCASE PRIMARY KEY, c)");
  auto const resolve = [&](char const* database, char const* table) {
    return RowIdentityResolver::resolve(*connection, database, table, noTask);
  };
  EXPECT_EQ(resolve("main", "t"), (ComparisonIdentity{{"a"}, {"BINARY"}, {"a"}}));
  EXPECT_EQ(resolve("the \"other\"", "t"), (ComparisonIdentity{{"b"}, {"NOCASE"}, {"b", "c"}}));
  EXPECT_EQ(resolve("the \"other\"", "t\"t"), (ComparisonIdentity{{"b"}, {"NOCASE"}, {"b"}}));
  EXPECT_EQ(failureOf([&] { resolve("main", "t\"t"); }).detail,
            "Views, virtual tables and shadow tables are not row-compared.");
  EXPECT_EQ(failureOf([&] { resolve("gone", "t"); }).code, SQLITE_ERROR);
}

TEST(RowIdentityResolver, FindsATableAsSQLiteDoes) {
  auto const connection = inMemory("CREATE TABLE \"Tä\"(a INTEGER PRIMARY KEY)");
  connection->execute("CREATE TEMP TABLE t(b INTEGER PRIMARY KEY)");
  auto const resolve = [&](char const* database, char const* table) {
    return RowIdentityResolver::resolve(*connection, database, table, noTask);
  };
  EXPECT_EQ(resolve("MAIN", "tä").columns, Names{"a"});
  EXPECT_EQ(resolve("temp", "T").columns, Names{"b"});
  EXPECT_EQ(failureOf([&] { resolve("main", "TÄ"); }).detail,
            "Views, virtual tables and shadow tables are not row-compared.")
      << "only ASCII has case";
  EXPECT_EQ(failureOf([&] { resolve("main", "sqlite_schema"); }).code, SQLITE_ERROR);
  EXPECT_EQ(failureOf([&] { resolve("main", "sqlite_master"); }).code, SQLITE_ERROR);
}

TEST(RowIdentityResolver, ComparesOnlyOrdinaryTables) {
  DatabaseError const refusal("Views, virtual tables and shadow tables are not row-compared.", 1);
  EXPECT_EQ(refusalOf("CREATE TABLE other(a INTEGER PRIMARY KEY)"), refusal);
  EXPECT_EQ(refusalOf("CREATE VIEW t AS SELECT 1 AS id"), refusal);
  EXPECT_EQ(refusalOf("CREATE VIRTUAL TABLE t USING fts5(a)"), refusal);
  auto const connection = inMemory("CREATE VIRTUAL TABLE t USING fts5(a)");
  EXPECT_EQ(failureOf([&] { RowIdentityResolver::resolve(*connection, "main", "t_content", noTask); }), refusal);
}

TEST(RowIdentityResolver, DoesNotTrustARowid) {
  DatabaseError const refusal("No declared primary key. Rowid/fingerprint matching could misidentify changed rows.", 1);
  EXPECT_EQ(refusalOf("CREATE TABLE t(a, b)"), refusal);
  EXPECT_EQ(refusalOf("CREATE TABLE t(a NOT NULL UNIQUE)"), refusal);
}

TEST(RowIdentityResolver, RefusesAKeyThatLetsNullIn) {
  DatabaseError const refusal("The declared primary key permits NULL; reliable row matching is unavailable.", 1);
  struct NullCase {
    char const* sql;
    bool refused;
  };
  NullCase const cases[] = {
      {"CREATE TABLE t(a TEXT PRIMARY KEY)", true},
      {"CREATE TABLE t(a TEXT NOT NULL, b TEXT, PRIMARY KEY (a, b))", true},
      {"CREATE TABLE t(a TEXT NOT NULL, b TEXT NOT NULL, PRIMARY KEY (a, b))", false},
      {"CREATE TABLE t(a TEXT, b TEXT, PRIMARY KEY (a, b)) WITHOUT ROWID", false},
      {"CREATE TABLE t(a TEXT, b TEXT, PRIMARY KEY (a, b)) STRICT", false},
      {"CREATE TABLE t(a INTEGER PRIMARY KEY)", false},
      {"CREATE TABLE t(a INTEGER PRIMARY KEY DESC)", true},
      {"CREATE TABLE t(a INT PRIMARY KEY)", true},
      {"CREATE TABLE t(a INTEGER, b INTEGER, PRIMARY KEY (a, b))", true},
  };
  for (NullCase const& each : cases) {
    SCOPED_TRACE(each.sql);
    EXPECT_EQ(refusalOf(each.sql), each.refused ? refusal : DatabaseError("(nothing failed)", -1));
  }
}

TEST(RowIdentityResolver, RefusesACollationOfSomebodyElse) {
  auto const connection = inMemory("SELECT 1");
  auto const compare = [](void*, int, void const*, int, void const*) { return 0; };
  ASSERT_EQ(sqlite3_create_collation(connection->handle(), "reversed", SQLITE_UTF8, nullptr, compare), SQLITE_OK);
  connection->execute("CREATE TABLE t(a TEXT NOT NULL, b TEXT NOT NULL COLLATE reversed, PRIMARY KEY (a, b))");
  connection->execute("CREATE TABLE u(a TEXT NOT NULL PRIMARY KEY, b TEXT COLLATE reversed)");
  EXPECT_EQ(failureOf([&] { RowIdentityResolver::resolve(*connection, "main", "t", noTask); }),
            DatabaseError("The primary key requires an unsupported collation.", 1));
  EXPECT_EQ(RowIdentityResolver::resolve(*connection, "main", "u", noTask).collations, Names{"BINARY"});
}

/// Either collation alone would match rows otherwise than the key does.
TEST(RowIdentityResolver, RefusesAColumnThatStandsInTheKeyByTwoCollations) {
  DatabaseError const refusal("The primary key requires an unsupported collation.", 1);
  EXPECT_EQ(refusalOf("CREATE TABLE t(a TEXT NOT NULL, PRIMARY KEY (a, a COLLATE NOCASE))"), refusal);
  EXPECT_EQ(refusalOf("CREATE TABLE t(a TEXT NOT NULL, PRIMARY KEY (a COLLATE NOCASE, a)) WITHOUT ROWID"), refusal);
  EXPECT_EQ(identityOf("CREATE TABLE t(a TEXT NOT NULL COLLATE NOCASE, PRIMARY KEY (a, a))").collations,
            Names{"NOCASE"});
}

TEST(RowIdentityResolver, ComparesAtMost200Columns) {
  EXPECT_EQ(identityOf("CREATE TABLE t(" + numbered(200) + ", PRIMARY KEY (c1)) WITHOUT ROWID").allColumns.size(), 200);
  DatabaseError const refusal("Row comparison is limited to 200 columns per table.", 1);
  EXPECT_EQ(refusalOf("CREATE TABLE t(" + numbered(201) + ", PRIMARY KEY (c1)) WITHOUT ROWID"), refusal);
  EXPECT_EQ(refusalOf("CREATE TABLE t(" + numbered(200) + ", d AS (c1), PRIMARY KEY (c1)) WITHOUT ROWID"), refusal);
  EXPECT_EQ(refusalOf("CREATE TABLE t(" + numbered(201) + ")"), refusal) << "told before the lack of a key";
}

TEST(RowIdentityResolver, MatchesByAtMost16KeyColumns) {
  auto const table = [](int count) {
    return "CREATE TABLE t(" + numbered(count, " NOT NULL") + ", PRIMARY KEY (" + numbered(count) + "))";
  };
  EXPECT_EQ(identityOf(table(16)).columns.size(), 16);
  EXPECT_EQ(refusalOf(table(17)), DatabaseError("Comparison keys are limited to 16 columns.", 1));
}

TEST(RowIdentityResolver, RefusesANameTooLongToCarry) {
  auto const table = [](std::size_t length) {
    return "CREATE TABLE t(" + std::string(length, 'n') + " INTEGER PRIMARY KEY)";
  };
  EXPECT_EQ(identityOf(table(65'536)).columns, Names{std::string(65'536, 'n')});
  EXPECT_EQ(refusalOf(table(65'537)), DatabaseError("Unsupported column metadata.", 1));
}

TEST(RowIdentityResolver, ChecksTheTaskBetweenColumns) {
  auto const connection = inMemory("CREATE TABLE t(a INTEGER PRIMARY KEY)");
  std::stop_source task;
  task.request_stop();
  EXPECT_THROW(RowIdentityResolver::resolve(*connection, "main", "t", task.get_token()), TaskCancelled);
}

TEST(RowIdentityResolver, ChecksTheTaskAfterEachColumn) {
  auto const connection = inMemory("CREATE TABLE t(" + numbered(50) + ", PRIMARY KEY (c1)) WITHOUT ROWID");
  struct Reading {
    std::stop_source task;
    int columns = 0;
  } reading;
  auto const count = [](unsigned, void* context, void* statement, void*) {
    auto& at = *static_cast<Reading*>(context);
    bool const column = std::string_view(sqlite3_sql(static_cast<sqlite3_stmt*>(statement))).find("table_xinfo") <
                        std::string_view::npos;
    if (column && ++at.columns == 3) at.task.request_stop();
    return 0;
  };
  sqlite3_trace_v2(connection->handle(), SQLITE_TRACE_ROW, count, &reading);
  EXPECT_THROW(RowIdentityResolver::resolve(*connection, "main", "t", reading.task.get_token()), TaskCancelled);
  EXPECT_EQ(reading.columns, 3);
}

// Files that were made to keep it busy --------------------------------------------------------------

/// Each view names the one before it twice.
std::string doublingViews() {
  std::string sql = "CREATE VIEW v0 AS SELECT 1 AS a;";
  for (int view = 1; view < 40; ++view) {
    std::string const half = "SELECT * FROM v" + std::to_string(view - 1);
    sql += "CREATE VIEW v" + std::to_string(view) + " AS " + half + " UNION ALL " + half + ";";
  }
  return sql;
}

/// For each of many tables, which share one page here, a view that cannot be resolved is looked for and tried again.
char const manyTables[] =
    "CREATE VIEW v AS SELECT * FROM gone; PRAGMA writable_schema = ON;"
    "INSERT INTO sqlite_schema WITH RECURSIVE n(i) AS (SELECT 1 UNION ALL SELECT i + 1 FROM n WHERE i < 16000) "
    "SELECT 'table', 'x' || i, 'x' || i, 2, 'CREATE TABLE x' || i || '(a)' FROM n";

TEST(RowIdentityResolver, IsNotHeldUpByViews) {
  std::pair<char const*, std::string> const views[] = {
      {"views that double", doublingViews()},
      {"one view that doubles in itself", "CREATE VIEW v AS " + doublingQuery()},
      {"one view that is tried again and again", manyTables},
  };
  for (auto const& [says, sql] : views) {
    SCOPED_TRACE(says);
    TemporaryDatabase const database("CREATE TABLE t(a INTEGER PRIMARY KEY);" + sql);
    auto const connection = SQLiteConnection::open(database.path(), {});
    connection->prepare("SELECT * FROM t");  // the schema has been read by then
    auto const begun = processorTime();
    EXPECT_EQ(RowIdentityResolver::resolve(*connection, "main", "t", noTask).columns, Names{"a"});
    EXPECT_LE(processorTime() - begun, sanitized ? std::chrono::seconds(10) : std::chrono::milliseconds(500));
  }
}

TEST(RowIdentityResolver, DecidesTheSameBesideViewsThatCannotBeResolvedInTime) {
  std::string const collations =
      "CREATE TABLE t(a TEXT COLLATE nocase, b TEXT COLLATE RTRIM, PRIMARY KEY (a, b)) WITHOUT ROWID";
  struct Case {
    char const* sql;
    char const* table;
    char const* decision;
  };
  constexpr char none[] = "(nothing failed)";
  constexpr char notCompared[] = "Views, virtual tables and shadow tables are not row-compared.";
  constexpr char permitsNull[] = "The declared primary key permits NULL; reliable row matching is unavailable.";
  Case const cases[] = {
      {"CREATE TABLE t(a INTEGER PRIMARY KEY)", "T", none},
      {collations.c_str(), "t", none},
      {"CREATE TABLE t(a INT, b INT, PRIMARY KEY (a, b)) STRICT", "t", none},
      {"CREATE TABLE t(a INT, b INT, PRIMARY KEY (a, b))", "t", permitsNull},
      {"CREATE TABLE t(a INTEGER PRIMARY KEY) STRICT", "t", none},
      {"CREATE TABLE t_a(a INTEGER PRIMARY KEY)", "t_a", none},
      {"CREATE TABLE t(a INTEGER PRIMARY KEY)", "u", notCompared},
      {"CREATE VIEW t AS SELECT 1 AS a", "t", notCompared},
      {"CREATE VIRTUAL TABLE t USING fts5(a)", "t", notCompared},
      {"CREATE VIRTUAL TABLE t USING fts5(a)", "t_content", notCompared},
      {"CREATE VIRTUAL TABLE t USING fts5(a)", "T_Config", notCompared},
  };
  for (Case const& each : cases) {
    SCOPED_TRACE(std::string(each.sql) + " " + each.table);
    for (bool const hostile : {false, true}) {
      auto const connection = inMemory(each.sql);
      if (hostile) connection->execute("CREATE VIEW v AS " + doublingQuery());
      EXPECT_EQ(failureOf([&] { RowIdentityResolver::resolve(*connection, "main", each.table, noTask); }).detail,
                each.decision);
    }
  }
}

}  // namespace
}  // namespace tolva
