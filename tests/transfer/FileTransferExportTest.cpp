// SPDX-License-Identifier: Apache-2.0
// What an export writes, and of which rows.
#include <gtest/gtest.h>
#include <sqlite3.h>

#include <functional>
#include <sstream>
#include <string_view>

#include "core/MemoryBudget.hpp"
#include "platform/TaskCancellation.hpp"
#include "support/Browsed.hpp"
#include "support/Corpora.hpp"
#include "support/Failure.hpp"
#include "support/FaultInjector.hpp"
#include "support/TableRows.hpp"
#include "transfer/ExportScene.hpp"

namespace tolva {
namespace {

using namespace std::string_literals;

constexpr ExportFormat formats[] = {ExportFormat::csv, ExportFormat::json, ExportFormat::sql};

std::string const gone = "Selected rows changed or disappeared. Refresh and select them again.";

TEST(ExportFormat, HasANameThatAPersonChooses) {
  EXPECT_EQ(rawValue(ExportFormat::csv), "CSV");
  EXPECT_EQ(rawValue(ExportFormat::json), "JSON");
  EXPECT_EQ(rawValue(ExportFormat::sql), "SQL");
}

// Values -------------------------------------------------------------------------------------------

struct ValueCase {
  char const* says;
  std::string sql;  // an expression
  std::string csv;
  std::string json;
  std::string inSQL;
};

ValueCase const values[] = {
    {"NULL", "NULL", "", "null", "null"},
    {"an integer", "42", "42", "42", "42"},
    {"the least integer", "-9223372036854775807 - 1", "-9223372036854775808", "-9223372036854775808",
     "-9223372036854775808"},
    {"the greatest", "9223372036854775807", "9223372036854775807", "9223372036854775807", "9223372036854775807"},
    {"a real", "0.1", "0.1", "0.1", "0.1"},
    {"a whole real", "5.0", "5.0", "5.0", "5.0"},
    {"a large real", "1e300", "1e+300", "1e+300", "1e+300"},
    {"the longest real", "-2.2250738585072014e-308", "-2.2250738585072014e-308", "-2.2250738585072014e-308",
     "-2.2250738585072014e-308"},
    {"infinity", "9e999", "9e999", "null", "9e999"},
    {"minus infinity", "-9e999", "-9e999", "null", "-9e999"},
    {"a text", "'abc'", R"("abc")", R"("abc")", "CAST(X'616263' AS TEXT)"},
    {"an empty text", "''", R"("")", R"("")", "CAST(X'' AS TEXT)"},
    {"quotes, a solidus and backslashes", R"('a"b''/\')", R"("a""b'/\")", R"("a\"b'/\\")",
     "CAST(X'612262272F5C' AS TEXT)"},
    {"a line end, a tab and an escape", "'a' || char(13, 10, 9, 27)", "\"a\r\n\t\x1B\"",
     R"("a\u000d\u000a\u0009\u001b")", "CAST(X'610D0A091B' AS TEXT)"},
    {"a NUL", "CAST(X'612200620A' AS TEXT)", "\"a\"\"\0b\n\""s, R"("a\"\u0000b\u000a")", "CAST(X'612200620A' AS TEXT)"},
    {"the byte 127, and letters beyond", "char(127, 252, 128512)", "\"\x7F\xC3\xBC\xF0\x9F\x98\x80\"",
     "\"\x7F\xC3\xBC\xF0\x9F\x98\x80\"", "CAST(X'7FC3BCF09F9880' AS TEXT)"},
    {"bytes that are no UTF-8", "CAST(X'61FF80C3' AS TEXT)", "\"a\xFF\x80\xC3\"", "\"a\xFF\x80\xC3\"",
     "CAST(X'61FF80C3' AS TEXT)"},
    {"a blob", "X'00ff7E22'", R"("00FF7E22")", R"("00FF7E22")", "X'00FF7E22'"},
    {"an empty blob", "X''", R"("")", R"("")", "X''"},
};

TEST(FileTransfer, ExportsEachKindOfValueInEachFormat) {
  for (ValueCase const& value : values) {
    SCOPED_TRACE(value.says);
    ExportScene scene("CREATE TABLE t(a); INSERT INTO t VALUES (" + value.sql + ")");
    EXPECT_EQ(scene.exported(ExportFormat::csv), "a\r\n" + value.csv + "\r\n");
    EXPECT_EQ(scene.exported(ExportFormat::json), "[\n{\"a\":" + value.json + "}\n]\n");
    EXPECT_EQ(scene.exported(ExportFormat::sql),
              "CREATE TABLE t(a);\nINSERT INTO \"t\" (\"a\") VALUES (" + value.inSQL + ");\n");
  }
}

TEST(FileTransfer, ExportsSeveralRowsAndColumns) {
  ExportScene scene(
      "CREATE TABLE t(id INTEGER PRIMARY KEY, a, b); INSERT INTO t VALUES (1, 'x', NULL), (2, NULL, 2.5)");
  EXPECT_EQ(scene.exported(ExportFormat::csv), "id,a,b\r\n1,\"x\",\r\n2,,2.5\r\n");
  EXPECT_EQ(scene.exported(ExportFormat::json), R"([
{"id":1,"a":"x","b":null},
{"id":2,"a":null,"b":2.5}
]
)");
  EXPECT_EQ(scene.exported(ExportFormat::sql), R"(CREATE TABLE t(id INTEGER PRIMARY KEY, a, b);
INSERT INTO "t" ("id","a","b") VALUES (1,CAST(X'78' AS TEXT),null);
INSERT INTO "t" ("id","a","b") VALUES (2,null,2.5);
)");
}

TEST(FileTransfer, ExportsNoRows) {
  ExportScene scene("CREATE TABLE t(a, b)");
  EXPECT_EQ(scene.exported(ExportFormat::csv), "a,b\r\n");
  EXPECT_EQ(scene.exported(ExportFormat::json), "[\n\n]\n");
  EXPECT_EQ(scene.exported(ExportFormat::sql), "CREATE TABLE t(a, b);\n");
  EXPECT_EQ(scene.told, (std::vector<std::int64_t>{0, 0, 0}));
}

TEST(FileTransfer, QuotesTheNamesOfAnExportInTheWayOfTheFormat) {
  ExportScene scene(
      "CREATE TABLE \"t\"\"/\"(\"a,b\", \"c\"\"/\", \"d\ne\\\", \"plain é\"); INSERT INTO \"t\"\"/\" VALUES "
      "(1, 2, 3, 4)",
      "t\"/");
  EXPECT_EQ(scene.exported(ExportFormat::csv), "\"a,b\",\"c\"\"/\",\"d\ne\\\",plain é\r\n1,2,3,4\r\n");
  EXPECT_EQ(scene.exported(ExportFormat::json), "[\n{\"a,b\":1,\"c\\\"\\/\":2,\"d\\ne\\\\\":3,\"plain é\":4}\n]\n");
  EXPECT_TRUE(scene.exported(ExportFormat::sql)
                  .ends_with("INSERT INTO \"t\"\"/\" (\"a,b\",\"c\"\"/\",\"d\ne\\\",\"plain é\") VALUES (1,2,3,4);\n"));
}

TEST(FileTransfer, LeavesGeneratedColumnsOutOfSQLAlone) {
  ExportScene scene(
      "CREATE TABLE t(v AS (a + 1), a INTEGER, s AS (a * 2) STORED, b); INSERT INTO t(a, b) VALUES (5, 'x')");
  EXPECT_EQ(scene.exported(ExportFormat::csv), "v,a,s,b\r\n6,5,10,\"x\"\r\n");
  EXPECT_EQ(scene.exported(ExportFormat::json), "[\n{\"v\":6,\"a\":5,\"s\":10,\"b\":\"x\"}\n]\n");
  EXPECT_TRUE(scene.exported(ExportFormat::sql)
                  .ends_with(";\nINSERT INTO \"t\" (\"a\",\"b\") VALUES (5,CAST(X'78' AS TEXT));\n"));
}

TEST(FileTransfer, ExportsTextsOfUTF16AsUTF8) {
  ExportScene scene("PRAGMA encoding = 'UTF-16le'; CREATE TABLE t(a); INSERT INTO t VALUES (char(252) || 'b')");
  EXPECT_EQ(scene.exported(ExportFormat::csv), "a\r\n\"üb\"\r\n");
  EXPECT_TRUE(scene.exported(ExportFormat::sql).ends_with("(CAST(X'C3BC62' AS TEXT));\n"));
}

TEST(FileTransfer, ExportsValuesOfEverySizeAroundItsBuffer) {
  for (int const size : {65'533, 65'534, 65'535, 65'536, 65'537, 131'072, 200'001}) {
    SCOPED_TRACE(size);
    std::string const n = std::to_string(size);
    ExportScene scene("CREATE TABLE t(a, b, c); INSERT INTO t VALUES (printf('%.*c', " + n + ", '\"'), zeroblob(" + n +
                      "), replace(printf('%.*c', " + n + ", 'x'), 'x', char(1)))");
    std::string doubled, escaped;
    for (int at = 0; at < size; ++at) doubled += "\"\"", escaped += "\\u0001";
    std::string const zeros(static_cast<std::size_t>(size) * 2, '0');
    EXPECT_TRUE(scene.exported(ExportFormat::csv) == "a,b,c\r\n\"" + doubled + "\",\"" + zeros + "\",\"" +
                                                         std::string(static_cast<std::size_t>(size), '\1') + "\"\r\n");
    EXPECT_TRUE(
        scene.exported(ExportFormat::json).ends_with(",\"b\":\"" + zeros + "\",\"c\":\"" + escaped + "\"}\n]\n"));
    EXPECT_TRUE(scene.exported(ExportFormat::sql).find(",X'" + zeros + "',CAST(X'0101") != std::string::npos);
  }
}

// A table's statement ------------------------------------------------------------------------------

TEST(FileTransfer, ReadsAStatementAgainThatWasTooLargeToCarry) {
  std::string const sql = "CREATE TABLE t(a /* " + std::string(70'000, 'x') + " */)";
  ExportScene scene(sql);
  ASSERT_EQ(scene.schema.object.sql, "Large Text · 70 KB");
  EXPECT_TRUE(scene.exported(ExportFormat::sql) == sql + ";\n");
  scene.database.run("DROP TABLE t");
  EXPECT_EQ(failureOf([&] { scene.run(ExportFormat::sql); }), DatabaseError("no such table: t"));
}

TEST(FileTransfer, EndsTheCommentThatATableLeavesOpen) {
  for (std::string const comment : {"-- by code", "/* by code"}) {
    SCOPED_TRACE(comment);
    ExportScene scene("CREATE TABLE t(a PRIMARY KEY) WITHOUT ROWID " + comment);
    scene.database.run("INSERT INTO t VALUES (1)");
    scene.schema = browsedSchema(scene.database.path(), "t");
    ASSERT_TRUE(scene.schema.object.sql.ends_with(comment)) << scene.schema.object.sql;
    TemporaryDatabase const other(scene.exported(ExportFormat::sql));
    EXPECT_EQ(other.rows("SELECT a FROM t"), "1");
  }
}

TEST(FileTransfer, NeverExportsAStatementThatAForgedSchemaBringsAlong) {
  for (std::string const& before : {std::string(), "/*" + std::string(70'000, 'x') + "*/"}) {
    ExportScene scene("CREATE TABLE t(a " + before + "); INSERT INTO t VALUES (1)");
    scene.database.run(
        "PRAGMA writable_schema = ON; UPDATE sqlite_schema SET sql = sql || '; DROP TABLE users' WHERE name = 't'");
    scene.schema = browsedSchema(scene.database.path(), "t");
    EXPECT_EQ(scene.exported(ExportFormat::csv), "a\r\n1\r\n");
    EXPECT_EQ(failureOf([&] { scene.run(ExportFormat::sql); }),
              DatabaseError("database disk image is malformed", SQLITE_CORRUPT));
    EXPECT_EQ(scene.content(), "a\r\n1\r\n");
  }
}

TEST(FileTransfer, ExportsAViewButNotAsSQL) {
  ExportScene scene("CREATE TABLE x(a); INSERT INTO x VALUES (1); CREATE VIEW t AS SELECT a, 'y' AS b FROM x");
  EXPECT_EQ(scene.exported(ExportFormat::csv), "a,b\r\n1,\"y\"\r\n");
  EXPECT_EQ(failureOf([&] { scene.run(ExportFormat::sql); }),
            DatabaseError("SQL export requires a table; use CSV or JSON for a view."));
  EXPECT_EQ(scene.content(), "a,b\r\n1,\"y\"\r\n");
  EXPECT_EQ(scene.folder.names(), (std::vector<std::string>{"a.db", "out"}));
}

TEST(FileTransfer, RefusesAViewAsSQLBeforeItLooksAtTheRows) {
  ExportScene scene("CREATE VIEW t AS SELECT 1 AS a");
  EXPECT_EQ(failureOf([&] { scene.run(ExportFormat::sql, {.selectedIndices = RowSelection()}); }),
            DatabaseError("SQL export requires a table; use CSV or JSON for a view."));
  EXPECT_EQ(scene.folder.names(), std::vector<std::string>{"a.db"});
  scene.destination = scene.folder / "none/out";
  EXPECT_EQ(failureOf([&] { scene.run(ExportFormat::sql); }), DatabaseError("The export file could not be created."))
      << "the hidden file comes first";
}

TEST(FileTransfer, ExportsAVirtualTable) {
  ExportScene scene("CREATE VIRTUAL TABLE t USING fts5(a); INSERT INTO t VALUES ('x')");
  EXPECT_EQ(scene.exported(ExportFormat::sql),
            "CREATE VIRTUAL TABLE t USING fts5(a);\nINSERT INTO \"t\" (\"a\") VALUES (CAST(X'78' AS TEXT));\n");
}

// Which rows ---------------------------------------------------------------------------------------

std::string const tenRows = "CREATE TABLE t(a)" + inserting("t", "i", 10);

std::string lines(std::initializer_list<int> numbers) {
  std::string text = "a\r\n";
  for (int const number : numbers) text += std::to_string(number) + "\r\n";
  return text;
}

TEST(FileTransfer, ExportsWhatTheRequestShowsInItsOrder) {
  ExportScene scene(tenRows);
  BrowseRequest const request{.filters = {{.column = "a", .operation = FilterOperator::greater, .value = 7}},
                              .search = {},
                              .sort = TableSort{"a", false}};
  EXPECT_EQ(scene.exported(ExportFormat::csv, {.request = request}), lines({10, 9, 8}));
  EXPECT_EQ(scene.exported(ExportFormat::csv, {.request = request, .selectedIndices = RowSelection{{1, 2}}}),
            lines({9}));
  EXPECT_EQ(failureOf([&] { scene.run(ExportFormat::csv, {.request = {.sort = TableSort{"b"}}}); }),
            DatabaseError("The sorted column no longer exists."));
  EXPECT_EQ(
      failureOf([&] {
        scene.run(ExportFormat::csv, {.request = {.sort = TableSort{"b"}}, .selectedIndices = RowSelection{{0, 1}}});
      }),
      DatabaseError("The sorted column no longer exists."));
}

struct PositionsCase {
  char const* says;
  RowSelection positions;
  std::initializer_list<int> rows;
};

PositionsCase const positions[] = {
    {"the first", {{0, 1}}, {1}},
    {"the last", {{9, 10}}, {10}},
    {"all", {{0, 10}}, {1, 2, 3, 4, 5, 6, 7, 8, 9, 10}},
    {"all but one", {{0, 4}, {5, 10}}, {1, 2, 3, 4, 6, 7, 8, 9, 10}},
    {"dense behind the first", {{3, 5}, {6, 7}, {8, 9}}, {4, 5, 7, 9}},
    {"scattered", {{9, 10}, {1, 2}, {4, 5}}, {2, 5, 10}},
};

TEST(FileTransfer, ExportsTheRowsAtPositions) {
  for (char const* const sql : {"CREATE TABLE t(a)", "CREATE TABLE t(a INTEGER PRIMARY KEY) WITHOUT ROWID",
                                "CREATE TABLE x(a); CREATE VIEW t AS SELECT a FROM x"}) {
    SCOPED_TRACE(sql);
    bool const isView = std::string_view(sql).find("VIEW") != std::string_view::npos;
    ExportScene scene(sql + inserting(isView ? "x" : "t", "i", 10));
    for (PositionsCase const& each : positions) {
      SCOPED_TRACE(each.says);
      EXPECT_EQ(scene.exported(ExportFormat::csv, {.selectedIndices = each.positions}), lines(each.rows));
    }
    std::string const before = scene.content();
    for (RowSelection const& beyond : {RowSelection{{10, 11}}, RowSelection{{9, 11}}, RowSelection{{0, 9}, {10, 11}},
                                       RowSelection{{0, 1}, {40, 41}}}) {
      EXPECT_EQ(failureOf([&] { scene.run(ExportFormat::csv, {.selectedIndices = beyond}); }), DatabaseError(gone));
      EXPECT_EQ(scene.content(), before);
    }
  }
}

/// Two rows of each letter that NOCASE takes for one. The index has their keys, and `c` is wide: a walk over the keys
/// reads the index, in the opposite order.
TEST(FileTransfer, ExportsScatteredPositionsInTheOrderOfTheWholeExportWhereTheKeyIsFinerThanItsColumn) {
  ExportScene scene(
      "CREATE TABLE t(k TEXT COLLATE NOCASE, b, c, PRIMARY KEY(k COLLATE BINARY)) WITHOUT ROWID; CREATE INDEX i ON "
      "t(b)" +
      inserting("t", "char(65 + i / 10) || (i % 10), 1000 - i, zeroblob(900)", 200) +
      inserting("t", "char(97 + i / 10) || (i % 10), 500 - i, zeroblob(900)", 200));
  std::istringstream whole(scene.exported(ExportFormat::csv));
  std::vector<std::string> lines;
  for (std::string line; std::getline(whole, line);) lines.push_back(line + "\n");
  ASSERT_EQ(lines.size(), 401U);
  RowSelection scattered;
  std::string expected = lines[0];
  for (std::int64_t const position : {0, 6, 100, 301, 399}) {
    scattered.insert(position);
    expected += lines.at(static_cast<std::size_t>(position) + 1);
  }
  EXPECT_TRUE(scene.exported(ExportFormat::csv, {.selectedIndices = scattered}) == expected);
}

TEST(FileTransfer, ExportsSeveralRangesOfWhatEachRequestShows) {
  ExportScene scene(
      "CREATE TABLE t(a, b TEXT)" +
      inserting("t",
                "CASE i % 5 WHEN 0 THEN NULL WHEN 1 THEN i % 7 WHEN 2 THEN (i % 7) + 0.5 WHEN 3 THEN 'x' || (i % 7) "
                "ELSE zeroblob(i % 7) END, 'row ' || i",
                400));
  BrowseRequest const requests[] = {
      {},
      {.sort = TableSort{"a", true}},
      {.sort = TableSort{"a", false}},
      {.filters = {{.column = "a", .operation = FilterOperator::isNull, .value = {}}}, .sort = TableSort{"b", false}},
      {.search = "1", .sort = TableSort{"a", true}},
  };
  RowSelection const selections[] = {{{0, 2}, {3, 9}, {10, 12}}, {{1, 2}, {20, 23}, {58, 60}}};
  for (BrowseRequest const& request : requests) {
    std::istringstream whole(scene.exported(ExportFormat::csv, {.request = request}));
    std::vector<std::string> lines;
    for (std::string line; std::getline(whole, line);) lines.push_back(line + "\n");
    ASSERT_GE(lines.size(), 61U);
    for (RowSelection const& selection : selections) {
      std::string expected = lines[0];
      for (RowSelection::Range const& range : selection.ranges()) {
        for (std::int64_t row = range.first; row < range.end; ++row)
          expected += lines[static_cast<std::size_t>(row) + 1];
      }
      EXPECT_EQ(scene.exported(ExportFormat::csv, {.request = request, .selectedIndices = selection}), expected);
    }
  }
}

TEST(FileTransfer, NeedsAPosition) {
  ExportScene scene(tenRows);
  EXPECT_EQ(failureOf([&] {
              scene.run(ExportFormat::csv, {.selected = std::vector<DatabaseRow>(), .selectedIndices = RowSelection()});
            }),
            DatabaseError("Select rows to export first."));
}

TEST(FileTransfer, PrefersPositionsToSelectedRows) {
  ExportScene scene(tenRows);
  EXPECT_EQ(scene.exported(ExportFormat::csv,
                           {.selected = std::vector<DatabaseRow>(), .selectedIndices = RowSelection{{2, 3}}}),
            lines({3}));
}

TEST(FileTransfer, ExportsSelectedRowsInTheirOrder) {
  ExportScene scene(tenRows);
  std::vector<DatabaseRow> const all = rowsOf(scene.database.path(), scene.schema);
  ExportRows const rows{.selected = std::vector{all[6], all[1], all[6], all[3]}};
  EXPECT_EQ(scene.exported(ExportFormat::csv, rows), lines({7, 2, 7, 4}));
  scene.database.run("DELETE FROM t WHERE a = 2");
  EXPECT_EQ(scene.run(ExportFormat::csv, rows), 3);
  EXPECT_EQ(scene.content(), lines({7, 7, 4}));
  EXPECT_EQ(scene.told, (std::vector<std::int64_t>{4, 3}));
  EXPECT_EQ(scene.run(ExportFormat::csv, {.selected = std::vector<DatabaseRow>()}), 0);
  EXPECT_EQ(scene.content(), "a\r\n");
}

TEST(FileTransfer, FindsASelectedRowByAKeyOfSeveralValues) {
  ExportScene scene(
      "CREATE TABLE t(b, a, c, PRIMARY KEY(a, b)) WITHOUT ROWID; INSERT INTO t VALUES (1, 'x', 5), (2, 'x', 6), (1, "
      "X'00', 7)");
  std::vector<DatabaseRow> const all = rowsOf(scene.database.path(), scene.schema);
  EXPECT_EQ(scene.exported(ExportFormat::csv, {.selected = std::vector{all[2], all[0]}}),
            "b,a,c\r\n1,\"00\",7\r\n1,\"x\",5\r\n");
}

TEST(FileTransfer, ExportsOnlyTheSelectedOfTwoRowsThatItsColumnDoesNotTellApart) {
  for (char const* const columns : {"k TEXT COLLATE NOCASE, b, PRIMARY KEY(k COLLATE BINARY)",
                                    "k TEXT COLLATE NOCASE, b, PRIMARY KEY(b, k COLLATE "
                                    "RTRIM)"}) {
    SCOPED_TRACE(columns);
    ExportScene scene("CREATE TABLE t(" + std::string(columns) +
                      ") WITHOUT ROWID; INSERT INTO t VALUES ('A', 1), ('a', 1), ('b', 1)");
    std::vector<DatabaseRow> const all = rowsOf(scene.database.path(), scene.schema);
    ASSERT_EQ(all.size(), 3U);
    for (DatabaseRow const& row : all) {
      EXPECT_EQ(scene.exported(ExportFormat::csv, {.selected = std::vector{row}}),
                "k,b\r\n\"" + row.values[0].display() + "\",1\r\n");
    }
    scene.database.run("DELETE FROM t WHERE k = 'a' COLLATE BINARY");
    EXPECT_EQ(scene.run(ExportFormat::csv, {.selected = all}), 2);
  }
}

TEST(FileTransfer, FindsSelectedRowsByKeysOfOddTexts) {
  ExportScene scene(
      "CREATE TABLE t(k PRIMARY KEY) WITHOUT ROWID; INSERT INTO t VALUES ('\"'), (char(39)), ('a;--'), (''), ('?'), "
      "('%s'), ('a' || char(0) || 'b'), ('a'), (char(128512)), (char(233)), ('e' || char(769)), (' a '), "
      "(char(65279)), (1), ('1'), (1.5), (X''), (X'00')");
  std::vector<DatabaseRow> const all = rowsOf(scene.database.path(), scene.schema);
  ASSERT_EQ(all.size(), 18U);
  EXPECT_EQ(scene.run(ExportFormat::csv, {.selected = all}), 18);
  std::string const selected = scene.content();
  EXPECT_EQ(selected, scene.exported(ExportFormat::csv));
  for (DatabaseRow const& row : all) EXPECT_EQ(scene.run(ExportFormat::csv, {.selected = std::vector{row}}), 1);
}

/// SQLite returns at most 2,000 columns, and those of the identity are among them.
TEST(FileTransfer, ExportsAsManyColumnsAsSQLiteReturnsWithTheIdentity) {
  for (int const columns : {1'999, 2'000}) {
    SCOPED_TRACE(columns);
    std::string sql = "CREATE TABLE t(c0";
    for (int column = 1; column < columns; ++column) sql += ",c" + std::to_string(column);
    ExportScene scene(sql + "); INSERT INTO t(c0) VALUES (1)");
    if (columns == 1'999) {
      EXPECT_EQ(scene.run(ExportFormat::csv), 1);
    } else {
      EXPECT_EQ(failureOf([&] { scene.run(ExportFormat::csv); }), DatabaseError("too many columns in result set"));
    }
    EXPECT_EQ(scene.run(ExportFormat::csv, {.selected = std::vector{DatabaseRow{.values = {}, .identity = {1}}}}), 1);
  }
}

TEST(FileTransfer, NeedsAnIdentityForSelectedRows) {
  ExportScene scene("CREATE VIEW t AS SELECT 1 AS a");
  EXPECT_EQ(failureOf([&] { scene.run(ExportFormat::csv, {.selected = std::vector<DatabaseRow>()}); }),
            DatabaseError("Selected-row export requires stable row identities."));
}

TEST(FileTransfer, FailsOnASelectedRowThatCannotBeBound) {
  ExportScene scene(tenRows);
  DatabaseRow const good{.values = {1}, .identity = {1}};
  EXPECT_EQ(
      failureOf([&] {
        scene.run(ExportFormat::csv, {.selected = std::vector{good, DatabaseRow{.identity = {LargeText{70'000}}}}});
      }),
      DatabaseError("Open the full value before editing it."));
  EXPECT_EQ(failureOf([&] {
              scene.run(ExportFormat::csv, {.selected = std::vector{good, DatabaseRow{}}});
            }),
            DatabaseError("Incorrect parameter count"));
  EXPECT_EQ(scene.content(), "(no out)");
}

// A schema that is no longer true ------------------------------------------------------------------

TEST(FileTransfer, NeverExportsTheNameOfAColumnThatIsGone) {
  ExportScene scene("CREATE TABLE t(id INTEGER PRIMARY KEY, a)" + inserting("t", "i, i", 10));
  std::vector<DatabaseRow> const all = rowsOf(scene.database.path(), scene.schema);
  ExportRows const sources[] = {{},
                                {.selected = all},
                                {.selectedIndices = RowSelection{{0, 10}}},
                                {.selectedIndices = RowSelection{{0, 1}, {9, 10}}}};
  for (char const* const change : {"ALTER TABLE t RENAME COLUMN a TO b", "ALTER TABLE t RENAME COLUMN id TO ident"}) {
    scene.database.run(change);
    for (ExportRows const& rows : sources) {
      for (ExportFormat const format : formats) {
        DatabaseError const error = failureOf([&] { scene.run(format, rows); });
        EXPECT_TRUE(error.detail.starts_with("no such column: ")) << error.detail;
        EXPECT_EQ(scene.folder.names(), std::vector<std::string>{"a.db"});
      }
    }
  }
}

TEST(FileTransfer, NeverExportsTheRowidForAColumnThatIsGone) {
  for (std::string const name : {"rowid", "OID", "_rowid_"}) {
    SCOPED_TRACE(name);
    ExportScene scene("CREATE TABLE t(a, " + name + " TEXT)" + inserting("t", "i, 'x' || i", 10));
    std::vector<DatabaseRow> const all = rowsOf(scene.database.path(), scene.schema);
    EXPECT_TRUE(scene.exported(ExportFormat::csv).starts_with("a," + name + "\r\n1,\"x1\"\r\n"));
    std::string const before = scene.content();
    scene.database.run("ALTER TABLE t RENAME COLUMN " + name + " TO b");
    ExportRows const sources[] = {{},
                                  {.selected = all},
                                  {.selectedIndices = RowSelection{{0, 10}}},
                                  {.selectedIndices = RowSelection{{0, 1}, {9, 10}}}};
    for (ExportRows const& rows : sources) {
      EXPECT_EQ(failureOf([&] { scene.run(ExportFormat::csv, rows); }), DatabaseError("no such column: " + name));
      EXPECT_EQ(scene.content(), before);
    }
  }
}

TEST(FileTransfer, NoticesThatAColumnGoesBetweenTwoSelectedRows) {
  for (std::string const name : {"a", "rowid"}) {
    SCOPED_TRACE(name);
    ExportScene scene("PRAGMA journal_mode = WAL; CREATE TABLE t(id INTEGER PRIMARY KEY, " + name + ")" +
                      inserting("t", "i, i", 600));
    std::vector<DatabaseRow> const all = rowsOf(scene.database.path(), scene.schema);
    auto const renameAt500 = [&](std::int64_t) { scene.database.run("ALTER TABLE t RENAME COLUMN " + name + " TO b"); };
    EXPECT_EQ(failureOf([&] {
                scene.transfer.exportRows(scene.database.path(), scene.schema, {.selected = all}, ExportFormat::csv,
                                          scene.destination, renameAt500, noTask);
              }),
              DatabaseError("no such column: " + name));
    EXPECT_EQ(scene.content(), "(no out)");
  }
}

TEST(FileTransfer, PassesOnTheFailuresOfSQLite) {
  ExportScene scene(tenRows);
  scene.database.run("DROP TABLE t");
  EXPECT_EQ(failureOf([&] { scene.run(ExportFormat::csv); }), DatabaseError("no such table: t"));
  std::filesystem::remove(scene.database.path());
  EXPECT_EQ(failureOf([&] { scene.run(ExportFormat::csv); }),
            DatabaseError("unable to open database file", SQLITE_CANTOPEN));
  scene.folder.write("a.db", std::string(4096, 'x'));
  EXPECT_EQ(failureOf([&] { scene.run(ExportFormat::csv); }), DatabaseError("file is not a database", SQLITE_NOTADB));
  EXPECT_EQ(scene.folder.names(), std::vector<std::string>{"a.db"});
}

/// SQLite gives no bytes of a value that it cannot convert or hold, and no code for it.
TEST(FileTransfer, NeverExportsAValueAsEmptyForLackOfMemory) {
  ExportScene scene(
      "PRAGMA encoding = 'UTF-16le'; CREATE TABLE x(a); INSERT INTO x VALUES (printf('%.*c', 300000, 'x')); CREATE "
      "VIEW t "
      "AS SELECT a, zeroblob(1000000) AS b FROM x");
  std::string const whole = scene.exported(ExportFormat::csv);
  ASSERT_GT(whole.size(), 2'300'000U);
  int failures = 0, successes = 0;
  for (std::int64_t bytes = std::int64_t{64} << 10; bytes < std::int64_t{6} << 20; bytes += std::int64_t{64} << 10) {
    SCOPED_TRACE(bytes);
    scene.folder.write("out", "old");
    try {
      MemoryBudget const budget(bytes);
      scene.run(ExportFormat::csv);
      EXPECT_TRUE(scene.content() == whole);
      ++successes;
    } catch (DatabaseError const& error) {
      EXPECT_EQ(error.code & 0xFF, SQLITE_NOMEM) << error.detail;
      EXPECT_EQ(scene.content(), "old");
      ++failures;
    }
  }
  EXPECT_GT(failures, 5);
  EXPECT_GT(successes, 5);
}

TEST(FileTransfer, ExportsDamagedDatabasesWholeOrNotAtAll) {
  TOLVA_NEEDS_CORPORA();
  int attempts = 0;
  for (auto const& file : corpusFiles("sqlite-malformed", ".db")) {
    SCOPED_TRACE(file.filename());
    TemporaryFolder const folder;
    std::filesystem::path const copy = folder / "a.db";
    std::filesystem::copy_file(file, copy);
    std::filesystem::permissions(copy, std::filesystem::perms(0600));
    DatabaseReader reader;
    FileTransfer transfer;
    std::vector<DatabaseObject> objects;
    EXPECT_NO_FATAL_FAILURE(failureOf([&] { objects = reader.open(copy, noTask); }));
    for (DatabaseObject const& object : objects) {
      TableSchema schema;
      if (failureOf([&] { schema = reader.schema(object); }).code != -1) continue;
      folder.write("out", "old");
      DatabaseError const error =
          failureOf([&] { transfer.exportRows(copy, schema, {}, ExportFormat::json, folder / "out", {}, noTask); });
      std::string const content = folder.read("out");
      EXPECT_EQ(content == "old", error.code != -1) << error.detail;
      EXPECT_TRUE(content == "old" || content.ends_with("\n]\n"));
      ++attempts;
    }
  }
  EXPECT_GT(attempts, 5);
}

// Progress and cancellation ------------------------------------------------------------------------

TEST(FileTransfer, TellsOfEach500thRowAndOfTheEnd) {
  for (auto const& [rows, told] : std::initializer_list<std::pair<int, std::vector<std::int64_t>>>{
           {499, {499}}, {500, {500, 500}}, {501, {500, 501}}, {1'000, {500, 1'000, 1'000}}}) {
    ExportScene scene("CREATE TABLE t(a)" + inserting("t", "i", rows));
    EXPECT_EQ(scene.run(ExportFormat::csv), rows);
    EXPECT_EQ(scene.told, told);
  }
}

TEST(FileTransfer, ExportsForWhoWantsNoProgress) {
  ExportScene scene(tenRows);
  EXPECT_EQ(scene.transfer.exportRows(scene.database.path(), scene.schema, {}, ExportFormat::csv, scene.destination, {},
                                      noTask),
            10);
}

/// All of a table of 2,000 rows; all as selected ones; all positions; and positions that are looked up by their keys.
std::vector<ExportRows> eachSource(ExportScene const& scene) {
  RowSelection scattered;
  for (int row = 0; row < 2'000; row += 3) scattered.insert(row);
  return {{},
          {.selected = rowsOf(scene.database.path(), scene.schema)},
          {.selectedIndices = RowSelection{{0, 2'000}}},
          {.selectedIndices = scattered}};
}

/// What an export does when its progress is first told.
std::string afterProgress(ExportScene& scene, ExportRows const& rows, std::function<void()> const& action) try {
  scene.transfer.exportRows(
      scene.database.path(), scene.schema, rows, ExportFormat::csv, scene.destination, [&](std::int64_t) { action(); },
      noTask);
  return "returned";
} catch (DatabaseError const& error) {
  EXPECT_TRUE(error.isCancellation());
  return std::to_string(error.code) + " " + error.detail;
}

TEST(FileTransfer, IsStoppedByItsHandle) {
  ExportScene scene("CREATE TABLE t(a)" + inserting("t", "i", 2'000));
  for (ExportRows const& rows : eachSource(scene)) {
    EXPECT_EQ(afterProgress(scene, rows, [&] { scene.transfer.cancellation()->cancel(); }), "9 interrupted");
    EXPECT_EQ(scene.folder.names(), std::vector<std::string>{"a.db"});
  }
  EXPECT_EQ(scene.run(ExportFormat::csv), 2'000);
}

TEST(FileTransfer, IsStoppedByItsTask) {
  ExportScene scene("CREATE TABLE t(a)" + inserting("t", "i", 2'000));
  scene.folder.write("out", "old");
  for (ExportRows const& rows : eachSource(scene)) {
    std::stop_source task;
    std::int64_t seen = 0;
    auto const stopAt500 = [&](std::int64_t done) {
      seen = done;
      task.request_stop();
    };
    EXPECT_THROW(scene.transfer.exportRows(scene.database.path(), scene.schema, rows, ExportFormat::json,
                                           scene.destination, stopAt500, task.get_token()),
                 TaskCancelled);
    EXPECT_EQ(seen, 500);
    EXPECT_EQ(scene.content(), "old");
    EXPECT_EQ(scene.folder.names(), (std::vector<std::string>{"a.db", "out"}));
  }
}

TEST(FileTransfer, IsStoppedWithinALargeValue) {
  for (ExportFormat const format : formats) {
    ExportScene scene("CREATE TABLE t(a); INSERT INTO t VALUES (zeroblob(1000000))");
    std::stop_source task;
    auto const stop = [&] { task.request_stop(); };
    long calls = 0;
    auto const exportRow = [&] {
      EXPECT_THROW(scene.run(format, {}, task.get_token()), TaskCancelled);
      calls = faultPlan::calls();
    };
    EXPECT_TRUE(FaultInjector::before(scene.folder.path(), 4, stop, exportRow));
    EXPECT_LT(calls, 10) << "a million bytes are at least fifteen writes";
    EXPECT_EQ(scene.folder.names(), std::vector<std::string>{"a.db"});
  }
}

TEST(FileTransfer, ReadsPositionsFromOneStateOfTheDatabase) {
  ExportScene scene("PRAGMA journal_mode = WAL; CREATE TABLE t(a)" + inserting("t", "i", 3'000));
  auto const deleteAll = [&](std::int64_t done) {
    if (done == 500) scene.database.run("DELETE FROM t");
  };
  for (RowSelection const& selection :
       {RowSelection{{0, 501}, {900, 1'000}}, RowSelection{{0, 1'000}}, RowSelection{{0, 501}, {2'900, 3'000}}}) {
    scene.database.run("DELETE FROM t" + inserting("t", "i", 3'000));
    EXPECT_EQ(scene.transfer.exportRows(scene.database.path(), scene.schema, {.selectedIndices = selection},
                                        ExportFormat::csv, scene.destination, deleteAll, noTask),
              selection.count());
  }
}

}  // namespace
}  // namespace tolva
