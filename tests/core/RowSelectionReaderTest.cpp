// SPDX-License-Identifier: Apache-2.0
// Rows at scattered positions, which are looked up by their identity, are those that one range over them shows.
#include "core/RowSelectionReader.hpp"

#include <gtest/gtest.h>
#include <sqlite3.h>

#include <chrono>
#include <fstream>
#include <thread>

#include "core/RowCursor.hpp"
#include "core/RowsByKey.hpp"
#include "platform/TaskCancellation.hpp"
#include "support/Browsed.hpp"
#include "support/Corpora.hpp"
#include "support/Failure.hpp"
#include "support/ValueText.hpp"

namespace tolva {
namespace {

using namespace std::chrono_literals;

/// SQLite stores no NULL in such a key, but a damaged file may hold one.
TEST(RowSelectionReader, FindsARowWhoseKeyIsNull) {
  Browsed table(
      "CREATE TABLE t(k PRIMARY KEY, i) WITHOUT ROWID; INSERT INTO t VALUES ('a', 'x'), ('b', 'y'), ('c', 'z')");
  std::string bytes = contents(table.database.path());
  std::size_t const record = bytes.find(
      "\x03\x0F\x0F"
      "ax");  // the header's size, two texts of one byte
  ASSERT_NE(record, bytes.npos);
  bytes.replace(record, 5, std::string("\x03\0\x11xx", 5));  // a NULL, and a text of two
  std::ofstream(table.database.path(), std::ios::binary) << bytes;
  DatabaseReader reader;
  reader.open(table.database.path(), noTask);
  std::vector<DatabaseRow> const all = reader.selectedRows(table.schema, {}, {{0, 3}}, noTask);
  ASSERT_EQ(all.at(0).values, (std::vector<SQLiteValue>{Null{}, "xx"}));
  EXPECT_EQ(reader.selectedRows(table.schema, {}, {{0, 1}, {2, 3}}, noTask),
            (std::vector<DatabaseRow>{all[0], all[2]}));
}

/// The steps of SQLite's machine, in hundreds, that reading every fourth of 8,000 rows by their keys takes.
int hundredsOfSteps(std::string const& columns) {
  Browsed table("CREATE TABLE t(" + columns + ") WITHOUT ROWID" + inserting("t", "printf('key%06d', i), i", 8'000));
  RowSelection selection;
  for (std::int64_t position = 0; position < 8'000; position += 4) selection.insert(position);
  auto const connection = SQLiteConnection::open(table.database.path(), {.readOnly = true});
  int hundreds = 0;
  sqlite3_progress_handler(
      connection->handle(), 100, [](void* count) { return ++*static_cast<int*>(count), 0; }, &hundreds);
  BrowseRequest const request;
  RowsByKey const byKey(*connection, table.schema, request);
  EXPECT_TRUE(byKey.areFound());
  byKey.read(
      selection, [](RowCursor const&) {}, noTask);
  return hundreds;
}

TEST(RowsByKey, SeeksEachRowByTheCollationOfTheKey) {
  int const plain = hundredsOfSteps("k TEXT PRIMARY KEY, i");
  ASSERT_GT(plain, 0);
  for (char const* const columns :
       {"k TEXT COLLATE NOCASE PRIMARY KEY, i", "k TEXT, i, PRIMARY KEY (k COLLATE NOCASE)"}) {
    EXPECT_LT(hundredsOfSteps(columns), plain * 10) << columns;  // a scan for each row takes a hundred times as many
  }
}

/// Two rows of each letter that NOCASE takes for one. The index has their keys, and `c` is wide: a walk over the keys
/// reads the index, in the opposite order.
TEST(RowSelectionReader, ReadsScatteredPositionsInTheOrderOfTheWholeWhereTheKeyIsFinerThanItsColumn) {
  Browsed table(
      "CREATE TABLE t(k TEXT COLLATE NOCASE, b, c, PRIMARY KEY(k COLLATE BINARY)) WITHOUT ROWID; CREATE INDEX i ON "
      "t(b)" +
      inserting("t", "char(65 + i / 10) || (i % 10), 1000 - i, zeroblob(900)", 200) +
      inserting("t", "char(97 + i / 10) || (i % 10), 500 - i, zeroblob(900)", 200));
  std::vector<DatabaseRow> const all = table.selected({{0, 400}});
  ASSERT_EQ(all.size(), 400U);
  RowSelection scattered;
  std::vector<DatabaseRow> expected;
  for (std::int64_t const position : {0, 6, 100, 301, 399}) {
    scattered.insert(position);
    expected.push_back(all.at(static_cast<std::size_t>(position)));
  }
  EXPECT_EQ(table.selected(scattered), expected);
}

TEST(RowSelectionReader, FailsWhereAKeyThatIsGoneLeadsToSeveralRows) {
  Browsed table("CREATE TABLE t(k PRIMARY KEY, v) WITHOUT ROWID" + inserting("t", "i, i", 6));
  table.database.run("DROP TABLE t; CREATE TABLE t(k, v)" + inserting("t", "i / 2, i", 6));
  EXPECT_EQ(failureOf([&] {
              table.selected({{0, 1}, {2, 3}, {4, 5}});
            }),
            DatabaseError("Selected rows changed or disappeared. Refresh and select them again."));
  EXPECT_EQ(table.selected({{0, 1}, {5, 6}}).size(), 2U) << "these two have keys of their own";
}

/// The rowid of such a table is a column of another, here one whose numbers repeat: it leads to the first of them.
TEST(RowSelectionReader, TakesTheRowsOfAVirtualTableByPosition) {
  Browsed table(
      "CREATE TABLE x(n, title); INSERT INTO x VALUES (1, 'a'), (1, 'b'), (2, 'c'), (3, 'd');"
      "CREATE VIRTUAL TABLE t USING fts5(title, content = 'x', content_rowid = 'n')");
  std::vector<DatabaseRow> const all = table.selected({{0, 4}});
  ASSERT_EQ(all.at(1).values.at(0), SQLiteValue("b"));
  for (char const* const sql : {"CREATE VIRTUAL TABLE", "create virtual table", "", "Large Text · 70 KB"}) {
    table.schema.object.sql = sql;
    EXPECT_EQ(table.selected({{1, 2}, {3, 4}}), (std::vector<DatabaseRow>{all[1], all[3]})) << sql;
  }
}

TEST(RowSelectionReader, JoinsChunksWithoutAGap) {
  Browsed table("CREATE TABLE t(id INTEGER PRIMARY KEY)" + inserting("t", "i", 1'200));
  for (std::int64_t const rows : {499, 500, 501, 1'000, 1'001}) {
    std::vector<DatabaseRow> const selected = table.selected({{7, 7 + rows}});
    ASSERT_EQ(std::ssize(selected), rows);
    for (std::int64_t row = 0; row < rows; ++row) {
      ASSERT_EQ(selected[static_cast<std::size_t>(row)].identity, std::vector<SQLiteValue>{row + 8});
    }
  }
}

// Cancellation -------------------------------------------------------------------------------------

/// Each row takes a while, and the positions are many.
class SlowSelection : public testing::Test {
 protected:
  static std::string slowRows() {
    return "CREATE TABLE t(id INTEGER PRIMARY KEY)" + inserting("t", "i", 9'000) +
           "; ALTER TABLE t ADD COLUMN a AS (length(hex(zeroblob(200000 + id))))";
  }

  SlowSelection() : table_(slowRows()) {
    for (std::int64_t position = 0; position < 9'000; position += 2) scattered_.insert(position);
  }

  Browsed table_;
  RowSelection scattered_;
};

TEST_F(SlowSelection, NoticesACancelledTaskInTheMiddleOfAWalk) {
  std::stop_source task;
  std::jthread const canceller([&] {
    std::this_thread::sleep_for(30ms);
    task.request_stop();
  });
  EXPECT_THROW(table_.reader.selectedRows(table_.schema, {}, scattered_, task.get_token()), TaskCancelled);
}

TEST_F(SlowSelection, StopsAWalkThatAnotherThreadCancels) {
  std::jthread const canceller([&](std::stop_token ended) {
    std::this_thread::sleep_for(30ms);
    while (!ended.stop_requested()) {
      table_.reader.cancellation()->cancel();
      std::this_thread::sleep_for(1ms);
    }
  });
  DatabaseError const error = failureOf([&] { table_.selected(scattered_); });
  EXPECT_TRUE(error.isCancellation()) << error.detail;
}

}  // namespace
}  // namespace tolva
