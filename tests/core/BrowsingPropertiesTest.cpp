// SPDX-License-Identifier: Apache-2.0
// What browsing promises for any table and request, tried on drawn ones; the seeds are fixed.
#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <ostream>
#include <random>
#include <set>
#include <thread>

#include "core/DatabaseReader.hpp"
#include "core/SQLiteStatement.hpp"
#include "platform/Uptime.hpp"
#include "support/BrowseOracle.hpp"
#include "support/NoTask.hpp"
#include "support/SQLitePeer.hpp"
#include "support/TemporaryDatabase.hpp"
#include "support/ValueText.hpp"

namespace tolva {
namespace {

using namespace std::chrono_literals;

Draw drawFrom(std::mt19937& random) {
  return [&random](std::uint32_t bound) { return static_cast<std::uint32_t>(random() % bound); };
}

TableSchema schemaOf(DatabaseReader& reader, std::string const& table) {
  return reader.schema({.name = table, .kind = "table", .sql = ""});
}

/// All rows of a request, page by page.
std::vector<DatabaseRow> pagedRows(DatabaseReader& reader, TableSchema const& schema, BrowseRequest const& request) {
  std::vector<DatabaseRow> rows;
  RowPage page = reader.page(schema, request, {}, noTask);
  while (page.next) {
    rows.insert(rows.end(), page.rows.begin(), page.rows.end());
    EXPECT_EQ(page.next->offset, static_cast<std::int64_t>(rows.size()));
    page = reader.page(schema, request, page.next, noTask);
  }
  return rows;
}

std::string described(BrowseRequest const& request) {
  std::string text;
  for (TableFilter const& filter : request.filters) {
    text += filter.column + " " + std::string(label(filter.operation)) + " " + testing::PrintToString(filter.value) +
            " " + testing::PrintToString(filter.second) + "; ";
  }
  if (!request.search.empty()) text += "search " + request.search + "; ";
  if (request.sort) text += "sort " + request.sort->column + (request.sort->ascending ? " up" : " down");
  return text;
}

// A naive second opinion --------------------------------------------------------------------------

class BrowsingProperties : public testing::TestWithParam<BrowseTable> {
 protected:
  BrowsingProperties() : database_(GetParam().sql) {
    auto const writer = SQLiteConnection::open(database_.path(), {.readOnly = false});
    fill(*writer, GetParam(), 1'800, drawFrom(random_));
    reader_.open(database_.path(), noTask);
    schema_ = schemaOf(reader_, GetParam().name);
  }

  BrowseOracle oracle() const {
    auto const connection = SQLiteConnection::open(database_.path(), {});
    return BrowseOracle(*connection, GetParam().name, GetParam().columns, GetParam().identity);
  }

  std::mt19937 random_{20'260'101};
  TemporaryDatabase const database_;
  DatabaseReader reader_;
  TableSchema schema_;
};

TEST_P(BrowsingProperties, ShowsTheSameRowsInTheSameOrderAsANaiveFilter) {
  BrowseOracle const model = oracle();
  ASSERT_EQ(schema_.identity, GetParam().identity);
  ASSERT_GT(model.rows({}).size(), 500);
  int shown = 0;
  for (int round = 0; round < 150; ++round) {
    BrowseRequest const request = drawRequest(drawFrom(random_), GetParam().columns);
    SCOPED_TRACE(described(request));
    std::vector<DatabaseRow> const expected = model.rows(request);
    ASSERT_EQ(pagedRows(reader_, schema_, request), expected);
    ASSERT_EQ(reader_.count(schema_, request), static_cast<std::int64_t>(expected.size()));
    shown += !expected.empty();
  }
  EXPECT_GT(shown, 50);  // or the requests would prove nothing
}

TEST_P(BrowsingProperties, SelectsTheRowsThatStandAtThePositions) {
  BrowseOracle const model = oracle();
  for (int round = 0; round < 60; ++round) {
    BrowseRequest request = drawRequest(drawFrom(random_), GetParam().columns);
    if (request.filters.size() > 1) request.filters.resize(1);
    SCOPED_TRACE(described(request));
    std::vector<DatabaseRow> const all = model.rows(request);
    RowSelection selection;
    for (int ranges = static_cast<int>(random_() % 6); ranges > 0 && !all.empty(); --ranges) {
      auto const first = static_cast<std::int64_t>(random_() % all.size());
      selection.insert({first, std::min(first + static_cast<std::int64_t>(random_() % 700), std::ssize(all))});
    }
    std::vector<DatabaseRow> expected;
    for (auto const& range : selection.ranges()) {
      expected.insert(expected.end(), all.begin() + range.first, all.begin() + range.end);
    }
    for (DatabaseRow& row : expected) {  // a selection holds no blob at all
      for (SQLiteValue& value : row.identity) {
        if (auto const* blob = value.asBlob()) value = SQLiteValue::largeBlob(std::ssize(*blob));
      }
    }
    ASSERT_EQ(reader_.selectedRows(schema_, request, selection, noTask), expected);
  }
}

TEST_P(BrowsingProperties, FindsEachRowAgainByItsIdentity) {
  for (DatabaseRow const& shown : pagedRows(reader_, schema_, {}))
    ASSERT_EQ(reader_.row(schema_, shown.identity), shown);
}

INSTANTIATE_TEST_SUITE_P(Tables, BrowsingProperties, testing::ValuesIn(browseTables()),
                         [](auto const& table) { return table.param.name; });

// Another process that writes ----------------------------------------------------------------------

struct WrittenTable {
  char const* says;
  char const* sql;
  char const* key;  // of the row numbered by ?, as SQL
};

void PrintTo(WrittenTable const& table, std::ostream* out) { *out << table.says; }

class BrowsingWhileWritten : public testing::TestWithParam<WrittenTable> {};

/// Rows with an even number are never touched; another process inserts, deletes and changes odd ones between the pages.
TEST_P(BrowsingWhileWritten, NeitherRepeatsNorSkipsAnUnchangedRow) {
  std::mt19937 random(7);
  TemporaryDatabase const database("PRAGMA journal_mode = WAL; " + std::string(GetParam().sql) +
                                   "; WITH RECURSIVE c(i) AS (SELECT 0 UNION ALL SELECT i + 1 FROM c WHERE i < 5999)"
                                   "INSERT INTO t SELECT " +
                                   GetParam().key + ", i, 'x' FROM c WHERE i % 4 < 3");
  SQLitePeer peer(database.path());
  DatabaseReader reader;
  reader.open(database.path(), noTask);
  TableSchema const schema = schemaOf(reader, "t");

  std::vector<std::int64_t> delivered;
  std::optional<PageToken> token;
  for (;;) {
    RowPage const page = reader.page(schema, {}, token, noTask);
    if (!page.next) break;
    token = page.next;
    for (DatabaseRow const& row : page.rows) delivered.push_back(*row.values.at(schema.columns.size() - 2).asInteger());
    for (int change = 0; change < 40; ++change) {
      std::string const i = std::to_string(random() % 3'000 * 2 + 1);
      std::string const insert =
          std::string("INSERT OR REPLACE INTO t SELECT ") + GetParam().key + ", i, 'new' FROM (SELECT " + i + " AS i)";
      std::string const changes[] = {insert, "DELETE FROM t WHERE i = " + i, "UPDATE t SET v = 'other' WHERE i = " + i};
      ASSERT_EQ(peer.exec(changes[random() % 3]), "ok");
    }
  }

  std::set<std::int64_t> const once(delivered.begin(), delivered.end());
  EXPECT_EQ(once.size(), delivered.size()) << "a row was repeated";
  EXPECT_TRUE(std::ranges::is_sorted(delivered));
  for (std::int64_t i = 0; i < 6'000; i += 2) EXPECT_EQ(once.contains(i), i % 4 < 3) << i;
}

INSTANTIATE_TEST_SUITE_P(
    Tables, BrowsingWhileWritten,
    testing::Values(WrittenTable{"rowid alias", "CREATE TABLE t(id INTEGER PRIMARY KEY, i, v)", "i * 3"},
                    WrittenTable{"composite key", "CREATE TABLE t(a, b TEXT, i, v, PRIMARY KEY (a, b)) WITHOUT ROWID",
                                 "i / 1000, printf('%05d', i)"},
                    WrittenTable{"blob key", "CREATE TABLE t(a BLOB PRIMARY KEY, i, v) WITHOUT ROWID",
                                 "CAST(printf('%05d', i) AS BLOB)"}),
    [](auto const& table) {
      std::string name = table.param.says;
      std::erase(name, ' ');
      return name;
    });

/// A sorted page counts from the first row: as many rows stand in front of it whatever is changed in other columns.
TEST(BrowsingWhileWritten, PagesASortedTableWhoseOtherColumnsChange) {
  TemporaryDatabase const database(
      "PRAGMA journal_mode = WAL; CREATE TABLE t(a, b, i, v, PRIMARY KEY (a, b)) WITHOUT ROWID;"
      "WITH RECURSIVE c(i) AS (SELECT 0 UNION ALL SELECT i + 1 FROM c WHERE i < 2999) INSERT INTO t SELECT i % 7, i, "
      "i % 10, 0 FROM c");
  SQLitePeer peer(database.path());
  DatabaseReader reader;
  reader.open(database.path(), noTask);
  TableSchema const schema = schemaOf(reader, "t");
  BrowseRequest const request{.sort = TableSort{.column = "i", .ascending = false}};
  std::vector<std::vector<SQLiteValue>> delivered;
  for (RowPage page = reader.page(schema, request, {}, noTask); page.next;
       page = reader.page(schema, request, page.next, noTask)) {
    for (DatabaseRow const& row : page.rows) delivered.push_back(row.identity);
    ASSERT_EQ(peer.exec("UPDATE t SET v = v + 1 WHERE b % 3 = 0"), "ok");
  }
  std::vector<std::vector<SQLiteValue>> expected;
  for (std::int64_t i = 9; i >= 0; --i) {
    for (std::int64_t a = 0; a < 7; ++a) {
      for (std::int64_t b = 0; b < 3'000; ++b) {
        if (b % 10 == i && b % 7 == a) expected.push_back({a, b});
      }
    }
  }
  EXPECT_EQ(delivered, expected);
}

/// Another process sets one column of all rows to the next number, again and again: a selection shows one number.
TEST(BrowsingWhileWritten, SelectsAllRowsFromOneState) {
  TemporaryDatabase const database(
      "PRAGMA journal_mode = WAL; CREATE TABLE t(id INTEGER PRIMARY KEY, v);"
      "WITH RECURSIVE c(i) AS (SELECT 1 UNION ALL SELECT i + 1 FROM c WHERE i < 5000) INSERT INTO t SELECT i, 0 FROM "
      "c");
  DatabaseReader reader;
  reader.open(database.path(), noTask);
  TableSchema const schema = schemaOf(reader, "t");
  std::atomic<bool> hasWritten = false;
  std::jthread const writer([&](std::stop_token ended) {
    SQLitePeer peer(database.path());
    while (!ended.stop_requested()) {
      EXPECT_EQ(peer.exec("UPDATE t SET v = v + 1"), "ok");
      hasWritten = true;
      hasWritten.notify_all();
    }
  });
  hasWritten.wait(false);
  std::set<std::int64_t> states;
  Uptime const deadline = uptime() + 60s;
  for (int round = 0; round < 40 || (states.size() < 2 && uptime() < deadline); ++round) {
    RowSelection const selection =
        round % 2 ? RowSelection{{0, 5'000}} : RowSelection{{0, 400}, {900, 2'100}, {4'999, 5'000}};
    std::set<std::int64_t> seen;
    for (DatabaseRow const& row : reader.selectedRows(schema, {}, selection, noTask))
      seen.insert(*row.values[1].asInteger());
    EXPECT_EQ(seen.size(), 1);
    states.merge(seen);
  }
  EXPECT_GT(states.size(), 1);
}

}  // namespace
}  // namespace tolva
