// SPDX-License-Identifier: Apache-2.0
#include <gtest/gtest.h>
#include <sqlite3.h>

#include <fstream>
#include <functional>
#include <thread>

#include "core/DatabaseReader.hpp"
#include "core/DatabaseWriter.hpp"
#include "platform/TaskCancellation.hpp"
#include "support/Browsed.hpp"
#include "support/Corpora.hpp"
#include "support/Failure.hpp"
#include "support/NoTask.hpp"
#include "support/SQLitePeer.hpp"
#include "support/TemporaryDatabase.hpp"
#include "support/ValueText.hpp"

namespace tolva {
namespace {

using namespace std::chrono_literals;

using Values = std::vector<SQLiteValue>;

SQLiteValue x(std::size_t bytes, char byte = 'x') { return std::string(bytes, byte); }

constexpr char const* endlessView =
    "CREATE VIEW v AS WITH RECURSIVE c(x) AS (SELECT 1 UNION ALL SELECT x + 1 FROM c) SELECT x FROM c WHERE x < 0";

// A new row every few milliseconds, without end.
constexpr char const* slowView =
    "CREATE VIEW v AS WITH RECURSIVE c(x) AS (SELECT 1 UNION ALL SELECT x + 1 FROM c) SELECT x FROM c WHERE x % 20000 "
    "= 0";

// Pages --------------------------------------------------------------------------------------------

TEST(DatabaseReader, PagesByKeyUntilAPageIsEmpty) {
  Browsed table("CREATE TABLE t(id INTEGER PRIMARY KEY, a)" + inserting("t", "i * 2, i", 1'203));
  RowPage const first = table.page();
  ASSERT_EQ(first.rows.size(), 500);
  EXPECT_EQ(first.rows[0], (DatabaseRow{.values = {2, 1}, .identity = {2}}));
  EXPECT_EQ(first.next, (PageToken{.identity = {1'000}, .offset = 500}));
  RowPage const third = table.page({}, table.page({}, first.next).next);
  EXPECT_EQ(third.rows.size(), 203);
  EXPECT_EQ(third.next, (PageToken{.identity = {2'406}, .offset = 1'203}));
  EXPECT_EQ(table.page({}, third.next), RowPage());
}

TEST(DatabaseReader, KnowsTheEndOnlyFromAnEmptyPage) {
  using Sizes = std::vector<std::size_t>;
  EXPECT_EQ(Browsed("CREATE TABLE t(a)").pageSizes(), Sizes{0});
  EXPECT_EQ(Browsed("CREATE TABLE t(a)" + inserting("t", "i", 1)).pageSizes(), (Sizes{1, 0}));
  EXPECT_EQ(Browsed("CREATE TABLE t(a)" + inserting("t", "i", 499)).pageSizes(), (Sizes{499, 0}));
  EXPECT_EQ(Browsed("CREATE TABLE t(a)" + inserting("t", "i", 500)).pageSizes(), (Sizes{500, 0}));
  EXPECT_EQ(Browsed("CREATE TABLE t(a)" + inserting("t", "i", 501)).pageSizes(), (Sizes{500, 1, 0}));
  EXPECT_EQ(Browsed("CREATE TABLE t(a)" + inserting("t", "i", 1'000)).pageSizes(), (Sizes{500, 500, 0}));
}

TEST(DatabaseReader, PagesObjectsOfEveryKind) {
  std::string const rows = "CREATE TABLE base(a, b)" + inserting("base", "i, i % 7", 600);
  struct KindCase {
    char const* says;
    std::string sql;
    BrowseRequest request;
  };
  KindCase const kinds[] = {
      {"a view", rows + "; CREATE VIEW t AS SELECT a, b FROM base", {}},
      {"a sorted view", rows + "; CREATE VIEW t AS SELECT a, b FROM base", sortedBy("b")},
      {"all names of the rowid taken", "CREATE TABLE t(rowid, _rowid_, oid)" + inserting("t", "i, i, i", 600), {}},
      {"a full-text table", "CREATE VIRTUAL TABLE t USING fts5(title)" + inserting("t", "'row ' || i", 600), {}},
      {"generated columns", "CREATE TABLE t(a, b AS (a * 2), c AS (a * 3) STORED)" + inserting("t", "i", 600), {}},
      {"odd names",
       "CREATE TABLE t(\"x\"\"y\" TEXT PRIMARY KEY, \"select\") WITHOUT ROWID" +
           inserting("t", "printf('%05d', i), i", 600),
       {}},
      {"UTF-16",
       "PRAGMA encoding = 'UTF-16le'; CREATE TABLE t(a TEXT PRIMARY KEY) WITHOUT ROWID" +
           inserting("t", "char(0x400 + i)", 600),
       {}},
  };
  for (KindCase const& each : kinds) {
    SCOPED_TRACE(each.says);
    Browsed table(each.sql);
    EXPECT_EQ(table.pageSizes(each.request), (std::vector<std::size_t>{500, 100, 0}));
    EXPECT_EQ(table.reader.count(table.schema, each.request), 600);
    std::vector<DatabaseRow> const all = table.selected({{0, 600}}, each.request);
    EXPECT_EQ(table.selected({{3, 4}, {598, 600}}, each.request),
              (std::vector<DatabaseRow>{all[3], all[598], all[599]}));
  }
}

TEST(DatabaseReader, KeepsARowsValuesToTheSchemasColumns) {
  Browsed table("CREATE TABLE t(b, a, PRIMARY KEY (a, b)) WITHOUT ROWID; INSERT INTO t VALUES (1, 'x')");
  EXPECT_EQ(table.page().rows, (std::vector<DatabaseRow>{{.values = {1, "x"}, .identity = {"x", 1}}}));
}

TEST(DatabaseReader, ReadsLargeValuesAsMarkers) {
  Browsed table(
      "CREATE TABLE t(a); INSERT INTO t VALUES (printf('%.65536c', 'x')), (printf('%.65537c', 'x')), (x''), "
      "(zeroblob(9)),"
      "(NULL), (2.5)");
  Values read;
  for (DatabaseRow const& row : table.page().rows) read.push_back(row.values.at(0));
  EXPECT_EQ(read, (Values{x(65'536), SQLiteValue::largeText(65'537), SQLiteValue::largeBlob(0),
                          SQLiteValue::largeBlob(9), Null{}, 2.5}));
}

TEST(DatabaseReader, EndsAPageWithTheRowThatReaches4MiB) {
  // 64 rows of 65,536 bytes each: 32 for the key, again 32 for the identity, 32 for the text and its 65,440 bytes.
  std::string const rows =
      "CREATE TABLE t(id INTEGER PRIMARY KEY, a TEXT)" + inserting("t", "i, printf('%.65440c', 'x')", 200);
  EXPECT_EQ(Browsed(rows).pageSizes(), (std::vector<std::size_t>{64, 64, 64, 8, 0}));
  Browsed shorter(rows + "; UPDATE t SET a = substr(a, 2) WHERE id = 64");
  EXPECT_EQ(shorter.pageSizes(), (std::vector<std::size_t>{65, 64, 64, 7, 0}));
  EXPECT_EQ(shorter.page().next, (PageToken{.identity = {65}, .offset = 65}));
}

TEST(DatabaseReader, HoldsAnIdentityBlobOfUpTo65536BytesWhole) {
  for (int const bytes : {0, 1, 65'536, 65'537, 70'000}) {
    SCOPED_TRACE(bytes);
    Browsed table("CREATE TABLE t(k BLOB PRIMARY KEY) WITHOUT ROWID; INSERT INTO t VALUES (zeroblob(" +
                  std::to_string(bytes) + ")), (x'ff')");
    RowPage const page = table.page();
    ASSERT_EQ(page.rows.size(), 2);
    auto const size = static_cast<std::size_t>(bytes);
    SQLiteValue const expected = bytes <= 65'536 ? SQLiteValue(Bytes(size)) : SQLiteValue::largeBlob(bytes);
    EXPECT_EQ(page.rows[0].identity, Values{expected});
    EXPECT_EQ(page.rows[0].values, Values{SQLiteValue::largeBlob(bytes)});
    EXPECT_EQ(page.rows[0].memorySize(), bytes <= 65'536 ? 64 + bytes : 64);
  }
}

TEST(DatabaseReader, GoesOnByOffsetBehindALongIdentity) {
  struct LongCase {
    char const* says;
    std::string key;
  };
  for (LongCase const& each :
       {LongCase{"a blob", "CAST(printf('%070000d', i) AS BLOB)"}, LongCase{"a text", "printf('%070000d', i)"}}) {
    SCOPED_TRACE(each.says);
    Browsed table("CREATE TABLE t(k PRIMARY KEY, i) WITHOUT ROWID" + inserting("t", each.key + ", i", 501));
    RowPage const first = table.page();
    ASSERT_EQ(first.rows.size(), 500);
    ASSERT_TRUE(first.rows.back().identity.at(0).isDeferred());
    RowPage const second = table.page({}, first.next);
    ASSERT_EQ(second.rows.size(), 1);
    EXPECT_EQ(second.rows[0].values[1], SQLiteValue(501));
    EXPECT_EQ(table.page({}, second.next), RowPage());
    EXPECT_EQ(failureOf([&] { table.reader.row(table.schema, first.rows[0].identity); }),
              DatabaseError("Open the full value before editing it."));
  }
}

/// A repaired text stands elsewhere in the order: going on behind it would show its row again, for ever.
TEST(DatabaseReader, ShowsKeysOfInvalidTextOnce) {
  Browsed table("CREATE TABLE t(k TEXT PRIMARY KEY, i) WITHOUT ROWID" +
                inserting("t", "CAST(x'ff' || CAST(printf('%05d', i) AS BLOB) AS TEXT), i", 1'100));
  RowPage const first = table.page();
  ASSERT_EQ(first.rows.at(0).identity, Values{LargeText{8}}) << "repaired, it could be another row's";
  EXPECT_EQ(first.next, (PageToken{.identity = {LargeText{8}}, .offset = 500}));
  EXPECT_EQ(table.pageSizes(), (std::vector<std::size_t>{500, 500, 100, 0}));
  Browsed valid("CREATE TABLE t(k TEXT PRIMARY KEY) WITHOUT ROWID; INSERT INTO t VALUES (char(0xFFFD))");
  EXPECT_EQ(valid.page().next, (PageToken{.identity = {"\uFFFD"}, .offset = 1}));
}

/// Repaired, the first row's key is that of the second.
TEST(DatabaseReader, GivesNoIdentityOfAnotherRow) {
  TemporaryDatabase const database(
      "CREATE TABLE t(k TEXT PRIMARY KEY, v) WITHOUT ROWID;"
      "INSERT INTO t VALUES (CAST(x'61ff' AS TEXT), 'same'), ('a' || char(0xFFFD), 'same')");
  DatabaseReader reader;
  TableSchema const schema = reader.schema(reader.open(database.path(), noTask).at(0));
  std::vector<DatabaseRow> const rows = reader.page(schema, {}, {}, noTask).rows;
  ASSERT_EQ(rows.at(0).identity, Values{"a\uFFFD"});
  ASSERT_EQ(rows.at(1).identity, Values{LargeText{4}});
  TableSchema stale = schema;  // as of a table with a rowid that another process has replaced by this one
  stale.withoutRowID = false;
  ASSERT_EQ(reader.page(stale, {}, {}, noTask).rows, rows);
  DatabaseWriter writer;
  writer.open(database.path());
  EXPECT_EQ(failureOf([&] { writer.apply(schema, {{.row = rows[1], .column = "v", .value = "new"}}, noTask); }),
            DatabaseError("This row has no usable stable identity."));
  EXPECT_EQ(failureOf([&] { writer.deleteRows(schema, {rows[1]}, noTask); }),
            DatabaseError("This row has no usable identity."));
  EXPECT_EQ(database.rows("SELECT hex(k), v FROM t"), "61EFBFBD|same\n61FF|same");
}

TEST(DatabaseReader, FiltersSearchesAndSorts) {
  Browsed table(
      "CREATE TABLE t(id INTEGER PRIMARY KEY, n INTEGER, s TEXT, u);"
      "INSERT INTO t VALUES (1, 5, 'Alder', NULL), (2, NULL, 'BASALT', 'cedar'), (3, 7, 'É', 5), (4, 5, NULL, x'41')");
  struct RequestCase {
    char const* says;
    BrowseRequest request;
    std::vector<std::int64_t> ids;
  };
  RequestCase const requests[] = {
      {"everything", {}, {1, 2, 3, 4}},
      {"equal to a number", filtered("n", FilterOperator::equals, 5), {1, 4}},
      {"equal to NULL is nothing", filtered("n", FilterOperator::equals), {}},
      {"between without an upper bound is nothing", filtered("n", FilterOperator::between, 1), {}},
      {"between", filtered("n", FilterOperator::between, 6, 7), {3}},
      {"text operators tell letters apart", filtered("s", FilterOperator::contains, "a"), {}},
      {"and read numbers as text", filtered("n", FilterOperator::starts, 7), {3}},
      {"ends", filtered("s", FilterOperator::ends, "LT"), {2}},
      {"longer than the text", filtered("s", FilterOperator::ends, "xxÉ"), {}},
      {"NULL", filtered("n", FilterOperator::isNull), {2}},
      {"a search ignores ASCII case", {.search = "aL"}, {1, 2}},
      {"and no other", {.search = "é"}, {}},
      {"and is not trimmed", {.search = " Alder"}, {}},
      {"and looks in columns without a type", {.search = "CEDAR"}, {2}},
      {"and not in numbers", {.search = "7"}, {}},
      {"sorted, ties by identity", sortedBy("n"), {2, 1, 4, 3}},
  };
  for (RequestCase const& each : requests) {
    SCOPED_TRACE(each.says);
    std::vector<std::int64_t> ids;
    for (DatabaseRow const& row : table.page(each.request).rows) ids.push_back(*row.identity.at(0).asInteger());
    EXPECT_EQ(ids, each.ids);
    EXPECT_EQ(table.reader.count(table.schema, each.request), static_cast<std::int64_t>(each.ids.size()));
  }
}

TEST(DatabaseReader, FindsNothingInATableOfNumbers) {
  Browsed table("CREATE TABLE t(a INTEGER, b REAL, c BLOB); INSERT INTO t VALUES (1, 1, '1')");
  EXPECT_EQ(table.page({.search = "1"}), RowPage());
  EXPECT_EQ(table.reader.count(table.schema, {.search = "1"}), 0);
}

TEST(DatabaseReader, PagesASortedTableWithoutGaps) {
  Browsed table("CREATE TABLE t(id INTEGER PRIMARY KEY, a)" + inserting("t", "i, i % 3", 1'100));
  std::vector<DatabaseRow> const all = table.selected({{0, 1'100}}, sortedBy("a"));
  std::vector<DatabaseRow> paged;
  for (RowPage page = table.page(sortedBy("a")); page.next; page = table.page(sortedBy("a"), page.next)) {
    paged.insert(paged.end(), page.rows.begin(), page.rows.end());
  }
  EXPECT_EQ(paged, all);
  EXPECT_EQ(paged.at(365).values, (Values{1'098, 0}));
  EXPECT_EQ(paged.at(366).values, (Values{1, 1}));
}

TEST(DatabaseReader, FailsOnAColumnThatIsGoneBeforeAnySQLRuns) {
  DatabaseReader closed;
  TableSchema const schema{.object = {.name = "t", .kind = "table", .sql = ""}, .columns = {{.name = "a", .type = ""}}};
  BrowseRequest const filter = filtered("gone", FilterOperator::isNull);
  DatabaseError const filterGone("The filtered column no longer exists.");
  DatabaseError const sortGone("The sorted column no longer exists.");
  EXPECT_EQ(failureOf([&] { closed.page(schema, filter, {}, noTask); }), filterGone);
  EXPECT_EQ(failureOf([&] { closed.count(schema, filter); }), filterGone);
  EXPECT_EQ(failureOf([&] { closed.page(schema, sortedBy("gone"), {}, noTask); }), sortGone);
  EXPECT_EQ(failureOf([&] { closed.count(schema, sortedBy("gone")); }), sortGone);
  Browsed table("CREATE TABLE t(a); INSERT INTO t VALUES (1), (2), (3)");
  for (RowSelection const& indices : {RowSelection{{0, 1}}, RowSelection{{0, 1}, {2, 3}}}) {
    EXPECT_EQ(failureOf([&] { table.selected(indices, filter); }), filterGone);
    EXPECT_EQ(failureOf([&] { table.selected(indices, sortedBy("gone")); }), sortGone);
  }
}

TEST(DatabaseReader, NeedsAnOpenDatabaseForRows) {
  DatabaseReader closed;
  TableSchema const schema{.object = {.name = "t", .kind = "table", .sql = ""},
                           .columns = {{.name = "a", .type = ""}},
                           .identity = {"rowid"}};
  DatabaseError const error("No database is open.");
  EXPECT_EQ(failureOf([&] { closed.page(schema, {}, {}, noTask); }), error);
  EXPECT_EQ(failureOf([&] { closed.count(schema, {}); }), error);
  EXPECT_EQ(failureOf([&] { closed.row(schema, {1}); }), error);
  EXPECT_EQ(failureOf([&] { closed.selectedRows(schema, {}, {{0, 1}}, noTask); }), error);
}

TEST(DatabaseReader, TakesNoDeferredValueInAFilter) {
  Browsed table("CREATE TABLE t(a); INSERT INTO t VALUES (1), (2), (3)");
  BrowseRequest const request = filtered("a", FilterOperator::equals, SQLiteValue::largeText(70'000));
  DatabaseError const error("Open the full value before editing it.");
  EXPECT_EQ(failureOf([&] { table.page(request); }), error);
  EXPECT_EQ(failureOf([&] { table.reader.count(table.schema, request); }), error);
  EXPECT_EQ(failureOf([&] { table.selected({{0, 1}, {2, 3}}, request); }), error);
  EXPECT_EQ(table.page(filtered("a", FilterOperator::contains, SQLiteValue::largeText(70'000))), RowPage());
  EXPECT_EQ(failureOf([&] { table.page(filtered("a", FilterOperator::between, 1, SQLiteValue::largeText(70'000))); }),
            error);
}

TEST(DatabaseReader, PassesSQLitesFailuresOn) {
  Browsed table("CREATE TABLE t(a); INSERT INTO t VALUES (1)");
  table.database.run("DROP TABLE t");
  EXPECT_EQ(failureOf([&] { table.page(); }), DatabaseError("no such table: t"));
  Browsed view("CREATE VIEW t AS SELECT abs(-9223372036854775807 - 1) AS a UNION ALL SELECT 1");
  EXPECT_EQ(failureOf([&] { view.page(); }), DatabaseError("integer overflow"));
}

/// A statement names each column, and a condition may be nested only so deep.
TEST(DatabaseReader, PassesTheLimitsOfAStatementOn) {
  auto const wide = [](int columns) {
    std::string sql = "CREATE TABLE t(c1";
    for (int column = 2; column <= columns; ++column) sql += ",c" + std::to_string(column);
    return sql + "); INSERT INTO t(c1) VALUES ('x')";
  };
  Browsed table(wide(1'100));
  EXPECT_EQ(table.page().rows.size(), 1);
  EXPECT_EQ(failureOf([&] { table.page({.search = "x"}); }),
            DatabaseError("Expression tree is too large (maximum depth 1000)"));
  Browsed widest(wide(2'000));
  EXPECT_EQ(failureOf([&] { widest.page(); }), DatabaseError("too many columns in result set"));
  EXPECT_EQ(Browsed(wide(1'999)).page().rows.size(), 1);
}

/// SQLite measures a text up to its first NUL.
TEST(DatabaseReader, FindsATextWithANulOnlyWithin) {
  Browsed table("CREATE TABLE t(a TEXT); INSERT INTO t VALUES (CAST(x'6100620063' AS TEXT))");
  auto const found = [&](FilterOperator operation, std::string const& text) {
    return table.reader.count(table.schema, filtered("a", operation, text));
  };
  EXPECT_EQ(found(FilterOperator::contains, {"a\0b", 3}), 1);
  EXPECT_EQ(found(FilterOperator::starts, {"a\0b", 3}), 0);
  EXPECT_EQ(found(FilterOperator::ends, {"b\0c", 3}), 0);
  EXPECT_EQ(found(FilterOperator::starts, "a"), 1);
}

/// Views that double their statement each, until preparing it takes more memory than a machine has.
TEST(DatabaseReader, PreparesAHostileViewWithinItsBudget) {
  std::string sum = "1";
  for (int term = 0; term < 900; ++term) sum += "+1";
  std::string sql = "CREATE VIEW v0 AS SELECT 1 AS x WHERE " + sum;
  for (int n = 1; n <= 15; ++n) {
    std::string const below = "v" + std::to_string(n - 1);
    sql += "; CREATE VIEW v" + std::to_string(n) + " AS SELECT x FROM " + below + " UNION ALL SELECT x FROM " + below;
  }
  TemporaryDatabase const database(sql);
  DatabaseReader reader;
  reader.open(database.path(), noTask);
  TableSchema const schema{.object = {.name = "v15", .kind = "view", .sql = ""},
                           .columns = {{.name = "x", .type = ""}}};
  EXPECT_EQ(failureOf([&] { reader.page(schema, {}, {}, noTask); }), DatabaseError("out of memory", SQLITE_NOMEM));
}

/// A damaged file can hold rows out of order; a page would then lead back to one that was shown before.
TEST(DatabaseReader, EndsATableWhoseRowsAreOutOfOrder) {
  Browsed table("PRAGMA page_size = 512; CREATE TABLE t(id INTEGER PRIMARY KEY, a)" +
                inserting("t", "i + 90, 'abcdefg'", 20));
  std::string bytes = contents(table.database.path());
  std::size_t const key = bytes.find("abcdefg", 512) - 4;  // the last row's, before the three bytes of its header
  ASSERT_EQ(bytes.at(key), 110);
  bytes[key] = 100;
  std::ofstream(table.database.path(), std::ios::binary) << bytes;
  DatabaseReader reader;
  reader.open(table.database.path(), noTask);
  RowPage const page = reader.page(table.schema, {}, {}, noTask);
  ASSERT_EQ(page.rows.back().identity, Values{100});
  DatabaseError const error = failureOf([&] { reader.page(table.schema, {}, page.next, noTask); });
  EXPECT_EQ(error.code, SQLITE_CORRUPT);
  EXPECT_EQ(
      error.errorDescription(),
      "SQLite detected damage in this database. Restore a known-good backup or recover a separate copy. Tolva does "
      "not automatically repair databases.");
}

// One row ------------------------------------------------------------------------------------------

TEST(DatabaseReader, ReadsOneRowByItsIdentity) {
  Browsed table(
      "CREATE TABLE t(a, b, c, PRIMARY KEY (b, a)) WITHOUT ROWID; INSERT INTO t VALUES (1, 'x', x'00'), (2, 'x', 5)");
  EXPECT_EQ(table.reader.row(table.schema, {"x", 2}), (DatabaseRow{.values = {2, "x", 5}, .identity = {"x", 2}}));
  EXPECT_EQ(table.reader.row(table.schema, {"x", 1})->values[2], SQLiteValue::largeBlob(1));
  for (Values const& none : {Values{"x", 3}, Values{"x", Null{}}, Values{"x"}, Values{}, Values{"x", 1, 1}}) {
    EXPECT_EQ(table.reader.row(table.schema, none), std::nullopt);
  }
}

TEST(DatabaseReader, ReadsTheIdentityOfOneRowWhole) {
  for (bool const isText : {false, true}) {
    std::string const key = isText ? "printf('%.70000c', 'x')" : "zeroblob(70000)";
    Browsed table("CREATE TABLE t(k PRIMARY KEY) WITHOUT ROWID; INSERT INTO t VALUES (" + key + ")");
    SQLiteValue const whole = isText ? x(70'000) : SQLiteValue(Bytes(70'000));
    std::optional<DatabaseRow> const row = table.reader.row(table.schema, {whole});
    ASSERT_TRUE(row);
    EXPECT_EQ(row->identity, Values{whole});
    EXPECT_TRUE(row->values.at(0).isDeferred());
  }
}

TEST(DatabaseReader, FindsARowWhoseIdentityIsNull) {
  Browsed table("CREATE TABLE t(a, b); INSERT INTO t VALUES (NULL, 7), (1, 8)");
  table.schema.identity = {"a"};
  EXPECT_EQ(table.reader.row(table.schema, {Null{}}), (DatabaseRow{.values = {Null{}, 7}, .identity = {Null{}}}));
}

TEST(DatabaseReader, TakesNoMarkerForAnIdentity) {
  Browsed table("CREATE TABLE t(k PRIMARY KEY) WITHOUT ROWID; INSERT INTO t VALUES (zeroblob(70000))");
  SQLiteValue const marker = table.page().rows.at(0).identity.at(0);
  EXPECT_EQ(marker, SQLiteValue::largeBlob(70'000));
  EXPECT_EQ(failureOf([&] { table.reader.row(table.schema, {marker}); }),
            DatabaseError("Open the full value before editing it."));
}

TEST(DatabaseReader, FindsNoRowOfAViewByItsIdentity) {
  Browsed view("CREATE VIEW t AS SELECT 1 AS a");
  EXPECT_EQ(view.reader.row(view.schema, {}), std::nullopt);
  EXPECT_EQ(view.reader.row(view.schema, {1}), std::nullopt);
}

// Selected rows ------------------------------------------------------------------------------------

TEST(DatabaseReader, SelectsRowsByPosition) {
  Browsed table("CREATE TABLE t(id INTEGER PRIMARY KEY, a)" + inserting("t", "i, 2000 - i", 1'600));
  struct PositionCase {
    char const* says;
    RowSelection indices;
    std::size_t count;
  };
  PositionCase const positions[] = {{"none", {}, 0},
                                    {"one", {{1'599, 1'600}}, 1},
                                    {"one chunk", {{0, 500}}, 500},
                                    {"several chunks", {{100, 1'600}}, 1'500},
                                    {"scattered", {{0, 1}, {7, 600}, {1'599, 1'600}}, 595}};
  for (PositionCase const& each : positions) {
    SCOPED_TRACE(each.says);
    for (BrowseRequest const& request : {BrowseRequest(), sortedBy("a")}) {
      std::vector<DatabaseRow> expected;
      for (auto const& range : each.indices.ranges()) {
        for (std::int64_t position = range.first; position < range.end; ++position) {
          std::int64_t const id = request.sort ? 1'600 - position : position + 1;
          expected.push_back({.values = {id, 2'000 - id}, .identity = {id}});
        }
      }
      EXPECT_EQ(expected.size(), each.count);
      EXPECT_EQ(table.selected(each.indices, request), expected);
    }
  }
}

TEST(DatabaseReader, SelectsNoBlobOfAnIdentityWhole) {
  Browsed table("CREATE TABLE t(k PRIMARY KEY) WITHOUT ROWID; INSERT INTO t VALUES (x'01'), (x'02'), (x'03')");
  for (RowSelection const& indices : {RowSelection{{0, 2}}, RowSelection{{0, 1}, {2, 3}}}) {
    for (DatabaseRow const& row : table.selected(indices)) EXPECT_EQ(row.identity, Values{SQLiteValue::largeBlob(1)});
  }
}

/// The key tells two texts apart that the column's own collation takes for equal, and one key is no valid text.
TEST(DatabaseReader, SelectsScatteredRowsByWhatIsStored) {
  Browsed table(
      "CREATE TABLE t(k TEXT COLLATE NOCASE, i, PRIMARY KEY (k COLLATE BINARY)) WITHOUT ROWID;"
      "INSERT INTO t VALUES ('A', 1), ('a', 2), ('b', 3), (CAST(x'63ff' AS TEXT), 4), ('d', 5)");
  std::vector<DatabaseRow> const all = table.selected({{0, 5}});
  EXPECT_EQ(table.selected({{0, 1}, {2, 3}}), (std::vector<DatabaseRow>{all[0], all[2]}));
  EXPECT_EQ(table.selected({{1, 2}, {3, 4}}), (std::vector<DatabaseRow>{all[1], all[3]}));
  EXPECT_EQ(all[3].values[1], SQLiteValue(4));
}

TEST(DatabaseReader, FailsWhereThereIsNoRow) {
  Browsed table("CREATE TABLE t(a)" + inserting("t", "i", 700));
  DatabaseError const error("Selected rows changed or disappeared. Refresh and select them again.");
  for (RowSelection const& indices :
       {RowSelection{{700, 701}}, RowSelection{{699, 701}}, RowSelection{{0, 1'200}}, RowSelection{{0, 1}, {700, 701}},
        RowSelection{{0, 1}, {2, 701}}, RowSelection{{0, 1}, {5'000'000'000, 5'000'000'001}}}) {
    SCOPED_TRACE(indices.ranges().back().end);
    EXPECT_EQ(failureOf([&] { table.selected(indices); }), error);
  }
  EXPECT_EQ(table.selected({{0, 700}}).size(), 700);
  EXPECT_EQ(table.selected({{0, 1}, {2, 700}}).size(), 699);
}

TEST(DatabaseReader, SelectsAtMost10000Rows) {
  Browsed table("CREATE TABLE t(a)" + inserting("t", "i", 20'010));
  DatabaseError const error(
      "Select at most 10,000 rows for this operation. Use a streaming export for larger selections.");
  EXPECT_EQ(failureOf([&] { table.selected({{0, 10'001}}); }), error);
  EXPECT_EQ(table.selected({{0, 10'000}}).size(), 10'000);
  RowSelection everySecond;
  for (std::int64_t position = 0; position < 20'000; position += 2) everySecond.insert(position);
  EXPECT_EQ(table.selected(everySecond).size(), 10'000);
  everySecond.insert(20'000);
  EXPECT_EQ(failureOf([&] { table.selected(everySecond); }), error);
  DatabaseReader closed;  // at once, before anything else is looked at
  EXPECT_EQ(failureOf([&] { closed.selectedRows({}, {}, {{0, 10'001}}, noTask); }), error);
}

TEST(DatabaseReader, SelectsAtMost32MiB) {
  // 512 rows of 65,536 bytes each, as a page counts them.
  std::string const rows =
      "CREATE TABLE t(id INTEGER PRIMARY KEY, a TEXT)" + inserting("t", "i, printf('%.65440c', 'x')", 514);
  Browsed table(rows);
  DatabaseError const error("The selection exceeds the 32 MB operation limit. Select fewer rows or export instead.");
  EXPECT_EQ(table.selected({{0, 512}}).size(), 512);
  EXPECT_EQ(table.selected({{0, 1}, {2, 513}}).size(), 512);
  EXPECT_EQ(failureOf([&] { table.selected({{0, 513}}); }), error);
  EXPECT_EQ(failureOf([&] { table.selected({{0, 1}, {2, 514}}); }), error);
  table.database.run("UPDATE t SET a = a || 'x' WHERE id = 512");
  EXPECT_EQ(failureOf([&] { table.selected({{0, 512}}); }), error);
  EXPECT_EQ(failureOf([&] { table.selected({{0, 1}, {2, 513}}); }), error);
}

// Cancellation -------------------------------------------------------------------------------------

TEST(DatabaseReader, StartsNoPageForACancelledTask) {
  Browsed table("CREATE TABLE t(a); INSERT INTO t VALUES (1), (2), (3)");
  std::stop_source cancelled;
  cancelled.request_stop();
  EXPECT_THROW(table.reader.page(table.schema, {}, {}, cancelled.get_token()), TaskCancelled);
  for (RowSelection const& indices : {RowSelection{{0, 1}}, RowSelection{{0, 1}, {2, 3}}}) {
    EXPECT_THROW(table.reader.selectedRows(table.schema, {}, indices, cancelled.get_token()), TaskCancelled);
  }
}

TEST(DatabaseReader, NoticesACancelledTaskBetweenRows) {
  Browsed view(slowView, "v");
  std::stop_source task;
  std::jthread const canceller([&] {
    std::this_thread::sleep_for(20ms);
    task.request_stop();
  });
  EXPECT_THROW(view.reader.page(view.schema, {}, {}, task.get_token()), TaskCancelled);
  std::stop_source selecting;
  std::jthread const other([&] {
    std::this_thread::sleep_for(20ms);
    selecting.request_stop();
  });
  EXPECT_THROW(view.reader.selectedRows(view.schema, {}, {{0, 10'000}}, selecting.get_token()), TaskCancelled);
}

TEST(DatabaseReader, StopsAFetchThatAnotherThreadCancels) {
  Browsed view(endlessView, "v");
  std::jthread const canceller([&](std::stop_token ended) {
    while (!ended.stop_requested()) {
      view.reader.cancellation()->cancel();
      std::this_thread::sleep_for(1ms);
    }
  });
  for (auto const& call :
       {std::function<void()>([&] { view.page(); }), std::function<void()>([&] { view.reader.count(view.schema, {}); }),
        std::function<void()>([&] {
          view.selected({{0, 1}});
        })}) {
    DatabaseError const error = failureOf(call);
    EXPECT_TRUE(error.isCancellation()) << error.detail;
    EXPECT_EQ(error.errorDescription(), "Cancelled");
  }
}

TEST(DatabaseReader, StopsLookingForARowThatAnotherThreadCancels) {
  Browsed table("CREATE TABLE t(a)" + inserting("t", "i", 200'000));
  table.schema.identity = {"a"};  // in no index: the whole table is read
  std::jthread const canceller([&](std::stop_token ended) {
    while (!ended.stop_requested()) {
      table.reader.cancellation()->cancel();
      std::this_thread::sleep_for(1ms);
    }
  });
  DatabaseError error("(nothing failed)", -1);
  for (int call = 0; call < 200 && error.code == -1; ++call) {
    error = failureOf([&] { table.reader.row(table.schema, {"none"}); });
  }
  EXPECT_TRUE(error.isCancellation()) << error.detail;
}

// Transactions -------------------------------------------------------------------------------------

TEST(DatabaseReader, LeavesNoTransactionOpenBehindRows) {
  Browsed table("CREATE TABLE t(id INTEGER PRIMARY KEY, a TEXT)" + inserting("t", "i, printf('%.65440c', 'x')", 600));
  SQLitePeer peer(table.database.path());
  std::stop_source cancelled;
  cancelled.request_stop();
  struct CallCase {
    char const* says;
    std::function<void()> call;
  };
  CallCase const calls[] = {
      {"a page cut short", [&] { table.page(); }},
      {"the last page", [&] { table.page({}, PageToken{.identity = {590}, .offset = 590}); }},
      {"a count", [&] { table.reader.count(table.schema, {}); }},
      {"a row", [&] { table.reader.row(table.schema, {1}); }},
      {"a selection",
       [&] {
         table.selected({{0, 3}});
       }},
      {"a scattered selection",
       [&] {
         table.selected({{0, 3}, {5, 6}});
       }},
      {"a selection that is too large", [&] { failureOf([&] {
                                                table.selected({{0, 600}});
                                              }); }},
      {"a selection of rows that are gone", [&] { failureOf([&] {
                                                    table.selected({{0, 1}, {600, 601}});
                                                  }); }},
      {"a cancelled selection",
       [&] {
         EXPECT_THROW(table.reader.selectedRows(table.schema, {}, {{0, 1}}, cancelled.get_token()), TaskCancelled);
       }},
  };
  for (CallCase const& each : calls) {
    SCOPED_TRACE(each.says);
    each.call();
    EXPECT_EQ(peer.exec("BEGIN EXCLUSIVE"), "ok");
    EXPECT_EQ(peer.exec("COMMIT"), "ok");
  }
}

TEST(DatabaseReader, EndsItsTransactionUnderAHailOfCancels) {
  Browsed table("CREATE TABLE t(a)" + inserting("t", "i", 100));
  SQLitePeer peer(table.database.path());
  for (int round = 0; round < 30; ++round) {
    {
      std::jthread const canceller([&](std::stop_token ended) {
        while (!ended.stop_requested()) table.reader.cancellation()->cancel();
      });
      for (int call = 0; call < 20; ++call) {
        DatabaseError const error = failureOf([&] { table.selected({{0, 1}, {50, 60}}); });
        EXPECT_TRUE(error.isCancellation() || error.code == -1) << error.detail;
      }
    }
    ASSERT_EQ(peer.exec("BEGIN EXCLUSIVE"), "ok");
    ASSERT_EQ(peer.exec("COMMIT"), "ok");
  }
}

TEST(DatabaseReader, TellsOfALockByAnotherProcess) {
  Browsed table("CREATE TABLE t(a); INSERT INTO t VALUES (1)");
  SQLitePeer peer(table.database.path());
  ASSERT_EQ(peer.exec("BEGIN EXCLUSIVE"), "ok");
  for (auto const& call :
       {std::function<void()>([&] { table.page(); }),
        std::function<void()>([&] { table.reader.count(table.schema, {}); }),
        std::function<void()>([&] { table.reader.row(table.schema, {1}); }), std::function<void()>([&] {
          table.selected({{0, 1}});
        })}) {
    EXPECT_EQ(failureOf(call).errorDescription(),
              "Another connection is holding a database lock. Wait for its transaction to finish, then try again. "
              "database is locked");
  }
}

}  // namespace
}  // namespace tolva
