// SPDX-License-Identifier: Apache-2.0
// Reading rows with a schema that another connection has made untrue. SQLite takes a quoted name that is gone for a
// string, and would make rows up.
#include <gtest/gtest.h>

#include <functional>

#include "support/Browsed.hpp"
#include "support/Failure.hpp"
#include "support/ValueText.hpp"

namespace tolva {
namespace {

struct StaleCase {
  char const* says;
  std::string sql;
  std::string change;  // takes away columns
};

StaleCase const stales[] = {
    {"a rowid table", "CREATE TABLE t(id INTEGER PRIMARY KEY, a)" + inserting("t", "i, i", 600),
     "ALTER TABLE t RENAME COLUMN id TO ident; ALTER TABLE t RENAME COLUMN a TO b"},
    {"one column of it", "CREATE TABLE t(id INTEGER PRIMARY KEY, a)" + inserting("t", "i, i", 600),
     "ALTER TABLE t DROP COLUMN a"},
    {"a table WITHOUT ROWID", "CREATE TABLE t(id TEXT PRIMARY KEY, a) WITHOUT ROWID" + inserting("t", "i, i", 600),
     "ALTER TABLE t RENAME COLUMN id TO ident; ALTER TABLE t RENAME COLUMN a TO b"},
    {"a view", "CREATE TABLE x(id, a)" + inserting("x", "i, i", 600) + "; CREATE VIEW t AS SELECT id, a FROM x",
     "DROP VIEW t; CREATE VIEW t AS SELECT id AS ident, a AS b FROM x"},
    {"a virtual table", "CREATE VIRTUAL TABLE t USING fts5(id, a)" + inserting("t", "i, i", 600),
     "DROP TABLE t; CREATE VIRTUAL TABLE t USING fts5(ident, b); INSERT INTO t VALUES ('x', 'y')"},
};

TEST(DatabaseReader, FailsOnASchemaThatIsStale) {
  for (StaleCase const& each : stales) {
    SCOPED_TRACE(each.says);
    struct CallCase {
      char const* says;
      std::function<void(Browsed&)> call;
    };
    std::vector<SQLiteValue> identity;
    std::optional<PageToken> token;
    CallCase const calls[] = {
        {"the first page", [](Browsed& table) { table.page(); }},
        {"the second", [&](Browsed& table) { table.page({}, token); }},
        {"a sorted one", [](Browsed& table) { table.page(sortedBy("a")); }},
        {"a filtered one", [](Browsed& table) { table.page(filtered("a", FilterOperator::notNull)); }},
        {"one without rows", [](Browsed& table) { table.page(filtered("a", FilterOperator::isNull)); }},
        {"a count", [](Browsed& table) { table.reader.count(table.schema, filtered("a", FilterOperator::notNull)); }},
        {"a count by search", [](Browsed& table) { table.reader.count(table.schema, {.search = "a"}); }},
        {"one range",
         [](Browsed& table) {
           table.selected({{0, 1}});
         }},
        {"two ranges",
         [](Browsed& table) {
           table.selected({{0, 1}, {3, 4}});
         }},
        {"a row", [&](Browsed& table) { table.reader.row(table.schema, identity); }},
        {"a row that the string leads to",
         [&](Browsed& table) { table.reader.row(table.schema, {table.schema.identity.at(0)}); }},
    };
    for (CallCase const& made : calls) {
      if (std::string(made.says).starts_with("a row") && std::string(each.says) == "a view") continue;  // has none
      SCOPED_TRACE(made.says);
      Browsed table(each.sql);
      RowPage const page = table.page();
      identity = page.rows.at(0).identity;
      token = page.next;
      table.database.run(each.change);
      DatabaseError const error = failureOf([&] { made.call(table); });
      EXPECT_TRUE(error.detail.starts_with("no such column: ")) << error.detail;
    }
  }
}

TEST(DatabaseReader, ReadsWhatIsLeftOfAStaleSchema) {
  Browsed table("CREATE TABLE t(id INTEGER PRIMARY KEY, a); INSERT INTO t VALUES (1, 'x')");
  table.database.run("ALTER TABLE t ADD COLUMN b; ALTER TABLE t RENAME COLUMN a TO A");
  EXPECT_EQ(table.page().rows, (std::vector<DatabaseRow>{{.values = {1, "x"}, .identity = {1}}}));
  EXPECT_EQ(table.reader.count(table.schema, filtered("a", FilterOperator::equals, "x")), 1);
}

/// Strings between double quotes are for views what they always were.
TEST(DatabaseReader, ReadsAViewThatQuotesItsStringsTwice) {
  Browsed view(
      "CREATE TABLE x(a); INSERT INTO x VALUES ('y'), ('z'); CREATE VIEW t AS SELECT a, \"a b\" AS c, \"d\" "
      "FROM x WHERE a = \"y\"");
  EXPECT_EQ(view.page().rows, (std::vector<DatabaseRow>{{.values = {"y", "a b", "d"}, .identity = {}}}));
  EXPECT_EQ(view.reader.count(view.schema, filtered("a", FilterOperator::equals, "y")), 1);
}

TEST(DatabaseReader, ReadsColumnsWhoseNamesHaveQuotes) {
  Browsed table(R"(CREATE TABLE t("""a""", "b""c", "'d'", "[e]"); INSERT INTO t VALUES (1, 2, 3, 4))");
  EXPECT_EQ(table.page().rows, (std::vector<DatabaseRow>{{.values = {1, 2, 3, 4}, .identity = {1}}}));
  EXPECT_EQ(table.reader.count(table.schema, filtered("\"a\"", FilterOperator::equals, 1)), 1);
}

}  // namespace
}  // namespace tolva
