// SPDX-License-Identifier: Apache-2.0
#include "preview/CellHead.hpp"

#include <gtest/gtest.h>
#include <sqlite3.h>

#include <chrono>
#include <thread>

#include "support/Failure.hpp"
#include "support/HostileDatabases.hpp"
#include "support/NoTask.hpp"
#include "support/ProcessorTime.hpp"
#include "support/SQLitePeer.hpp"
#include "support/Sanitizer.hpp"
#include "support/TableRows.hpp"
#include "support/TemporaryDatabase.hpp"

namespace tolva {
namespace {

namespace fs = std::filesystem;

using namespace std::chrono_literals;

using Identity = std::vector<SQLiteValue>;

/// A table whose rows are named by `identity`, whether they are or not.
TableSchema tableNamedBy(std::vector<std::string> identity, std::string name = "t") {
  return {
      .object = {.name = std::move(name), .kind = "table", .sql = ""}, .columns = {}, .identity = std::move(identity)};
}

CellHead headOf(fs::path const& database, TableSchema const& schema, Identity const& identity,
                std::string const& column) {
  return readCellHead(database, schema, identity, column, {}, noTask);
}

/// The head as "TYPE TOTAL: BYTES".
std::string text(CellHead const& head) {
  return head.type + " " + std::to_string(head.totalBytes) + ": " + std::string(head.bytes.begin(), head.bytes.end());
}

// Values -------------------------------------------------------------------------------------------

struct ValueCase {
  char const* sql;
  std::string head;
};

ValueCase const values[] = {
    {"NULL", "null 0: "},
    {"42", "integer 2: 42"},
    {"-9223372036854775808", "integer 20: -9223372036854775808"},
    {"0.1 + 0.2", "real 3: 0.3"},
    {"1e300", "real 8: 1.0e+300"},
    {"''", "text 0: "},
    {"'aé'", "text 3: aé"},
    {"x''", "blob 0: "},
    {"x'00ff41'", std::string("blob 3: \0\xff\x41", 11)},
};

TEST(CellHead, HoldsEachKindOfValueAsSQLiteWritesIt) {
  for (ValueCase const& value : values) {
    SCOPED_TRACE(value.sql);
    TemporaryDatabase const database("CREATE TABLE t(a); INSERT INTO t VALUES (" + std::string(value.sql) + ")");
    EXPECT_EQ(text(headOf(database.path(), tableNamedBy({"rowid"}), {1}, "a")), value.head);
  }
}

struct LengthCase {
  char const* says;
  std::int64_t bytes;
  std::size_t held;
};

LengthCase const lengths[] = {
    {"a value of 1 MiB is held whole", 1'048'576, 1'048'576},
    {"of one byte more its head", 1'048'577, 1'048'576},
    {"of one of 8 MiB as well", 8'388'608, 1'048'576},
};

TEST(CellHead, HoldsAtMostOneMiB) {
  for (LengthCase const& length : lengths) {
    SCOPED_TRACE(length.says);
    std::string const size = std::to_string(length.bytes);
    TemporaryDatabase const database(
        "CREATE TABLE t(id INTEGER PRIMARY KEY, blob, text);"
        "INSERT INTO t VALUES (1, zeroblob(" +
        size +
        "), NULL),"
        "(2, NULL, printf('%.*c', " +
        size + ", 'x'))");
    CellHead const blob = headOf(database.path(), tableNamedBy({"id"}), {1}, "blob");
    EXPECT_EQ(blob.totalBytes, length.bytes);
    EXPECT_EQ(blob.bytes, Bytes(length.held, 0));
    CellHead const text = headOf(database.path(), tableNamedBy({"id"}), {2}, "text");
    EXPECT_EQ(text.totalBytes, length.bytes);
    EXPECT_EQ(text.bytes, Bytes(length.held, 'x'));
  }
}

TEST(CellHead, RefusesAValueAboveEightMiB) {
  DatabaseError const refusal("This value exceeds the safe cell-preview limit. Use table export for its full contents.",
                              1);
  TemporaryDatabase const database(
      "CREATE TABLE t(id INTEGER PRIMARY KEY, blob, text, small);"
      "INSERT INTO t VALUES (1, zeroblob(8388609), NULL, 's'),"
      "(2, NULL, printf('%.*c', 8388609, 'x'), 's'), (3, zeroblob(200000000), NULL, 's')");
  auto const read = [&](std::int64_t id, char const* column) {
    return headOf(database.path(), tableNamedBy({"id"}), {id}, column);
  };
  EXPECT_EQ(failureOf([&] { read(1, "blob"); }), refusal);
  EXPECT_EQ(failureOf([&] { read(2, "text"); }), refusal);
  EXPECT_EQ(failureOf([&] { read(3, "blob"); }), refusal);
  EXPECT_EQ(text(read(2, "blob")), "null 0: ") << "a cell beside it";
  for (std::int64_t id : {1, 2, 3}) EXPECT_EQ(text(read(id, "small")), "text 1: s") << "a cell behind it";
}

TEST(CellHead, RefusesAnIdentityAboveEightMiB) {
  TemporaryDatabase const database("CREATE TABLE t(k TEXT PRIMARY KEY, a); INSERT INTO t VALUES ('k', 1)");
  EXPECT_EQ(
      failureOf([&] { headOf(database.path(), tableNamedBy({"k"}), {std::string(8'388'609, 'x')}, "a"); }),
      DatabaseError("This value exceeds the safe cell-preview limit. Use table export for its full contents.", 1));
}

/// The bytes are those of the file: nothing is converted.
TEST(CellHead, HoldsTheBytesOfAnotherEncoding) {
  TemporaryDatabase const database(
      "PRAGMA encoding = 'UTF-16le'; CREATE TABLE t(a, b);"
      "INSERT INTO t VALUES ('a\u00e9', 12)");
  EXPECT_EQ(text(headOf(database.path(), tableNamedBy({"rowid"}), {1}, "a")), std::string("text 4: a\0\xe9\0", 12));
  EXPECT_EQ(text(headOf(database.path(), tableNamedBy({"rowid"}), {1}, "b")), std::string("integer 4: 1\0"
                                                                                          "2\0",
                                                                                          15));
}

// Rows ---------------------------------------------------------------------------------------------

struct RowCase {
  char const* says;
  char const* table;
  std::vector<std::string> names;
  Identity identity;
  char const* head;
};

RowCase const rows[] = {
    {"by rowid", "CREATE TABLE t(a); INSERT INTO t VALUES ('x'), ('y')", {"rowid"}, {2}, "text 1: y"},
    {"by a text, byte for byte",
     "CREATE TABLE t(k TEXT PRIMARY KEY, a); INSERT INTO t VALUES ('q', 1), ('Q', 2)",
     {"k"},
     {"Q"},
     "integer 1: 2"},
    {"by two columns",
     "CREATE TABLE t(k, l, a, PRIMARY KEY (k, l)) WITHOUT ROWID;"
     "INSERT INTO t VALUES (1, 'x', 'one'), (1, x'00', 'two'), (2, 'x', 'three')",
     {"k", "l"},
     {1, Bytes{0}},
     "text 3: two"},
    {"by NULL",
     "CREATE TABLE t(k TEXT PRIMARY KEY, a); INSERT INTO t VALUES ('k', 1), (NULL, 2)",
     {"k"},
     {Null()},
     "integer 1: 2"},
    {"with quotes in the names",
     "CREATE TABLE t(\"k\"\"]\" PRIMARY KEY, a); INSERT INTO t VALUES (5, 6)",
     {"k\"]"},
     {5},
     "integer 1: 6"},
};

TEST(CellHead, IsOfTheRowThatTheIdentityNames) {
  for (RowCase const& row : rows) {
    SCOPED_TRACE(row.says);
    TemporaryDatabase const database(row.table);
    EXPECT_EQ(text(headOf(database.path(), tableNamedBy(row.names), row.identity, "a")), row.head);
  }
}

TEST(CellHead, QuotesTheColumnAndTheTable) {
  TemporaryDatabase const database("CREATE TABLE \"a \"\"b\"(\"c\"\"d\"); INSERT INTO \"a \"\"b\" VALUES (7)");
  EXPECT_EQ(text(headOf(database.path(), tableNamedBy({"rowid"}, "a \"b"), {1}, "c\"d")), "integer 1: 7");
}

TEST(CellHead, FailsWhenTheRowIsGone) {
  TemporaryDatabase const database("CREATE TABLE t(a); INSERT INTO t VALUES (1)");
  EXPECT_EQ(failureOf([&] { headOf(database.path(), tableNamedBy({"rowid"}), {2}, "a"); }),
            DatabaseError("This row no longer exists. Refresh the table.", 1));
}

TEST(CellHead, FailsWhenTheIdentityNamesTwoRows) {
  TemporaryDatabase const database("CREATE TABLE t(k TEXT PRIMARY KEY, a); INSERT INTO t VALUES (NULL, 1), (NULL, 2)");
  EXPECT_EQ(failureOf([&] { headOf(database.path(), tableNamedBy({"k"}), {Null()}, "a"); }),
            DatabaseError("This identity matches multiple rows. Preview cannot select one safely.", 1));
}

/// SQLite takes a quoted name that means nothing for a text.
TEST(CellHead, FailsWhenTheColumnIsGone) {
  TemporaryDatabase const database("CREATE TABLE t(a, b AS (\"a\" || \"x\")); INSERT INTO t VALUES (1)");
  EXPECT_EQ(failureOf([&] { headOf(database.path(), tableNamedBy({"rowid"}), {1}, "gone"); }),
            DatabaseError("no such column: gone", 1));
}

TEST(CellHead, OfAGeneratedColumnIsWhatItsExpressionGives) {
  TemporaryDatabase const database("CREATE TABLE t(a, b AS (a || \"x\")); INSERT INTO t VALUES (1)");
  EXPECT_EQ(text(headOf(database.path(), tableNamedBy({"rowid"}), {1}, "b")), "text 2: 1x");
}

// Files --------------------------------------------------------------------------------------------

TEST(CellHead, SeesWhatAnotherConnectionCommitted) {
  TemporaryDatabase const database("PRAGMA journal_mode = WAL; CREATE TABLE t(a); INSERT INTO t VALUES ('old')");
  SQLitePeer peer(database.path());
  ASSERT_EQ(peer.exec("UPDATE t SET a = 'new'"), "ok");
  EXPECT_EQ(text(headOf(database.path(), tableNamedBy({"rowid"}), {1}, "a")), "text 3: new");
  ASSERT_EQ(peer.exec("BEGIN"), "ok");
  ASSERT_EQ(peer.exec("UPDATE t SET a = 'open'"), "ok");
  EXPECT_EQ(text(headOf(database.path(), tableNamedBy({"rowid"}), {1}, "a")), "text 3: new");
}

TEST(CellHead, ReportsAFileThatIsGone) {
  TemporaryFolder const folder;
  EXPECT_EQ(failureOf([&] { headOf(folder / "none.db", tableNamedBy({"rowid"}), {1}, "a"); }),
            DatabaseError("unable to open database file", SQLITE_CANTOPEN));
}

TEST(CellHead, ReportsALock) {
  TemporaryDatabase const database("CREATE TABLE t(a); INSERT INTO t VALUES (1)");
  SQLitePeer peer(database.path());
  ASSERT_EQ(peer.exec("BEGIN EXCLUSIVE"), "ok");
  EXPECT_EQ(failureOf([&] { headOf(database.path(), tableNamedBy({"rowid"}), {1}, "a"); }).code, SQLITE_BUSY);
}

// Budgets ------------------------------------------------------------------------------------------

/// Looking for a row of it never ends.
TemporaryDatabase const& endless() {
  static TemporaryDatabase const database(
      "CREATE VIEW v AS WITH RECURSIVE n(i) AS (SELECT 1 UNION ALL SELECT i + 1 FROM n) SELECT i AS id, i AS a FROM n");
  return database;
}

DatabaseError failureInEndless(std::shared_ptr<CancellationHandle> const& cancellation, std::stop_token const& task) {
  return failureOf([&] { readCellHead(endless().path(), tableNamedBy({"id"}, "v"), {-1}, "a", cancellation, task); });
}

TEST(CellHead, IsGivenUpAfterThreeSeconds) {
  auto const began = std::chrono::steady_clock::now();
  auto const computed = processorTime();
  DatabaseError const failure = failureInEndless({}, noTask);
  EXPECT_LT(processorTime() - computed, 4s);
  EXPECT_GE(std::chrono::steady_clock::now() - began, 3s);
  EXPECT_TRUE(failure.isCancellation()) << failure.detail;
  EXPECT_EQ(failure.errorDescription(), "Cancelled");
}

TEST(CellHead, IsGivenUpByACancel) {
  auto const cancellation = std::make_shared<CancellationHandle>();
  std::jthread const canceller([&](std::stop_token const& ended) {
    for (; !ended.stop_requested(); std::this_thread::sleep_for(10ms)) cancellation->cancel();
  });
  auto const began = processorTime();
  EXPECT_EQ(failureInEndless(cancellation, noTask).errorDescription(), "Cancelled");
  EXPECT_LT(processorTime() - began, 2500ms) << "it was not the clock";
}

TEST(CellHead, IsGivenUpWhenTheTaskIs) {
  std::stop_source task;
  std::jthread const canceller([&] {
    std::this_thread::sleep_for(50ms);
    task.request_stop();
  });
  auto const began = processorTime();
  EXPECT_EQ(failureInEndless({}, task.get_token()).errorDescription(), "Cancelled");
  EXPECT_LT(processorTime() - began, 2500ms) << "it was not the clock";
}

struct HostileCase {
  char const* says;
  void (*write)(fs::path const& path);
  std::int32_t code;
  char const* told;
};

constexpr char tooLarge[] = "This value exceeds the safe cell-preview limit. Use table export for its full contents.";
constexpr char tooLong[] = "Cancelled";

HostileCase const hostileFiles[] = {
    {"a view of 40 MB", writeLongList, 1, tooLarge},
    {"one word of 150 MB", writeLongToken, 1, tooLarge},
    {"an endless schema", writeEndlessSchema, SQLITE_INTERRUPT, tooLong},
    {"entries that share 100 MB", writeSharedSQL, 1, tooLarge},
    {"entries that share as much as may be read", [](fs::path const& path) { writeSharedSQL(path, 8'000'000, 20); },
     SQLITE_INTERRUPT, tooLong},
};

/// Nothing but a failure can come of these, but it comes: the clock is asked every thousand operations of SQLite's
/// machine, and no operation reads more than 8 MiB.
TEST(CellHead, IsGivenUpWhateverTheSchemaHolds) {
  TemporaryFolder const folder;
  for (HostileCase const& hostile : hostileFiles) {
    SCOPED_TRACE(hostile.says);
    hostile.write(folder / "a.db");
    auto const began = processorTime();
    DatabaseError const failure = failureOf([&] { headOf(folder / "a.db", tableNamedBy({"rowid"}), {1}, "a"); });
    EXPECT_EQ(failure.code, hostile.code);
    EXPECT_EQ(failure.errorDescription(), hostile.told);
    if (!sanitized) {
      EXPECT_LT(processorTime() - began, 10s);
    }
  }
}

/// An expression of sixty texts of 8 MB, which are all there at once.
TEST(CellHead, TakesABoundedAmountOfMemory) {
  std::string texts = "hex(zeroblob(4000000))";
  for (int text = 1; text < 60; ++text) texts += ", hex(zeroblob(4000000))";
  TemporaryDatabase const database("CREATE TABLE t(b, a AS (max(" + texts + "))); INSERT INTO t DEFAULT VALUES");
  EXPECT_EQ(failureOf([&] { headOf(database.path(), tableNamedBy({"rowid"}), {1}, "a"); }),
            DatabaseError("out of memory", SQLITE_NOMEM));
}

}  // namespace
}  // namespace tolva
