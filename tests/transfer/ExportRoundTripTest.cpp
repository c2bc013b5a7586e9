// SPDX-License-Identifier: Apache-2.0
// What an export wrote is read by others as what the table holds.
#include <gtest/gtest.h>

#include <sstream>
#include <string_view>

#include "core/SQLIdentifier.hpp"
#include "platform/PlainLocale.hpp"
#include "support/Browsed.hpp"
#include "support/Command.hpp"
#include "support/Corpora.hpp"
#include "transfer/ExportScene.hpp"

namespace tolva {
namespace {

using namespace std::string_literals;

/// `bytes` as a text in SQL, whatever they hold.
std::string literal(std::string_view bytes) {
  constexpr std::string_view digits = "0123456789abcdef";
  std::string text = "CAST(X'";
  for (char const c : bytes) {
    auto const byte = static_cast<unsigned char>(c);
    text += digits[byte >> 4];
    text += digits[byte & 0xF];
  }
  return text + "' AS TEXT)";
}

/// A statement that inserts `texts` into the column `a` of the table t.
std::string insertingTexts(std::vector<std::string> const& texts) {
  std::string rows;
  for (std::string const& text : texts) rows += (rows.empty() ? "(" : ", (") + literal(text) + ")";
  return "; INSERT INTO t(a) VALUES " + rows;
}

std::vector<std::string> naughtyStrings() {
  std::vector<std::string> strings{"",           "\"",      "\"\"", "a,b", "a\r\nb",       "\r",  "\n",      "'",
                                   "\\",         "\\u0000", "=1+1", " x ", "\xEF\xBB\xBF", "é",   "e\u0301", "\u2028",
                                   "\U0001F600", "NULL",    "null", "1",   "1.0",          "0x10"};
  if (corpora().empty()) return strings;
  for (auto const& file : corpusFiles("naughty-strings", ".txt")) {
    std::istringstream lines(contents(file));
    for (std::string line; std::getline(lines, line);) strings.push_back(line);
  }
  return strings;
}

/// The rows of a table: of each value its type and its bytes.
std::string storedValues(std::filesystem::path const& database, TableSchema const& schema) {
  std::string list;
  for (DatabaseColumn const& column : schema.columns) {
    std::string const name = quoteIdentifier(column.name);
    list += (list.empty() ? "typeof(" : ", typeof(") + name + "), hex(" + name + "), " + name;
  }
  return rowsAsText(database, "SELECT " + list + " FROM " + quoteIdentifier(schema.object.name));
}

TEST(FileTransfer, ExportsSQLThatMakesTheSameTableAgain) {
  struct TableCase {
    char const* says;
    std::string sql;
  };
  TableCase const tables[] = {
      {"every storage class in a column of no type",
       "CREATE TABLE t(a); INSERT INTO t VALUES (NULL), (1), (-9223372036854775807 - 1), (9223372036854775807), (0.1), "
       "(1.0), (-0.0), (1e300), (5e-324), (9e999), (-9e999), (1.7976931348623157e308), ('x'), (''), ('1'), ('1.0'), "
       "(X''), (X'00ff'), (CAST(X'610062' AS TEXT)), (CAST(X'FF80' AS TEXT))"},
      {"each affinity",
       "CREATE TABLE t(i INTEGER, r REAL, n NUMERIC, x TEXT, b BLOB); INSERT INTO t VALUES (1, 1, 1, 1, 1), (1.0, 1.0, "
       "1.0, "
       "1.0, 1.0), ('1', '1', '1', '1', '1'), ('x', 'x', 'x', 'x', 'x'), (X'31', X'31', X'31', X'31', X'31'), (9e999, "
       "9e999, 9e999, 9e999, 9e999), (NULL, NULL, NULL, NULL, NULL), (1e300, 0.1, 1e15, 1e15, 1e15), "
       "(9007199254740993, "
       "9007199254740993, 9007199254740993, 9007199254740993, 9007199254740993)"},
      {"a strict table",
       "CREATE TABLE t(i INT, r REAL, x TEXT, b BLOB, a ANY) STRICT; INSERT INTO t VALUES (1, 1, '1', X'31', '001'), "
       "(NULL, "
       "9e999, CAST(X'00' AS TEXT), X'', 1.0)"},
      {"generated columns",
       "CREATE TABLE t(a, v AS (a || 'v'), s AS (length(a)) STORED, b); INSERT INTO t(a, b) VALUES ('x', 1), (NULL, "
       "2)"},
      {"a table WITHOUT ROWID",
       "CREATE TABLE t(k TEXT PRIMARY KEY, a) WITHOUT ROWID; INSERT INTO t VALUES ('b', 1), ('a', 2)"},
      {"naughty strings", "CREATE TABLE t(a)" + insertingTexts(naughtyStrings())},
  };
  for (TableCase const& table : tables) {
    SCOPED_TRACE(table.says);
    ExportScene scene(table.sql);
    TemporaryDatabase const again("BEGIN;" + scene.exported(ExportFormat::sql) + "COMMIT");
    std::string const stored = storedValues(scene.database.path(), scene.schema);
    EXPECT_NE(stored, "");
    EXPECT_EQ(storedValues(again.path(), scene.schema), stored);
  }
}

// Other programs -----------------------------------------------------------------------------------

std::string const everything =
    "CREATE TABLE t(a, b, c, d); INSERT INTO t VALUES (1, 0.1, 'x\"y', NULL), (-9223372036854775807 - 1, 1e300, "
    "char(1, 9, 10, 13, 27, 31, 127), ''), (9223372036854775807, -0.0, 'é/\\', 'z')";

bool isInstalled(char const* program) { return runCommand({"/bin/sh", "-c", "command -v "s + program}).status == 0; }

TEST(FileTransfer, ExportsJSONThatPythonReads) {
  if (!isInstalled("python3")) GTEST_SKIP() << "There is no python3.";
  ExportScene scene(everything + insertingTexts(naughtyStrings()));
  scene.run(ExportFormat::json);
  scene.folder.write("check.py", R"py(
import json, sqlite3, sys
connection = sqlite3.connect(sys.argv[1])
names = [column[1] for column in connection.execute("PRAGMA table_info(t)")]
stored = [dict(zip(names, row)) for row in connection.execute("SELECT * FROM t")]
exported = json.load(open(sys.argv[2], encoding="utf-8"))
assert exported == stored, [pair for pair in zip(exported, stored) if pair[0] != pair[1]]
assert all(type(one[name]) is type(other[name]) for one, other in zip(exported, stored) for name in names)
print(len(exported))
)py");
  auto const checked =
      runCommand({"/usr/bin/env", "python3", scene.folder / "check.py", scene.database.path(), scene.destination});
  EXPECT_EQ(checked.status, 0) << checked.errors;
  EXPECT_EQ(checked.output, scene.database.rows("SELECT count(*) FROM t") + "\n");
}

TEST(FileTransfer, ExportsJSONThatSQLiteReads) {
  ExportScene scene(everything + insertingTexts(naughtyStrings()));
  TemporaryDatabase const other("");
  std::string const document = literal(scene.exported(ExportFormat::json));
  PlainLocale const readsPoints;  // SQLite reads the numbers of JSON as the locale writes them
  EXPECT_EQ(
      other.rows("ATTACH '" + scene.database.path().string() +
                 "' AS source; SELECT count(*), count(*) FILTER (WHERE value ->> 'a' IS a AND value ->> 'b' IS b AND "
                 "value ->> 'c' IS c AND value ->> 'd' IS d) FROM json_each(" +
                 document + ") JOIN source.t ON t.rowid = key + 1"),
      scene.database.rows("SELECT count(*), count(*) FROM t"));
}

TEST(FileTransfer, ExportsCSVThatTheShellImports) {
  if (!isInstalled("sqlite3")) GTEST_SKIP() << "There is no sqlite3 shell.";
  ExportScene scene(
      "CREATE TABLE t(\"a,\"\"\", b); INSERT INTO t VALUES (1, 'x,y'), (NULL, 'say \"\"'), ('line\r\nend', ''), "
      "(X'00FF', 0.5)");
  scene.run(ExportFormat::csv);
  auto const imported = runCommand({"/usr/bin/env", "sqlite3", "-batch", "-init", "/dev/null",
                                    ":memory:", ".import --csv '" + scene.destination.string() + "' t",
                                    "SELECT quote(\"a,\"\"\"), quote(b) FROM t"});
  EXPECT_EQ(imported.status, 0) << imported.errors;
  EXPECT_EQ(imported.output, "'1'|'x,y'\n''|'say \"\"'\n'line\r\nend'|''\n'00FF'|'0.5'\n");
}

TEST(FileTransfer, ExportsCSVThatPythonReads) {
  if (!isInstalled("python3")) GTEST_SKIP() << "There is no python3.";
  ExportScene scene("CREATE TABLE t(a)" + insertingTexts(naughtyStrings()));
  scene.run(ExportFormat::csv);
  scene.folder.write("check.py", R"py(
import csv, sqlite3, sys
stored = [["a"]] + [[row[0]] for row in sqlite3.connect(sys.argv[1]).execute("SELECT a FROM t")]
exported = list(csv.reader(open(sys.argv[2], encoding="utf-8", newline="")))
assert exported == stored, [pair for pair in zip(exported, stored) if pair[0] != pair[1]]
print(len(exported))
)py");
  auto const checked =
      runCommand({"/usr/bin/env", "python3", scene.folder / "check.py", scene.database.path(), scene.destination});
  EXPECT_EQ(checked.status, 0) << checked.errors;
  EXPECT_EQ(checked.output, scene.database.rows("SELECT count(*) + 1 FROM t") + "\n");
}

/// Every table of real databases.
TEST(FileTransfer, ExportsRealTablesAsSQLThatMakesThemAgain) {
  TOLVA_NEEDS_CORPORA();
  std::string const real = corpusFile("sqlite-good/Chinook_Sqlite.sqlite");
  TemporaryFolder const folder;
  std::filesystem::path const file = folder / "real.db";
  std::filesystem::copy_file(real, file);
  DatabaseReader reader;
  FileTransfer transfer;
  std::size_t tables = 0;
  for (DatabaseObject const& object : reader.open(file, noTask)) {
    if (object.kind != "table") continue;
    SCOPED_TRACE(object.name);
    TableSchema const schema = reader.schema(object);
    transfer.exportRows(file, schema, {}, ExportFormat::sql, folder / "out", {}, noTask);
    TemporaryDatabase const again("BEGIN;" + folder.read("out") + "COMMIT");
    EXPECT_TRUE(storedValues(again.path(), schema) == storedValues(file, schema));
    ++tables;
  }
  EXPECT_EQ(tables, 11U);
}

}  // namespace
}  // namespace tolva
