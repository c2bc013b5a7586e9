// SPDX-License-Identifier: Apache-2.0
#include <gtest/gtest.h>
#include <sqlite3.h>
#include <sys/stat.h>

#include <algorithm>
#include <fstream>
#include <functional>
#include <thread>

#include "core/SQLIdentifier.hpp"
#include "platform/TaskCancellation.hpp"
#include "support/Environment.hpp"
#include "support/Failure.hpp"
#include "support/SystemFailure.hpp"
#include "support/Unprivileged.hpp"
#include "transfer/ImportScene.hpp"

namespace tolva {
namespace {

using namespace std::string_literals;
using Rows = std::vector<std::vector<std::string>>;
using Told = std::vector<std::int64_t>;

constexpr CSVOptions noHeader{.header = false};
constexpr std::size_t mebibyte = std::size_t{1} << 20;

/// The integers from 1 to `last`, one a line.
std::string lines(int last) {
  std::string csv;
  for (int line = 1; line <= last; ++line) csv += std::to_string(line) + "\n";
  return csv;
}

// Preview ----------------------------------------------------------------------------------------------

struct PreviewCase {
  char const* says;
  std::string csv;
  CSVOptions options;
  Rows rows;
};

PreviewCase const previews[] = {
    {"an empty file", "", {}, {}},
    {"a header is a row", "a,b\n1,2\n", {}, {{"a", "b"}, {"1", "2"}}},
    {"six rows", lines(6), {}, {{"1"}, {"2"}, {"3"}, {"4"}, {"5"}, {"6"}}},
    {"six of seven", lines(7), {}, {{"1"}, {"2"}, {"3"}, {"4"}, {"5"}, {"6"}}},
    {"rows of different lengths", "a\n1,2\n\n", {}, {{"a"}, {"1", "2"}, {""}}},
    {"another delimiter", "a;b,c\n", {.delimiter = ';'}, {{"a", "b,c"}}},
    {"Latin-1", "caf\xE9\n", {.encoding = CSVEncoding::latin1}, {{"café"}}},
    {"a byte order mark", "\uFEFFa,\uFEFFb\n\uFEFFc\n", {}, {{"a", "\uFEFFb"}, {"\uFEFFc"}}},
    {"marks anywhere in the first field", "a\uFEFFb\uFEFF\uFEFF,c\n", {}, {{"ab", "c"}}},
    {"a mark and nothing else", "\uFEFF", {}, {{""}}},
    {"what is wrong behind the sixth row", lines(6) + "\xFF\"", {}, {{"1"}, {"2"}, {"3"}, {"4"}, {"5"}, {"6"}}},
};

TEST(FileTransferPreview, ShowsTheFirstRows) {
  TemporaryFolder const folder;
  FileTransfer transfer;
  for (PreviewCase const& preview : previews) {
    SCOPED_TRACE(preview.says);
    EXPECT_EQ(transfer.preview(folder.write("in.csv", preview.csv), preview.options, noTask), preview.rows);
  }
}

TEST(FileTransferPreview, TakesAFieldOf16MiBAndNoMore) {
  TemporaryFolder const folder;
  FileTransfer transfer;
  std::string const most(16 * mebibyte, 'x');
  EXPECT_EQ(transfer.preview(folder.write("in.csv", most), {}, noTask), (Rows{{most}}));
  EXPECT_EQ(failureOf([&] { transfer.preview(folder.write("in.csv", most + "x"), {}, noTask); }),
            DatabaseError("A CSV field exceeds the 16777216-byte import limit."));
}

TEST(FileTransferPreview, TakesMarksByTheMillionOutOfAField) {
  TemporaryFolder const folder;
  std::string marks;
  for (std::size_t count = 0; count < 5'000'000; ++count) marks += "\uFEFF";
  EXPECT_EQ(FileTransfer().preview(folder.write("in.csv", "a" + marks + "b"), {}, noTask), (Rows{{"ab"}}));
}

TEST(FileTransferPreview, PassesOnWhatTheFileHoldsOrIs) {
  TemporaryFolder const folder;
  FileTransfer transfer;
  EXPECT_EQ(failureOf([&] { transfer.preview(folder.write("in.csv", "\"a"), {}, noTask); }),
            DatabaseError("The CSV contains an unterminated quoted field."));
  EXPECT_EQ(systemFailureOf([&] { transfer.preview(folder / "absent.csv", {}, noTask); }), "ENOENT absent.csv");
  std::stop_source cancelled;
  cancelled.request_stop();
  EXPECT_THROW(transfer.preview(folder.write("in.csv", "a"), {}, cancelled.get_token()), TaskCancelled);
}

// A new table -----------------------------------------------------------------------------------------

struct NewTableCase {
  char const* says;
  std::string csv;
  CSVOptions options;
  char const* sql;
  char const* rows;
};

NewTableCase const newTables[] = {
    {"a type for each column",
     "i,r,t\n1,1.5,x\n2,2,7\n",
     {},
     R"(CREATE TABLE "t" ("i" INTEGER,"r" REAL,"t" TEXT))",
     "1|integer|1.5|real|x|text\n2|integer|2.0|real|7|text"},
    {"columns without names", "1,x,\n", noHeader,
     R"(CREATE TABLE "t" ("column_1" INTEGER,"column_2" TEXT,"column_3" INTEGER))", "1|integer|x|text||text"},
    {"a header alone", "a,b", {}, R"(CREATE TABLE "t" ("a" TEXT,"b" TEXT))", ""},
    {"empty fields stay empty texts",
     "a,b\n,1\n2,\n",
     {},
     R"(CREATE TABLE "t" ("a" INTEGER,"b" INTEGER))",
     "|text|1|integer\n2|integer||text"},
    {"codes keep their zeros", "zip\n007\n10115\n", {}, R"(CREATE TABLE "t" ("zip" TEXT))", "007|text\n10115|text"},
    {"integers beyond doubles keep their digits",
     "a\n9007199254740993\n1.5\n",
     {},
     R"(CREATE TABLE "t" ("a" TEXT))",
     "9007199254740993|text\n1.5|text"},
    {"the greatest and the least integer",
     "a\n9223372036854775807\n-9223372036854775808\n",
     {},
     R"(CREATE TABLE "t" ("a" INTEGER))",
     "9223372036854775807|integer\n-9223372036854775808|integer"},
    {"a mark before the header", "\uFEFFa\n1\n", {}, R"(CREATE TABLE "t" ("a" INTEGER))", "1|integer"},
    {"a mark before the first row makes texts and is not inserted", "\uFEFF1,2\n3,4\n", noHeader,
     R"(CREATE TABLE "t" ("column_1" TEXT,"column_2" INTEGER))", "1|text|2|integer\n3|text|4|integer"},
    {"a mark before a header in quotes, which open nothing then",
     "\uFEFF\"id\",\"name\"\n1,x\n",
     {},
     R"(CREATE TABLE "t" ("""id""" INTEGER,"name" TEXT))",
     "1|integer|x|text"},
    {"in Latin-1 it is three letters",
     "\uFEFFa\n1\n",
     {.encoding = CSVEncoding::latin1},
     R"(CREATE TABLE "t" ("ï»¿a" INTEGER))",
     "1|integer"},
    {"a decimal becomes the nearest double",
     "a\n9007199254740993.5\n1.50\n",
     {},
     R"(CREATE TABLE "t" ("a" REAL))",
     "9.00719925474099e+15|real\n1.5|real"},
    {"a mark and nothing else", "\uFEFF", noHeader, R"(CREATE TABLE "t" ("column_1" TEXT))", "|text"},
    {"names of any kind",
     "select,\"a \"\"b\"\"\",ä\n1,2,3\n",
     {},
     R"(CREATE TABLE "t" ("select" INTEGER,"a ""b""" INTEGER,"ä" INTEGER))",
     "1|integer|2|integer|3|integer"},
    {"Latin-1", "a\ncaf\xE9\n", {.encoding = CSVEncoding::latin1}, R"(CREATE TABLE "t" ("a" TEXT))", "café|text"},
    {"another delimiter",
     "a\tb\n1\t2,5\n",
     {.delimiter = '\t'},
     R"(CREATE TABLE "t" ("a" INTEGER,"b" TEXT))",
     "1|integer|2,5|text"},
    {"line ends and quotes in fields",
     "a,b\r\n\"1\n2\",\"x\"\"y\"\r\n",
     {},
     R"(CREATE TABLE "t" ("a" TEXT,"b" TEXT))",
     "1\n2|text|x\"y|text"},
    {"an empty line is an empty field", "a\n1\n\n", {}, R"(CREATE TABLE "t" ("a" INTEGER))", "1|integer\n|text"},
};

/// All columns of "t", each with its type behind it.
std::string typedRows(ImportScene const& scene) {
  std::string sql;
  for (DatabaseColumn const& column : schemaOf(scene.database.path(), "t").columns) {
    std::string const name = quoteIdentifier(column.name);
    sql += (sql.empty() ? "SELECT " : ",") + name + ",typeof(" + name + ")";
  }
  return scene.rows(sql + " FROM t");
}

TEST(FileTransferImport, MakesATableForAFile) {
  for (NewTableCase const& table : newTables) {
    SCOPED_TRACE(table.says);
    ImportScene scene;
    std::int64_t const count = scene.intoNew(table.csv, table.options);
    EXPECT_EQ(std::to_string(count), scene.rows("SELECT count(*) FROM t"));
    EXPECT_EQ(scene.told, Told{count});
    EXPECT_EQ(scene.tables(), table.sql);
    EXPECT_EQ(typedRows(scene), table.rows);
  }
}

TEST(FileTransferImport, DoesNothingForAnEmptyFile) {
  ImportScene scene;
  EXPECT_EQ(scene.intoNew(""), 0);
  EXPECT_EQ(scene.intoNew("", noHeader), 0);
  EXPECT_EQ(scene.told, Told{});
  EXPECT_EQ(scene.tables(), "");
}

// A table that is there ---------------------------------------------------------------------------------

struct TableCase {
  char const* says;
  char const* sql;
  std::string csv;
  CSVOptions options;
  char const* rows;
};

TableCase const tables[] = {
    {"types as declared",
     "CREATE TABLE t(i INTEGER, r REAL, n NUMERIC, t TEXT, b BLOB, u)",
     "i,r,n,t,b,u\n007,1,1e3,1,1,1\nx,y,0x10,2,2,2\n",
     {},
     "7|integer|1.0|real|1000|integer|1|text|1|text|1|text\nx|text|y|text|16|integer|2|text|2|text|2|text"},
    {"columns in another order, and not all",
     "CREATE TABLE t(a, b DEFAULT 'd', c INTEGER)",
     "c,a\n1,x\n",
     {},
     "x|text|d|text|1|integer"},
    {"the columns in their order without a header", "CREATE TABLE t(a INTEGER, b TEXT, c DEFAULT 3)", "1,2\n3,4\n",
     noHeader, "1|integer|2|text|3|integer\n3|integer|4|text|3|integer"},
    {"generated columns are left out without a header",
     "CREATE TABLE t(a INTEGER, g AS (a + 1), b INTEGER, s AS (a) STORED)", "1,2\n", noHeader,
     "1|integer|2|integer|2|integer|1|integer"},
    {"generated columns are filled", "CREATE TABLE t(a INTEGER, g AS (a + 1))", "a\n1\n", {}, "1|integer|2|integer"},
    {"a mark before the first row", "CREATE TABLE t(a INTEGER)", "\uFEFF1\n", noHeader, "1|integer"},
    {"a mark before the header", "CREATE TABLE t(a INTEGER)", "\uFEFFa\n1\n", {}, "1|integer"},
    {"without rowid",
     "CREATE TABLE t(a TEXT PRIMARY KEY, b) WITHOUT ROWID",
     "b,a\n1,y\n2,x\n",
     {},
     "x|text|2|text\ny|text|1|text"},
    {"strict", "CREATE TABLE t(a INT, b TEXT, c ANY) STRICT", "a,b,c\n1,2,3\n", {}, "1|integer|2|text|3|integer"},
    {"a rowid alias", "CREATE TABLE t(id INTEGER PRIMARY KEY, a)", "id,a\n7,x\n", {}, "7|integer|x|text"},
    {"UTF-16", "PRAGMA encoding = 'UTF-16'; CREATE TABLE t(a, b INTEGER)", "a,b\ncafé,1\n", {}, "café|text|1|integer"},
    {"a header alone", "CREATE TABLE t(a)", "a\n", {}, ""},
    {"a value that a trigger leaves out",
     "CREATE TABLE t(a); CREATE TRIGGER x BEFORE INSERT ON t WHEN new.a = '1' BEGIN "
     "SELECT RAISE(IGNORE); END",
     "a\n1\n2\n",
     {},
     "2|text"},
};

TEST(FileTransferImport, FillsATable) {
  for (TableCase const& table : tables) {
    SCOPED_TRACE(table.says);
    ImportScene scene(table.sql);
    EXPECT_NO_THROW(scene.intoTable(table.csv, table.options));
    EXPECT_EQ(typedRows(scene), table.rows);
  }
}

TEST(FileTransferImport, RunsTheTriggersOfTheTable) {
  ImportScene scene(
      "CREATE TABLE t(a); CREATE TABLE log(a); CREATE TRIGGER x AFTER INSERT ON t BEGIN "
      "INSERT INTO log VALUES (new.a || '!'); END");
  EXPECT_EQ(scene.intoTable("a\nx\ny\n"), 2);
  EXPECT_EQ(scene.rows("SELECT a FROM log"), "x!\ny!");
}

/// What a table does with a value that it has already is its own affair; the rows that were read are counted.
TEST(FileTransferImport, CountsTheRowsThatATableResolves) {
  struct {
    char const* action;
    char const* rows;
  } const cases[] = {{"IGNORE", "1|x\n2|y"}, {"REPLACE", "1|z\n2|y"}};
  for (auto const& each : cases) {
    SCOPED_TRACE(each.action);
    ImportScene scene(std::string("CREATE TABLE t(a INTEGER UNIQUE ON CONFLICT ") + each.action + ", b)");
    EXPECT_EQ(scene.intoTable("a,b\n1,x\n2,y\n1,z\n"), 3);
    EXPECT_EQ(scene.told, Told{3});
    EXPECT_EQ(scene.rows("SELECT a, b FROM t ORDER BY a"), each.rows);
  }
}

// Failures ----------------------------------------------------------------------------------------------

struct FailureCase {
  char const* says;
  char const* sql;  // makes the table "t", or else it is made for the file
  std::string csv;
  CSVOptions options;
  DatabaseError failure;
};

FailureCase const failures[] = {
    {"a name is empty", "", "a,\n1,2\n", {}, DatabaseError("CSV column names must be nonempty and unique.")},
    {"a byte order mark is no name",
     "",
     "\uFEFF,a\n",
     {},
     DatabaseError("CSV column names must be nonempty and unique.")},
    {"two names are equal", "", "a,b,a\n", {}, DatabaseError("CSV column names must be nonempty and unique.")},
    {"they differ in case", "", "name,NAME\n", {}, DatabaseError("CSV column names must be nonempty and unique.")},
    {"they differ in the case of any letter",
     "",
     "größe,GRÖßE\n",
     {},
     DatabaseError("CSV column names must be nonempty and unique.")},
    {"so too for a table",
     "CREATE TABLE t(a)",
     "a,A\n",
     {},
     DatabaseError("CSV column names must be nonempty and unique.")},
    {"so too for its own columns without a header", "CREATE TABLE t(\"ä\", \"Ä\")", "1,2\n", noHeader,
     DatabaseError("CSV column names must be nonempty and unique.")},
    {"and for a column without a name", "CREATE TABLE t(a, \"\")", "1,2\n", noHeader,
     DatabaseError("CSV column names must be nonempty and unique.")},
    {"two are equal once the mark has gone",
     "",
     "\uFEFFa,b,a\n",
     {},
     DatabaseError("CSV column names must be nonempty and unique.")},
    {"a name is no column",
     "CREATE TABLE t(a)",
     "a,b\n1,2\n",
     {},
     DatabaseError("CSV headers must match editable destination columns.")},
    {"a name is one in another case",
     "CREATE TABLE t(a)",
     "A\n1\n",
     {},
     DatabaseError("CSV headers must match editable destination columns.")},
    {"a name is a generated column",
     "CREATE TABLE t(a, g AS (a))",
     "a,g\n1,2\n",
     {},
     DatabaseError("CSV headers must match editable destination columns.")},
    {"a short row before the table is made",
     "",
     "a,b\n1,2\n3\n",
     {},
     DatabaseError("CSV row has an unexpected number of fields.")},
    {"a long one", "", "1\n2,3\n", noHeader, DatabaseError("CSV row has an unexpected number of fields.")},
    {"a short row for a table",
     "CREATE TABLE t(a, b)",
     "a,b\n1,2\n3\n",
     {},
     DatabaseError("CSV row 2 has 1 fields; expected 2.")},
    {"the same without a header", "CREATE TABLE t(a, b)", "1,2\n3\n", noHeader,
     DatabaseError("CSV row 2 has 1 fields; expected 2.")},
    {"an empty line", "CREATE TABLE t(a, b)", "a,b\n\n", {}, DatabaseError("CSV row 1 has 1 fields; expected 2.")},
    {"a first row longer than the table", "CREATE TABLE t(a, b, g AS (a))", "1,2,3\n", noHeader,
     DatabaseError("CSV row 1 has 3 fields; expected 2.")},
    {"a row behind many",
     "CREATE TABLE t(a)",
     "a\n" + lines(1234) + "1,2\n",
     {},
     DatabaseError("CSV row 1235 has 2 fields; expected 1.")},
    {"a value twice",
     "CREATE TABLE t(a UNIQUE)",
     "a\n1\n2\n1\n",
     {},
     DatabaseError("CSV row 3: UNIQUE constraint failed: t.a", SQLITE_CONSTRAINT_UNIQUE)},
    {"a value twice that rolls back by itself",
     "CREATE TABLE t(a INTEGER UNIQUE ON CONFLICT ROLLBACK)",
     "a\n" + lines(600) + "7\n8\n",
     {},
     DatabaseError("CSV row 601: UNIQUE constraint failed: t.a", SQLITE_CONSTRAINT_UNIQUE)},
    {"a check",
     "CREATE TABLE t(a INTEGER CHECK (a < 700))",
     "a\n" + lines(800),
     {},
     DatabaseError("CSV row 700: CHECK constraint failed: a < 700", SQLITE_CONSTRAINT_CHECK)},
    {"a column that must be given",
     "CREATE TABLE t(a, b NOT NULL)",
     "a\n1\n",
     {},
     DatabaseError("CSV row 1: NOT NULL constraint failed: t.b", SQLITE_CONSTRAINT_NOTNULL)},
    {"a strict type",
     "CREATE TABLE t(a INT) STRICT",
     "a\n1\n\n",
     {},
     DatabaseError("CSV row 2: cannot store TEXT value in INT column t.a", SQLITE_CONSTRAINT_DATATYPE)},
    {"a row of no parent",
     "CREATE TABLE p(id INTEGER PRIMARY KEY); CREATE TABLE t(a INTEGER REFERENCES p)",
     "a\n1\n",
     {},
     DatabaseError("CSV row 1: FOREIGN KEY constraint failed", SQLITE_CONSTRAINT_FOREIGNKEY)},
    {"one that may come later and does not",
     "CREATE TABLE p(id INTEGER PRIMARY KEY); CREATE TABLE t(a REFERENCES p DEFERRABLE INITIALLY DEFERRED)",
     "a\n1\n",
     {},
     DatabaseError("FOREIGN KEY constraint failed [COMMIT]", SQLITE_CONSTRAINT_FOREIGNKEY)},
    {"a trigger that refuses",
     "CREATE TABLE t(a); CREATE TRIGGER x BEFORE INSERT ON t WHEN new.a = '3' BEGIN "
     "SELECT RAISE(ROLLBACK, 'no threes'); END",
     "a\n" + lines(4),
     {},
     DatabaseError("CSV row 3: no threes", SQLITE_CONSTRAINT_TRIGGER)},
    {"a trigger on what is gone",
     "CREATE TABLE t(a); CREATE TABLE u(a); CREATE TRIGGER x AFTER INSERT ON t BEGIN "
     "INSERT INTO u VALUES (1); END; DROP TABLE u",
     "a\n1\n",
     {},
     DatabaseError("no such table: main.u")},
    {"bytes that are no text",
     "CREATE TABLE t(a)",
     "a\n1\n\xFF\n",
     {},
     DatabaseError("The CSV encoding is invalid. Choose the matching encoding.")},
    {"the same before the table is made",
     "",
     "a\n1\n\xFF\n",
     {},
     DatabaseError("The CSV encoding is invalid. Choose the matching encoding.")},
    {"a quote that never ends",
     "CREATE TABLE t(a)",
     "a\n1\n\"2\n",
     {},
     DatabaseError("The CSV contains an unterminated quoted field.")},
    {"a field beyond 16 MiB",
     "CREATE TABLE t(a)",
     "a\n1\n" + std::string(16 * mebibyte + 1, 'x'),
     {},
     DatabaseError("A CSV field exceeds the 16777216-byte import limit.")},
    {"a name with a NUL",
     "",
     "a\0b\n1\n"s,
     {},
     DatabaseError("unrecognized token: \"\"a\" [CREATE TABLE \"t\" (\"a\0b\" INTEGER)]"s, SQLITE_ERROR)},
};

TEST(FileTransferImport, FailsWholeAndSaysWhere) {
  for (FailureCase const& each : failures) {
    SCOPED_TRACE(each.says);
    std::string const sql = each.sql;
    ImportScene scene(sql.empty() ? "PRAGMA user_version = 1" : sql);
    std::string const before = scene.tables();
    EXPECT_EQ(failureOf([&] {
                sql.empty() ? scene.intoNew(each.csv, each.options) : scene.intoTable(each.csv, each.options);
              }),
              each.failure);
    EXPECT_EQ(scene.tables(), before);
    if (!sql.empty()) {
      EXPECT_EQ(scene.rows("SELECT count(*) FROM t"), "0");
    }
  }
}

TEST(FileTransferImport, TellsAPersonThatAConstraintIsViolated) {
  ImportScene scene("CREATE TABLE t(a UNIQUE)");
  EXPECT_EQ(failureOf([&] { scene.intoTable("a\n1\n1\n"); }).errorDescription(),
            "That change violates a database constraint. CSV row 2: UNIQUE constraint failed: t.a");
}

TEST(FileTransferImport, LeavesWhatWasThereOnAFailure) {
  ImportScene scene("CREATE TABLE t(a INTEGER UNIQUE); INSERT INTO t VALUES (700)");
  EXPECT_EQ(failureOf([&] { scene.intoTable("a\n" + lines(1000)); }).detail,
            "CSV row 700: UNIQUE constraint failed: t.a");
  EXPECT_EQ(scene.told, Told{500});
  EXPECT_EQ(scene.rows(), "700");
}

TEST(FileTransferImport, RefusesATableThatIsNotAsItWasRead) {
  ImportScene scene("CREATE TABLE t(a, b)");
  TableSchema const schema = schemaOf(scene.database.path(), "t");
  auto const file = scene.folder.write("in.csv", "a,b\n1,2\n");
  scene.database.run("ALTER TABLE t DROP COLUMN b");
  EXPECT_EQ(failureOf([&] { scene.import(file, schema); }), DatabaseError("table t has no column named b"));
  EXPECT_EQ(scene.rows(), "");
  scene.database.run("DROP TABLE t");
  EXPECT_EQ(failureOf([&] { scene.import(file, schema); }), DatabaseError("no such table: t"));
  EXPECT_EQ(scene.tables(), "");
}

TEST(FileTransferImport, NeverMakesATableTwice) {
  ImportScene scene("CREATE TABLE T(a)");
  EXPECT_EQ(failureOf([&] { scene.intoNew("a\n1\n"); }),
            DatabaseError("table \"t\" already exists [CREATE TABLE \"t\" (\"a\" INTEGER)]"));
  EXPECT_EQ(scene.rows(), "");
}

TEST(FileTransferImport, DoesNotInsertIntoAView) {
  ImportScene scene("CREATE VIEW t AS SELECT 1 AS a");
  auto const file = scene.folder.write("in.csv", "a\n1\n");
  EXPECT_EQ(failureOf([&] { scene.import(file, schemaOf(scene.database.path(), "t", "view")); }),
            DatabaseError("cannot modify t because it is a view"));
}

/// Names n1 to n`count` as a header.
std::string header(int count) {
  std::string names;
  for (int name = 1; name <= count; ++name) names += (name == 1 ? "n" : ",n") + std::to_string(name);
  return names + "\n";
}

TEST(FileTransferImport, TakesAsManyColumnsAsSQLiteDoes) {
  ImportScene scene;
  EXPECT_EQ(scene.intoNew(header(2000) + std::string(1999, ',') + "\n"), 1);
  EXPECT_EQ(scene.rows("SELECT count(*) FROM pragma_table_info('t')"), "2000");
  scene.database.run("DROP TABLE t");
  for (int const count : {2001, 40'000}) {
    auto const failure = failureOf([&] { scene.intoNew(header(count)); });
    EXPECT_TRUE(failure.detail.starts_with("too many columns on t [CREATE TABLE ")) << failure.detail.substr(0, 100);
  }
  EXPECT_EQ(scene.tables(), "");
}

/// Nothing but delimiters: each byte is one more field.
TEST(FileTransferImport, TellsOfARowOfMillionsOfFieldsInFewWords) {
  std::string const delimiters(1'000'000, ',');
  ImportScene fresh;
  DatabaseError const failure = failureOf([&] { fresh.intoNew(delimiters, noHeader); });
  EXPECT_TRUE(failure.detail.starts_with("too many columns on t [CREATE TABLE \"t\" (\"column_1\" INTEGER,"));
  EXPECT_LT(failure.detail.size(), 100'000U);
  EXPECT_EQ(failureOf([&] { fresh.intoNew(delimiters); }).detail, "CSV column names must be nonempty and unique.");
  EXPECT_EQ(failureOf([&] { fresh.intoNew(delimiters + "\n1,2\n", noHeader); }).detail,
            "CSV row has an unexpected number of fields.");
  ImportScene scene("CREATE TABLE t(a, b)");
  EXPECT_EQ(failureOf([&] { scene.intoTable(delimiters, noHeader); }).detail,
            "CSV row 1 has 1000001 fields; expected 2.");
  EXPECT_EQ(failureOf([&] { scene.intoTable(header(100'000)); }).detail,
            "CSV headers must match editable destination columns.");
  EXPECT_EQ(failureOf([&] { scene.intoTable("a,b," + header(100'000) + "1\n"); }).detail,
            "CSV headers must match editable destination columns.");
  std::string twice = header(100'000);
  twice.back() = ',';
  EXPECT_EQ(failureOf([&] { scene.intoTable(twice + "N1\n"); }).detail,
            "CSV column names must be nonempty and unique.");
}

TEST(FileTransferImport, TakesAFieldAndANameOf16MiB) {
  std::string const most(16 * mebibyte, 'x');
  for (bool const fresh : {true, false}) {
    ImportScene scene(fresh ? "PRAGMA user_version = 1" : "CREATE TABLE t(a TEXT, b NUMERIC)");
    std::string const csv = "a,b\n" + most + "," + std::string(16 * mebibyte - 1, '1') + "x\n";
    EXPECT_EQ(fresh ? scene.intoNew(csv) : scene.intoTable(csv), 1);
    EXPECT_EQ(scene.rows("SELECT length(a), length(b), typeof(b) FROM t"), "16777216|16777216|text");
  }
  ImportScene scene;
  EXPECT_EQ(scene.intoNew(most + "\n1\n"), 1);
  EXPECT_EQ(scene.rows(), "1");
  scene.database.run("DROP TABLE t");
  std::string header = most;
  for (char const letter : {'a', 'b', 'c', 'd'}) header += "," + std::string(16 * mebibyte, letter);
  DatabaseError const failure = failureOf([&] { scene.intoNew(header); });
  EXPECT_EQ(failure.detail.substr(0, 26), "out of memory [CREATE TABL");
  EXPECT_EQ(failure.code, SQLITE_NOMEM);
  EXPECT_EQ(scene.tables(), "");
}

// Order of what is done ---------------------------------------------------------------------------------

TEST(FileTransferImport, OpensTheDatabaseBeforeTheFile) {
  TemporaryFolder const folder;
  FileTransfer transfer;
  auto const import = [&](std::filesystem::path const& database) {
    transfer.importCSV(
        folder / "absent.csv", database, "t", {}, {}, [](std::int64_t) {}, noTask);
  };
  EXPECT_EQ(failureOf([&] { import(folder / "absent.db"); }),
            DatabaseError("unable to open database file", SQLITE_CANTOPEN));
  EXPECT_EQ(folder.names(), std::vector<std::string>());
  TemporaryDatabase const database(folder, "a.db", "CREATE TABLE t(a)");
  EXPECT_EQ(systemFailureOf([&] { import(database.path()); }), "ENOENT absent.csv");
}

TEST(FileTransferImport, LooksAtTheNamesBeforeTheRows) {
  ImportScene scene("CREATE TABLE t(a)");
  EXPECT_EQ(failureOf([&] { scene.intoNew("a,a\n1\n"); }).detail, "CSV column names must be nonempty and unique.");
  EXPECT_EQ(failureOf([&] { scene.intoTable("b,B\n1\n"); }).detail, "CSV column names must be nonempty and unique.");
  // And at all rows before it makes the table, which is there.
  EXPECT_EQ(failureOf([&] { scene.intoNew("a\n1,2\n"); }).detail, "CSV row has an unexpected number of fields.");
}

TEST(FileTransferImport, TellsEach500thRowAndTheLast) {
  struct {
    int rows;
    Told told;
  } const cases[] = {{1, {1}},
                     {499, {499}},
                     {500, {500, 500}},
                     {501, {500, 501}},
                     {1000, {500, 1000, 1000}},
                     {1001, {500, 1000, 1001}}};
  for (auto const& each : cases) {
    SCOPED_TRACE(each.rows);
    for (CSVOptions const& options : {CSVOptions{}, noHeader}) {
      ImportScene scene("CREATE TABLE t(a)");
      EXPECT_EQ(scene.intoTable((options.header ? "a\n" : "") + lines(each.rows), options), each.rows);
      EXPECT_EQ(scene.told, each.told);
    }
    ImportScene scene;
    EXPECT_EQ(scene.intoNew("a\n" + lines(each.rows)), each.rows);
    EXPECT_EQ(scene.told, each.told);
  }
}

TEST(FileTransferImport, CommitsBeforeItTellsTheLastCount) {
  ImportScene scene("CREATE TABLE t(a)");
  std::string seen;
  scene.whenTold = [&](std::int64_t) { seen += scene.rows("SELECT count(*) FROM t") + " "; };
  scene.intoTable("a\n" + lines(501));
  EXPECT_EQ(seen, "0 501 ");
}

TEST(FileTransferImport, RollsBackWhenTheProgressThrows) {
  ImportScene scene("CREATE TABLE t(a)");
  scene.whenTold = [](std::int64_t) { throw std::runtime_error("the window is gone"); };
  EXPECT_THROW(scene.intoTable("a\n" + lines(501)), std::runtime_error);
  EXPECT_EQ(scene.rows(), "");
}

TEST(FileTransferImport, RollsBackWhateverTheProgressThrows) {
  ImportScene scene("CREATE TABLE t(a)");
  scene.whenTold = [](std::int64_t count) { throw count; };
  EXPECT_THROW(scene.intoTable("a\n" + lines(501)), std::int64_t);
  EXPECT_EQ(scene.rows(), "");
}

TEST(FileTransferImport, NeedsNoProgress) {
  ImportScene scene("CREATE TABLE t(a)");
  auto const file = scene.folder.write("in.csv", "a\n" + lines(501));
  auto const schema = schemaOf(scene.database.path(), "t");
  EXPECT_EQ(scene.transfer.importCSV(file, scene.database.path(), "t", schema, {}, {}, noTask), 501);
  EXPECT_EQ(scene.rows("SELECT count(*) FROM t"), "501");
}

// Databases that are not written ------------------------------------------------------------------------

TEST(FileTransferImport, NeedsADatabaseThatItMayWrite) {
  ImportScene scene("CREATE TABLE t(a)");
  auto const schema = schemaOf(scene.database.path(), "t");
  auto const rows = scene.folder.write("rows.csv", "a\n1\n");
  auto const empty = scene.folder.write("empty.csv", "");
  scene.folder.openToEverybody();
  std::filesystem::permissions(scene.database.path(), std::filesystem::perms(0444));
  std::string const told = asUnprivileged([&] {
    DatabaseError const failure = failureOf([&] { scene.import(rows, schema); });
    std::int64_t const none = scene.import(empty, schema);
    return std::to_string(failure.code) + " " + failure.detail + ", " + std::to_string(none);
  });
  EXPECT_EQ(told, "8 CSV row 1: attempt to write a readonly database, 0");
  EXPECT_EQ(scene.rows(), "");
}

TEST(FileTransferImport, RefusesASnapshot) {
  TemporaryFolder const folder;
  Environment const home("XDG_DATA_HOME", folder.path());
  std::filesystem::create_directories(folder / "Tolva/Snapshots");
  TemporaryDatabase const snapshot(folder, "Tolva/Snapshots/database.sqlite", "CREATE TABLE t(a)");
  auto const import = [&] {
    FileTransfer().importCSV(folder.write("in.csv", "a\n1\n"), snapshot.path(), "t", {}, {}, {}, noTask);
  };
  EXPECT_EQ(failureOf(import), DatabaseError("Historical snapshots cannot be modified.", SQLITE_READONLY));
}

// A file that is none, or changes -------------------------------------------------------------------------

TEST(FileTransferImport, RefusesWhatIsNoFile) {
  ImportScene scene;
  std::filesystem::create_directory(scene.folder / "folder");
  ASSERT_EQ(::mkfifo((scene.folder / "pipe").c_str(), 0600), 0);
  EXPECT_EQ(systemFailureOf([&] { scene.import(scene.folder / "folder", {}); }), "EINVAL folder");
  EXPECT_EQ(systemFailureOf([&] { scene.import(scene.folder / "pipe", {}); }), "EINVAL pipe");
  EXPECT_EQ(systemFailureOf([&] { scene.import(scene.folder / "absent", {}); }), "ENOENT absent");
  EXPECT_EQ(scene.tables(), "");
}

/// A file of 1,000 rows and 200 KB, of which the inference has read more than the first chunk when the main stream,
/// which holds the first chunk since the beginning, goes on.
std::string longRows() {
  std::string csv = "a,b\n";
  for (int row = 1; row <= 1000; ++row) csv += std::to_string(row) + "," + std::string(200, 'x') + "\n";
  return csv;
}

/// The file is changed behind the first 500 rows, by which time all of its types are known.
TEST(FileTransferImport, NoticesAFileThatChangesUnderIt) {
  ImportScene scene;
  auto const file = scene.folder / "in.csv";
  scene.whenTold = [&](std::int64_t count) {
    if (count == 500) std::filesystem::resize_file(file, 150'000);
  };
  std::string const whole = longRows();
  std::int64_t const kept = std::count(whole.begin(), whole.begin() + 150'000, '\n');  // the header, but a cut last row
  EXPECT_EQ(scene.intoNew(whole), kept) << "a file that ends within the last field is whole";
  EXPECT_EQ(scene.rows("SELECT typeof(a), count(*) FROM t"), "integer|" + std::to_string(kept));

  scene.database.run("DROP TABLE t");
  scene.whenTold = [&](std::int64_t count) {
    if (count != 500) return;
    std::fstream stream(file);
    stream.seekp(150'000);
    stream << "\n1\n";
  };
  EXPECT_TRUE(failureOf([&] { scene.intoNew(longRows()); }).detail.ends_with(" has 1 fields; expected 2."));
  EXPECT_EQ(scene.tables(), "");

  // A value that no longer fits the type is bound as any other.
  scene.whenTold = [&](std::int64_t count) {
    if (count != 500) return;
    std::fstream stream(file);
    stream.seekp(150'000);
    stream << "\nz,";
  };
  EXPECT_EQ(scene.intoNew(longRows()), 1001);
  EXPECT_EQ(scene.rows("SELECT typeof(a), count(*) FROM t GROUP BY 1"), "integer|1000\ntext|1");
}

TEST(FileTransferImport, GoesOnWithTheFileThatItOpened) {
  ImportScene scene("CREATE TABLE t(a, b)");
  scene.whenTold = [&](std::int64_t) {
    scene.folder.write("other.csv", "a,b\n7,7\n");
    std::filesystem::rename(scene.folder / "other.csv", scene.folder / "in.csv");
  };
  EXPECT_EQ(scene.intoTable(longRows()), 1000);
}

// Cancelling ------------------------------------------------------------------------------------------------

TEST(FileTransferImport, EndsWhenItsTaskIsCancelled) {
  for (bool const fresh : {true, false}) {
    ImportScene scene(fresh ? "PRAGMA user_version = 1" : "CREATE TABLE t(a)");
    auto const file = scene.folder.write("in.csv", "a\n" + lines(2000));
    auto const schema = fresh ? std::nullopt : std::optional(schemaOf(scene.database.path(), "t"));
    std::string const before = scene.tables();
    std::stop_source early;
    early.request_stop();
    EXPECT_THROW(scene.import(file, schema, {}, early.get_token()), TaskCancelled);
    EXPECT_EQ(scene.told, Told{});
    std::stop_source late;
    scene.whenTold = [&](std::int64_t count) {
      if (count == 1000) late.request_stop();
    };
    EXPECT_THROW(scene.import(file, schema, {}, late.get_token()), TaskCancelled);
    EXPECT_EQ(scene.told, (Told{500, 1000}));
    EXPECT_EQ(scene.tables(), before);
    if (!fresh) {
      EXPECT_EQ(scene.rows(), "");
    }
    scene.whenTold = {};
    EXPECT_EQ(scene.import(file, schema), 2000) << "the service goes on";
  }
}

TEST(FileTransferImport, EndsWhenItIsCancelledBehindItsLastRow) {
  ImportScene scene("CREATE TABLE t(a)");
  auto const file = scene.folder.write("in.csv", "a\n" + lines(500));
  std::stop_source cancelled;
  scene.whenTold = [&](std::int64_t) { cancelled.request_stop(); };
  EXPECT_THROW(scene.import(file, schemaOf(scene.database.path(), "t"), {}, cancelled.get_token()), TaskCancelled);
  EXPECT_EQ(scene.told, Told{500}) << "and not their number once more";
  EXPECT_EQ(scene.rows(), "");
}

/// The last call of the progress comes when all is committed: to cancel then undoes nothing.
TEST(FileTransferImport, IsNotUndoneWhenItIsCancelledAtItsEnd) {
  ImportScene scene("CREATE TABLE t(a)");
  std::stop_source late;
  scene.whenTold = [&](std::int64_t) { late.request_stop(); };
  EXPECT_EQ(
      scene.import(scene.folder.write("in.csv", "a\n1\n"), schemaOf(scene.database.path(), "t"), {}, late.get_token()),
      1);
  EXPECT_EQ(scene.rows(), "1");
}

/// The row takes for ever, so that the cancel meets it. A cancel that meets no statement is forgotten: hence many.
TEST(FileTransferImport, EndsWhenItsStatementIsCancelled) {
  ImportScene scene(
      "CREATE TABLE t(a); CREATE TRIGGER x AFTER INSERT ON t WHEN new.a = '501' BEGIN SELECT count(*) FROM ("
      "WITH RECURSIVE n(i) AS (SELECT 1 UNION ALL SELECT i + 1 FROM n) SELECT i FROM n); END");
  std::jthread canceller;
  scene.whenTold = [&](std::int64_t) {
    canceller = std::jthread([&](std::stop_token const& done) {
      while (!done.stop_requested()) {
        scene.transfer.cancellation()->cancel();
        std::this_thread::yield();
      }
    });
  };
  auto const failure = failureOf([&] { scene.intoTable("a\n" + lines(501)); });
  EXPECT_EQ(failure, DatabaseError("CSV row 501: interrupted", SQLITE_INTERRUPT));
  EXPECT_EQ(failure.errorDescription(), "Cancelled");
  EXPECT_EQ(scene.told, Told{500});
  EXPECT_EQ(scene.rows(), "");
}

/// The progress may wait for a thread that cancels.
TEST(FileTransferImport, HoldsNothingThatACancelWaitsForWhileItTells) {
  ImportScene scene("CREATE TABLE t(a)");
  scene.whenTold = [&](std::int64_t) { std::thread([&] { scene.transfer.cancellation()->cancel(); }).join(); };
  EXPECT_EQ(scene.intoTable("a\n" + lines(501)), 501) << "no statement ran, so there was none to cancel";
}

TEST(FileTransferImport, RunsOneAfterTheOther) {
  ImportScene scene("CREATE TABLE t(a)");
  auto const file = scene.folder.write("in.csv", "a\n" + lines(1000));
  auto const schema = schemaOf(scene.database.path(), "t");
  auto const import = [&] {
    scene.transfer.importCSV(
        file, scene.database.path(), "t", schema, {}, [](std::int64_t) {}, noTask);
  };
  {
    std::jthread const one(import);
    std::jthread const two(import);
  }
  EXPECT_EQ(scene.rows("SELECT count(*) FROM t"), "2000");
}

}  // namespace
}  // namespace tolva
