// SPDX-License-Identifier: Apache-2.0
// Paging by keys that SQLite orders or tells apart in ways of its own.
#include "core/KeyOrder.hpp"

#include <gtest/gtest.h>
#include <sqlite3.h>

#include <fstream>

#include "support/Browsed.hpp"
#include "support/Corpora.hpp"
#include "support/Failure.hpp"
#include "support/ValueText.hpp"

namespace tolva {
namespace {

using Values = std::vector<SQLiteValue>;

/// The numbers from `first` to `last` as `Browsed::pagedValues` shows them.
std::string numbers(int first, int last) {
  std::string text;
  for (int number = first; number <= last; ++number) text += (number == first ? "" : " ") + std::to_string(number);
  return text;
}

/// Puts `by` in the place of the one `text` in a file.
void overwrite(std::filesystem::path const& file, std::string const& text, std::string const& by) {
  std::string bytes = contents(file);
  std::size_t const at = bytes.find(text);
  ASSERT_NE(at, bytes.npos);
  ASSERT_EQ(bytes.find(text, at + 1), bytes.npos);
  bytes.replace(at, text.size(), by);
  std::ofstream(file, std::ios::binary) << bytes;
}

// Damage -------------------------------------------------------------------------------------------

TEST(KeyOrder, EndsATableWhoseKeysAreOutOfOrder) {
  struct DamageCase {
    char const* says;
    std::string columns;
    std::string values;
    std::string last, by;  // bytes of the last row's key, and what a damaged file has in their place
    Values before;         // the key of a row in between
  };
  DamageCase const damages[] = {
      {"a text", "k TEXT PRIMARY KEY", "'key' || (i + 100)", "key200", "key109", {"key150"}},
      {"a blob",
       "k BLOB PRIMARY KEY",
       "CAST('key' || (i + 100) AS BLOB)",
       "key200",
       "key109",
       {Bytes{'k', 'e', 'y', '1', '5'}}},
      {"a real",
       "k REAL PRIMARY KEY",
       "i + 90.5",
       {"\x40\x67\xD0\0\0\0\0\0", 8},
       {"\x40\x5B\x60\0\0\0\0\0", 8},
       {150.5}},
      {"a text that ignores case",
       "k TEXT COLLATE NOCASE PRIMARY KEY",
       "'key' || (i + 100)",
       "key200",
       "KEY109",
       {"kEy150"}},
  };
  for (DamageCase const& each : damages) {
    SCOPED_TRACE(each.says);
    Browsed table("PRAGMA page_size = 4096; CREATE TABLE t(" + each.columns + ") WITHOUT ROWID" +
                  inserting("t", each.values, 100));
    overwrite(table.database.path(), each.last, each.by);
    DatabaseReader reader;
    reader.open(table.database.path(), noTask);
    RowPage const page = reader.page(table.schema, {}, {}, noTask);
    ASSERT_EQ(page.rows.size(), 100);
    for (PageToken const& token : {*page.next, PageToken{.identity = each.before, .offset = 60}}) {
      EXPECT_EQ(failureOf([&] { reader.page(table.schema, {}, token, noTask); }),
                DatabaseError("database disk image is malformed", SQLITE_CORRUPT));
    }
  }
}

/// Each row is compared with a key of several columns, whatever stands around it.
TEST(KeyOrder, NeverGoesBackBehindAKeyOfSeveralColumns) {
  Browsed table("CREATE TABLE t(a INTEGER, k TEXT, PRIMARY KEY (a, k)) WITHOUT ROWID" +
                inserting("t", "7, 'key' || (i + 100)", 100));
  overwrite(table.database.path(), "key200", "key109");
  DatabaseReader reader;
  reader.open(table.database.path(), noTask);
  std::optional<PageToken> token = reader.page(table.schema, {}, {}, noTask).next;
  int pages = 1;
  for (; token && pages < 10; ++pages) token = reader.page(table.schema, {}, token, noTask).next;
  EXPECT_LE(pages, 4);
}

TEST(KeyOrder, TakesNoSoundTableForDamaged) {
  struct SoundCase {
    char const* says;
    std::string sql;
  };
  SoundCase const tables[] = {
      {"ignoring case", "CREATE TABLE t(k TEXT COLLATE NOCASE PRIMARY KEY) WITHOUT ROWID" +
                            inserting("t", "char(65 + i % 2 * 32) || printf('%05d', i)", 1'100)},
      {"ignoring blanks", "CREATE TABLE t(k TEXT COLLATE RTRIM PRIMARY KEY) WITHOUT ROWID" +
                              inserting("t", "printf('%05d', i) || substr('   ', 1, i % 3)", 1'100)},
      {"by the bytes of UTF-16", "PRAGMA encoding = 'UTF-16le'; CREATE TABLE t(k TEXT PRIMARY KEY) WITHOUT ROWID" +
                                     inserting("t", "char(0x10000 + i * 37) || char(0xFF00 + i % 200)", 1'100)},
      {"of all types", "CREATE TABLE t(k PRIMARY KEY) WITHOUT ROWID" +
                           inserting("t",
                                     "CASE i % 4 WHEN 0 THEN i WHEN 1 THEN i + 0.5 WHEN 2 THEN 'x' || i ELSE "
                                     "CAST(i AS BLOB) END",
                                     1'100)},
      {"descending",
       "CREATE TABLE t(a INTEGER, b, PRIMARY KEY (a DESC, b)) WITHOUT ROWID" + inserting("t", "i / 7, i", 1'100)},
      {"equal in the first",
       "CREATE TABLE t(a INTEGER, b, PRIMARY KEY (a, b)) WITHOUT ROWID" + inserting("t", "5, i", 1'100)},
      {"large integers beside reals",
       "CREATE TABLE t(k PRIMARY KEY) WITHOUT ROWID" + inserting("t", "9007199254740990 + i", 1'100)},
  };
  for (SoundCase const& each : tables) {
    SCOPED_TRACE(each.says);
    EXPECT_EQ(Browsed(each.sql).pageSizes(), (std::vector<std::size_t>{500, 500, 100, 0}));
  }
}

/// The column's type turns what the token holds into what is stored, and so must whoever compares the two.
TEST(KeyOrder, TakesATokenOfAnotherTypeForNoDamage) {
  Browsed table("CREATE TABLE t(id INTEGER PRIMARY KEY)" + inserting("t", "i", 20));
  EXPECT_EQ(table.page({}, PageToken{.identity = {"5"}, .offset = 5}).rows.size(), 15);
  Browsed texts("CREATE TABLE t(k TEXT PRIMARY KEY) WITHOUT ROWID" + inserting("t", "i + 10", 20));
  EXPECT_EQ(texts.page({}, PageToken{.identity = {15}, .offset = 5}).rows.size(), 15);
}

TEST(KeyOrder, PagesByOffsetBehindATokenOfAnotherShape) {
  Browsed table("CREATE TABLE t(a); INSERT INTO t VALUES (1), (2)");
  EXPECT_EQ(table.page({}, PageToken{.identity = {100, 2}, .offset = 0}).rows.size(), 2);
  EXPECT_EQ(table.page(sortedBy("a"), PageToken{.identity = {100}, .offset = 0}).rows.size(), 2);
}

TEST(KeyOrder, TakesRowsInsertedInFrontForNoDamage) {
  Browsed table("CREATE TABLE t(a INTEGER, k BLOB, PRIMARY KEY (a, k)) WITHOUT ROWID" +
                inserting("t", "1000 + i, zeroblob(70000)", 520));
  RowPage const first = table.page();
  ASSERT_TRUE(first.next->identity.at(1).isDeferred());
  table.database.run("SELECT 1" + inserting("t", "-i, x'00'", 1'100));
  EXPECT_EQ(table.page({}, first.next).rows.size(), 500);
}

TEST(KeyOrder, RefusesAnOffsetThatNoRowStandsBehind) {
  Browsed table("CREATE TABLE t(a); INSERT INTO t VALUES (1), (2)");
  PageToken const last{.identity = {0}, .offset = INT64_MAX};
  EXPECT_THROW(table.page({}, last), std::out_of_range);
  EXPECT_EQ(table.page({}, PageToken{.identity = {0}, .offset = INT64_MAX - 2}).next->offset, INT64_MAX);
}

// Keys that cannot be gone on behind ---------------------------------------------------------------

/// Halves of characters, which SQLite joins into other characters when it hands the text on.
TEST(KeyOrder, ShowsKeysOfInvalidUTF16Once) {
  struct KeyCase {
    char const* says;
    std::string encoding;
    std::string keys;  // of rows 500 and up, as SQL
    int last;
  };
  KeyCase const keys[] = {
      {"a half that takes the next character with it", "UTF-16le", "(CAST(x'FFDC00E0' AS TEXT), 500)", 500},
      {"the same in the other order of bytes", "UTF-16be", "(CAST(x'DCFFE000' AS TEXT), 500)", 500},
      {"halves at the end", "UTF-16le",
       "(CAST(x'FFD84100' AS TEXT), 500), (CAST(x'FFD84100FFD8' AS TEXT), 501), (CAST(x'FFD84200' AS TEXT), 502)", 502},
  };
  for (KeyCase const& each : keys) {
    SCOPED_TRACE(each.says);
    Browsed table("PRAGMA encoding = '" + each.encoding + "'; CREATE TABLE t(i, k TEXT PRIMARY KEY) WITHOUT ROWID" +
                  inserting("t", "i, printf('%05d', i)", 499) + "; INSERT INTO t(k, i) VALUES " + each.keys);
    EXPECT_EQ(table.pagedValues(), numbers(1, each.last));
  }
}

/// Half a unit, which SQLite drops when it hands the text on; only damage makes such a text.
TEST(KeyOrder, ShowsAKeyOfOddLengthInUTF16Once) {
  Browsed table(
      "PRAGMA encoding = 'UTF-16le'; CREATE TABLE t(i, k TEXT PRIMARY KEY) WITHOUT ROWID;"
      "INSERT INTO t VALUES (4, 'z'), (5, 'zB')");
  overwrite(table.database.path(), {"\x03\x15\x01z\0B\0\x05", 8}, {"\x03\x13\x02z\0B\0\x05", 8});
  EXPECT_EQ(table.pagedValues(), "4 5");
}

TEST(KeyOrder, GoesOnByKeyBehindValidUTF16) {
  Browsed table(
      "PRAGMA encoding = 'UTF-16be'; CREATE TABLE t(k TEXT PRIMARY KEY) WITHOUT ROWID;"
      "INSERT INTO t VALUES ('a' || char(0x1F600) || char(0xFFFD))");
  EXPECT_EQ(table.page().next, (PageToken{.identity = {"a\U0001F600\uFFFD"}, .offset = 1}));
}

TEST(KeyOrder, ShowsRowsThatTheKeyAloneTellsApart) {
  struct FinerCase {
    char const* says;
    std::string sql;
  };
  FinerCase const tables[] = {
      {"one column", "CREATE TABLE t(i, k TEXT COLLATE NOCASE, PRIMARY KEY (k COLLATE BINARY)) WITHOUT ROWID" +
                         inserting("t", "i, printf('%05d', i)", 499) +
                         "; INSERT INTO t VALUES (500, 'A'), (501, 'a'), (502, 'b')"},
      {"the first of two",
       "CREATE TABLE t(i, k TEXT COLLATE RTRIM, n, PRIMARY KEY (k COLLATE BINARY, n)) WITHOUT ROWID" +
           inserting("t", "i, printf('%05d', i), 0", 499) +
           "; INSERT INTO t VALUES (500, 'a', 1), (501, 'a ', 1), (502, 'b', 1)"},
      {"with an index of the column's own",
       "CREATE TABLE t(i, k TEXT COLLATE NOCASE, PRIMARY KEY (k COLLATE BINARY)) WITHOUT ROWID; CREATE INDEX x ON "
       "t(k)" +
           inserting("t", "i, printf('%05d', i)", 499) + "; INSERT INTO t VALUES (500, 'A'), (501, 'a'), (502, 'b')"},
      {"twice in the key", "CREATE TABLE t(i, k TEXT COLLATE NOCASE, PRIMARY KEY (k, k COLLATE BINARY)) WITHOUT ROWID" +
                               inserting("t", "i, printf('%05d', i)", 499) +
                               "; INSERT INTO t VALUES (500, 'A'), (501, 'a'), (502, 'b')"},
  };
  for (FinerCase const& each : tables) {
    SCOPED_TRACE(each.says);
    EXPECT_EQ(Browsed(each.sql).pagedValues(), numbers(1, 502));
  }
}

TEST(KeyOrder, GoesOnByKeyWhereItIsNoFinerThanItsColumn) {
  for (char const* const columns :
       {"k TEXT COLLATE NOCASE PRIMARY KEY", "k TEXT PRIMARY KEY", "k TEXT, PRIMARY KEY (k COLLATE NOCASE)"}) {
    Browsed table("CREATE TABLE t(" + std::string(columns) + ") WITHOUT ROWID; INSERT INTO t VALUES ('a')");
    EXPECT_EQ(table.page().next, (PageToken{.identity = {"a"}, .offset = 1})) << columns;
  }
  Browsed number(
      "CREATE TABLE t(k COLLATE NOCASE, PRIMARY KEY (k COLLATE BINARY)) WITHOUT ROWID; INSERT INTO t VALUES (5)");
  EXPECT_EQ(number.page().next, (PageToken{.identity = {5}, .offset = 1}));
}

TEST(KeyOrder, GoesOnByKeyBehindATextOfUpTo65536Bytes) {
  for (int const bytes : {65'536, 65'537}) {
    Browsed table("CREATE TABLE t(k TEXT PRIMARY KEY) WITHOUT ROWID; INSERT INTO t VALUES (printf('%." +
                  std::to_string(bytes) + "c', 'x')), ('y')");
    table.database.run("DELETE FROM t WHERE k = 'y'");
    RowPage const page = table.page();
    EXPECT_EQ(page.next->identity.at(0).isDeferred(), bytes > 65'536);
    table.database.run("INSERT INTO t VALUES ('a'), ('y')");  // by offset, what stands in front shifts the page
    EXPECT_EQ(table.page({}, page.next).rows.size(), bytes > 65'536 ? 2 : 1);
  }
}

}  // namespace
}  // namespace tolva
