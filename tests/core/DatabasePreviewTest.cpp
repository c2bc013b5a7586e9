// SPDX-License-Identifier: Apache-2.0
#include <gtest/gtest.h>
#include <sqlite3.h>

#include <chrono>
#include <filesystem>
#include <string>

#include "core/DatabaseReader.hpp"
#include "core/MemoryBudget.hpp"
#include "platform/DateText.hpp"
#include "platform/FileSizeText.hpp"
#include "support/Corpora.hpp"
#include "support/Failure.hpp"
#include "support/NoTask.hpp"
#include "support/SQLitePeer.hpp"
#include "support/SchemaPages.hpp"
#include "support/TemporaryDatabase.hpp"
#include "support/TemporaryFolder.hpp"
#include "support/Unprivileged.hpp"

// The preview of a file as a reader gives it.

namespace tolva {
namespace {

constexpr auto modified = std::chrono::sys_seconds(std::chrono::seconds(1'794'778'860));

std::ptrdiff_t openDescriptors() { return std::distance(std::filesystem::directory_iterator("/proc/self/fd"), {}); }

class DatabasePreview : public testing::Test {
 protected:
  /// The preview of a file "t.db" that `sql` makes.
  std::string previewOf(std::string const& sql) {
    std::filesystem::remove(path);
    TemporaryDatabase const database(folder, "t.db", sql);
    return preview();
  }

  std::string preview() {
    std::filesystem::last_write_time(path, std::chrono::file_clock::from_sys(modified));
    return reader.preview(path, noTask);
  }

  void expectPreviewOfATable() {
    std::string const text = previewOf("CREATE TABLE t(a)");
    EXPECT_EQ(text, summary("1 tables · 0 views · 0 indexes", "t"));
  }

  /// The text for `path` as it is now.
  std::string summary(std::string const& counts, std::string const& tables) const {
    std::string const size = fileSizeText(static_cast<std::int64_t>(std::filesystem::file_size(path)));
    return "t.db\nSQLite Database\n\n" + counts + "\n" + size + "\n\nTABLES\n" + tables + "\n\nModified " +
           dateText(modified);
  }

  TemporaryFolder const folder;
  std::filesystem::path const path = folder / "t.db";
  DatabaseReader reader;
};

// What is told -------------------------------------------------------------------------------------

TEST_F(DatabasePreview, CountsTheObjectsOfTheSchema) {
  struct CountCase {
    char const* says;
    char const* sql;
    char const* counts;
    char const* tables;
  };
  CountCase const schemas[] = {
      {"an empty database", "CREATE TABLE t(a); DROP TABLE t; VACUUM", "0 tables · 0 views · 0 indexes", ""},
      {"one of each", "CREATE TABLE t(a); CREATE INDEX i ON t(a); CREATE VIEW v AS SELECT a FROM t",
       "1 tables · 1 views · 1 indexes", "t"},
      {"names ignoring case", "CREATE TABLE gamma(a); CREATE TABLE Beta(a); CREATE TABLE alpha(a)",
       "3 tables · 0 views · 0 indexes", "alpha\nBeta\ngamma"},
      {"triggers nowhere", "CREATE TABLE t(a); CREATE TRIGGER r AFTER INSERT ON t BEGIN SELECT 1; END",
       "1 tables · 0 views · 0 indexes", "t"},
      {"automatic indexes not", "CREATE TABLE t(a UNIQUE, b TEXT PRIMARY KEY); CREATE INDEX i ON t(a)",
       "1 tables · 0 views · 1 indexes", "t"},
      {"SQLite's own tables not",
       "CREATE TABLE t(a INTEGER PRIMARY KEY AUTOINCREMENT, b); INSERT INTO t(b) VALUES (1);"
       "CREATE INDEX i ON t(b); ANALYZE",
       "1 tables · 0 views · 1 indexes", "t"},
      {"names that only resemble them", "CREATE TABLE sqlite(a); CREATE TABLE sqliteX(a); CREATE TABLE \"sqlite-\"(a)",
       "3 tables · 0 views · 0 indexes", "sqlite\nsqlite-\nsqliteX"},
      {"a prefix in capitals",
       "PRAGMA writable_schema = ON; CREATE TABLE t(a);"
       "UPDATE sqlite_schema SET name = 'SQLITE_t', tbl_name = 'SQLITE_t', sql = 'CREATE TABLE SQLITE_t(a)'",
       "1 tables · 0 views · 0 indexes", "SQLITE_t"},
      {"a virtual table with its shadows", "CREATE VIRTUAL TABLE f USING fts5(a)", "6 tables · 0 views · 0 indexes",
       "f\nf_config\nf_content\nf_data\nf_docsize\nf_idx"},
      {"names of many lines and none", "CREATE TABLE \"a\nb\"(x); CREATE TABLE \"\"(x); CREATE TABLE \" \"(x)",
       "3 tables · 0 views · 0 indexes", "\n \na\nb"},
      {"invalid UTF-8 as replaced", "CREATE TABLE \"\xff\xc3\"(x)", "1 tables · 0 views · 0 indexes", "\uFFFD\uFFFD"},
  };
  for (CountCase const& each : schemas) {
    SCOPED_TRACE(each.says);
    std::string const text = previewOf(each.sql);
    EXPECT_EQ(text, summary(each.counts, each.tables));
  }
}

std::string manyTables(int count) {
  std::string sql = "PRAGMA page_size = 512; BEGIN;";
  for (int table = count; table >= 1; --table) sql += "CREATE TABLE t" + std::to_string(1000 + table) + "(a);";
  return sql + "COMMIT";
}

std::string firstNames(int count) {
  std::string names;
  for (int table = 1; table <= count; ++table) names += (table > 1 ? "\nt" : "t") + std::to_string(1000 + table);
  return names;
}

TEST_F(DatabasePreview, NamesAHundredTablesAndThenAnEllipsis) {
  std::string const hundred = previewOf(manyTables(100));
  EXPECT_EQ(hundred, summary("100 tables · 0 views · 0 indexes", firstNames(100)));
  std::string const more = previewOf(manyTables(101));
  EXPECT_EQ(more, summary("101 tables · 0 views · 0 indexes", firstNames(100) + "\n\u2026"));
}

TEST_F(DatabasePreview, ShowsANameAboveTheInlineLimitAsItsSize) {
  std::string const longest(65'536, 'n');
  std::string const whole = previewOf("CREATE TABLE \"" + longest + "\"(a)");
  EXPECT_TRUE(whole == summary("1 tables · 0 views · 0 indexes", longest));
  std::string const shortened = previewOf("CREATE TABLE \"" + longest + "n\"(a)");
  EXPECT_EQ(shortened, summary("1 tables · 0 views · 0 indexes", "Large Text · 66 KB"));
}

/// SQLite takes the name of an automatic index for what the entry is, whatever its type says.
SchemaEntry keptEntry(std::string const& type, std::string const& name = "SQLITE_autoindex_t_1") {
  return {.type = type, .name = name, .table = "t", .rootPage = 3};
}

TEST_F(DatabasePreview, GoesByTheWordsOfTheTypes) {
  struct TypeCase {
    char const* type;
    char const* counts;
    char const* tables;
  };
  TypeCase const types[] = {
      {"view", "1 tables · 1 views · 0 indexes", "t"},
      {"index", "1 tables · 0 views · 1 indexes", "t"},
      {"table", "2 tables · 0 views · 0 indexes", "SQLITE_autoindex_t_1\nt"},
      {"View", "1 tables · 0 views · 0 indexes", "t"},
      {"", "1 tables · 0 views · 0 indexes", "t"},
      {"table\n", "1 tables · 0 views · 0 indexes", "t"},
      {"materialized view", "1 tables · 0 views · 0 indexes", "t"},
  };
  for (TypeCase const& each : types) {
    SCOPED_TRACE(each.type);
    SchemaPages pages;
    pages.append(pages.leaf({pages.cell(keptEntry(each.type))}), 1);
    pages.write(path);
    EXPECT_EQ(preview(), summary(each.counts, each.tables));
  }
}

TEST_F(DatabasePreview, CountsEntriesThatShareTheirPages) {
  SchemaPages pages;
  SchemaPages::Page const leaf = pages.leaf(std::vector(40, pages.cell(keptEntry("view"))));
  pages.append(pages.interior(std::vector(100, leaf)), 5);
  pages.write(path);
  EXPECT_EQ(preview(), summary("1 tables · 20000 views · 0 indexes", "t"));
}

// The reader ---------------------------------------------------------------------------------------

TEST_F(DatabasePreview, NeitherUsesNorChangesTheOpenDatabase) {
  TemporaryDatabase const other("CREATE TABLE mine(id INTEGER PRIMARY KEY); CREATE VIEW v AS SELECT 1");
  auto const objects = reader.open(other.path(), noTask);
  TableSchema const schema = reader.schema(objects.at(0));
  other.run("ALTER TABLE mine ADD COLUMN later");
  expectPreviewOfATable();
  folder.write("t.db", std::string(600, 'x'));
  EXPECT_EQ(failureOf([&] { preview(); }).code, SQLITE_NOTADB);
  EXPECT_EQ(reader.schema(objects.at(0)), schema) << "what was remembered still is";
  EXPECT_EQ(reader.objects().size(), 2);
}

TEST_F(DatabasePreview, NeedsNoOpenDatabaseAndOpensNone) {
  expectPreviewOfATable();
  EXPECT_EQ(failureOf([&] { reader.objects(); }).detail, "No database is open.");
}

TEST_F(DatabasePreview, LeavesNothingBehindOnAnyPath) {
  struct PathCase {
    char const* says;
    std::string content;
    std::int32_t code;
  };
  TemporaryDatabase const good("CREATE TABLE t(a); INSERT INTO t VALUES (1)");
  std::string bytes = contents(good.path());
  std::string broken = bytes;
  broken.replace(broken.find("CREATE TABLE t(a)"), 6, "CREATX");
  PathCase const paths[] = {{"a preview", bytes, -1},
                            {"no database", std::string(600, 'x'), SQLITE_NOTADB},
                            {"a malformed schema", broken, SQLITE_CORRUPT}};
  for (PathCase const& each : paths) {
    SCOPED_TRACE(each.says);
    folder.write("t.db", each.content);
    auto const descriptors = openDescriptors();
    EXPECT_EQ(failureOf([&] { preview(); }).code & 0xFF, each.code & 0xFF);
    EXPECT_EQ(MemoryBudget::armed(), nullptr);
    EXPECT_EQ(openDescriptors(), descriptors);
    EXPECT_EQ(folder.read("t.db"), each.content);
    EXPECT_EQ(folder.names(), std::vector<std::string>{"t.db"});
    expectPreviewOfATable();
  }
}

// Failures -----------------------------------------------------------------------------------------

TEST_F(DatabasePreview, OfACancelledTaskIsCancelled) {
  TemporaryDatabase const database(folder, "t.db", manyTables(2000));
  std::stop_source task;
  task.request_stop();
  EXPECT_TRUE(failureOf([&] { reader.preview(path, task.get_token()); }).isCancellation());
  EXPECT_EQ(preview().find("2000 tables"), 22) << "the next one is not";
}

TEST_F(DatabasePreview, TellsOfALockAfterTheBusyTimeout) {
  TemporaryDatabase const database(folder, "t.db", "CREATE TABLE t(a)");
  SQLitePeer peer(path);
  ASSERT_EQ(peer.exec("BEGIN EXCLUSIVE"), "ok");
  EXPECT_EQ(failureOf([&] { preview(); }), DatabaseError("database is locked", SQLITE_BUSY));
}

TEST_F(DatabasePreview, OfAFileThatMayNotBeReadIsRefused) {
  TemporaryFolder open;
  open.openToEverybody();
  TemporaryDatabase const database(open, "t.db", "CREATE TABLE t(a)");
  std::filesystem::permissions(database.path(), std::filesystem::perms::none);
  EXPECT_EQ(asUnprivileged([&] {
              return failureOf([&] { DatabaseReader().preview(database.path(), noTask); }).errorDescription();
            }),
            "unable to open database file");
}

TEST_F(DatabasePreview, OfAFileInAFolderThatMayNotBeSearchedIsRefused) {
  TemporaryFolder open;
  open.openToEverybody();
  std::filesystem::create_directory(open / "closed");
  TemporaryDatabase const database(open, "closed/t.db", "CREATE TABLE t(a)");
  std::filesystem::permissions(open / "closed", std::filesystem::perms::none);
  std::string const text = asUnprivileged(
      [&] { return failureOf([&] { DatabaseReader().preview(database.path(), noTask); }).errorDescription(); });
  std::filesystem::permissions(open / "closed", std::filesystem::perms::owner_all);
  EXPECT_EQ(text, "unable to open database file");
}

}  // namespace
}  // namespace tolva
