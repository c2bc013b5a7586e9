// SPDX-License-Identifier: Apache-2.0
#include "core/TableQueryBuilder.hpp"

#include <gtest/gtest.h>

#include <span>

#include "support/Failure.hpp"
#include "support/ValueText.hpp"

namespace tolva {
namespace {

using Values = std::vector<SQLiteValue>;

TableSchema const rowidTable{.object = {.name = "t", .kind = "table", .sql = ""},
                             .columns = {{.name = "a", .type = "TEXT"}, {.name = "n", .type = "INTEGER"}},
                             .identity = {"rowid"}};
TableSchema const aliasTable{.object = {.name = "t", .kind = "table", .sql = ""},
                             .columns = {{.name = "id", .type = "INTEGER"}, {.name = "n", .type = "INTEGER"}},
                             .identity = {"id"}};
TableSchema const keyTable{.object = {.name = "k", .kind = "table", .sql = ""},
                           .columns = {{.name = "b", .type = ""}, {.name = "a", .type = ""}},
                           .identity = {"a", "b"},
                           .withoutRowID = true};
TableSchema const view{
    .object = {.name = "v", .kind = "view", .sql = ""}, .columns = {{.name = "a", .type = "TEXT"}}, .identity = {}};
TableSchema const oddNames{.object = {.name = "a\"b", .kind = "table", .sql = ""},
                           .columns = {{.name = "x\"y", .type = "TEXT"}, {.name = "select", .type = ""}},
                           .identity = {"x\"y"}};

TableFilter filter(FilterOperator operation, SQLiteValue value = {}, SQLiteValue second = {},
                   std::string column = "n") {
  return {.column = std::move(column), .operation = operation, .value = std::move(value), .second = std::move(second)};
}

BrowseRequest filtered(std::vector<TableFilter> filters) { return {.filters = std::move(filters)}; }
BrowseRequest searched(std::string text) { return {.search = std::move(text)}; }
BrowseRequest sortedBy(std::string column, bool ascending = true) {
  return {.sort = TableSort{.column = std::move(column), .ascending = ascending}};
}
std::optional<PageToken> tokenAt(Values identity, std::int64_t offset = 500) {
  return PageToken{.identity = std::move(identity), .offset = offset};
}

struct BuildCase {
  char const* says;
  TableSchema schema;
  BrowseRequest request;
  std::optional<PageToken> token;
  QueryScope scope;
  std::string sql;
  Values parameters;
};

void check(std::span<BuildCase const> cases) {
  for (BuildCase const& each : cases) {
    SCOPED_TRACE(each.says);
    BuiltQuery const query = TableQueryBuilder::build(each.schema, each.request, each.token, each.scope);
    EXPECT_EQ(query.sql, each.sql);
    EXPECT_EQ(query.parameters, each.parameters);
  }
}

TEST(TableQueryBuilder, BuildsEachKindOfPage) {
  BuildCase const pages[] = {
      {"the first page has no key clause",
       rowidTable,
       {},
       {},
       {.limit = 500},
       R"(SELECT "a","n","rowid" FROM "t" ORDER BY "rowid" LIMIT ?)",
       {500}},
      {"the second page seeks by key, without OFFSET",
       rowidTable,
       {},
       tokenAt({7}),
       {.limit = 500},
       R"(SELECT "a","n","rowid" FROM "t" WHERE "rowid" > ? ORDER BY "rowid" LIMIT ?)",
       {7, 500}},
      {"a name that is column and identity stands twice",
       aliasTable,
       {},
       tokenAt({7}),
       {.limit = 500},
       R"(SELECT "id","n","id" FROM "t" WHERE "id" > ? ORDER BY "id" LIMIT ?)",
       {7, 500}},
      {"a key of two columns is compared as a row",
       keyTable,
       {},
       tokenAt({"x", 2.5}),
       {.limit = 500},
       R"(SELECT "b","a","a","b" FROM "k" WHERE ("a","b") > (?,?) ORDER BY "a","b" LIMIT ?)",
       {"x", 2.5, 500}},
      {"sorted, the first page",
       rowidTable,
       sortedBy("n"),
       {},
       {.limit = 500},
       R"(SELECT "a","n","rowid" FROM "t" ORDER BY "n" ASC,"rowid" LIMIT ?)",
       {500}},
      {"sorted, the second page counts",
       rowidTable,
       sortedBy("n", false),
       tokenAt({7}, 321),
       {.limit = 500},
       R"(SELECT "a","n","rowid" FROM "t" ORDER BY "n" DESC,"rowid" LIMIT ? OFFSET ?)",
       {500, 321}},
      {"sorted by a key, the identity still follows",
       keyTable,
       sortedBy("b"),
       {},
       {.limit = 500},
       R"(SELECT "b","a","a","b" FROM "k" ORDER BY "b" ASC,"a","b" LIMIT ?)",
       {500}},
      {"a view has no order", view, {}, {}, {.limit = 500}, R"(SELECT "a" FROM "v" LIMIT ?)", {500}},
      {"the second page of a view counts",
       view,
       {},
       tokenAt({}, 500),
       {.limit = 500},
       R"(SELECT "a" FROM "v" LIMIT ? OFFSET ?)",
       {500, 500}},
      {"a sorted view",
       view,
       sortedBy("a"),
       tokenAt({}, 500),
       {.limit = 500},
       R"(SELECT "a" FROM "v" ORDER BY "a" ASC LIMIT ? OFFSET ?)",
       {500, 500}},
      {"an identity too short for the key",
       keyTable,
       {},
       tokenAt({"x"}, 9),
       {.limit = 500},
       R"(SELECT "b","a","a","b" FROM "k" ORDER BY "a","b" LIMIT ? OFFSET ?)",
       {500, 9}},
      {"an identity too long for the key",
       rowidTable,
       {},
       tokenAt({1, 2}, 9),
       {.limit = 500},
       R"(SELECT "a","n","rowid" FROM "t" ORDER BY "rowid" LIMIT ? OFFSET ?)",
       {500, 9}},
      {"an empty identity",
       rowidTable,
       {},
       tokenAt({}, 9),
       {.limit = 500},
       R"(SELECT "a","n","rowid" FROM "t" ORDER BY "rowid" LIMIT ? OFFSET ?)",
       {500, 9}},
      {"a deferred blob in the identity",
       keyTable,
       {},
       tokenAt({"x", SQLiteValue::largeBlob(70'000)}, 9),
       {.limit = 500},
       R"(SELECT "b","a","a","b" FROM "k" ORDER BY "a","b" LIMIT ? OFFSET ?)",
       {500, 9}},
      {"a deferred text in the identity",
       keyTable,
       {},
       tokenAt({SQLiteValue::largeText(70'000), 1}, 9),
       {.limit = 500},
       R"(SELECT "b","a","a","b" FROM "k" ORDER BY "a","b" LIMIT ? OFFSET ?)",
       {500, 9}},
      {"a NULL in the identity is compared",
       rowidTable,
       {},
       tokenAt({Null{}}),
       {.limit = 500},
       R"(SELECT "a","n","rowid" FROM "t" WHERE "rowid" > ? ORDER BY "rowid" LIMIT ?)",
       {Null{}, 500}},
      {"without a limit", rowidTable, {}, {}, {}, R"(SELECT "a","n","rowid" FROM "t" ORDER BY "rowid")", {}},
      {"quotes in names are doubled",
       oddNames,
       {},
       tokenAt({"k"}),
       {.limit = 500},
       R"(SELECT "x""y","select","x""y" FROM "a""b" WHERE "x""y" > ? ORDER BY "x""y" LIMIT ?)",
       {"k", 500}},
  };
  check(pages);
}

TEST(TableQueryBuilder, BuildsEachFilter) {
  std::string const begin = R"(SELECT "a","n","rowid" FROM "t" WHERE )";
  std::string const end = R"( ORDER BY "rowid")";
  BuildCase const filters[] = {
      {"equals", rowidTable, filtered({filter(FilterOperator::equals, 5)}), {}, {}, begin + R"("n" = ?)" + end, {5}},
      {"not equal",
       rowidTable,
       filtered({filter(FilterOperator::notEqual, "x")}),
       {},
       {},
       begin + R"("n" <> ?)" + end,
       {"x"}},
      {"greater",
       rowidTable,
       filtered({filter(FilterOperator::greater, 1.5)}),
       {},
       {},
       begin + R"("n" > ?)" + end,
       {1.5}},
      {"less",
       rowidTable,
       filtered({filter(FilterOperator::less, Bytes{1})}),
       {},
       {},
       begin + R"("n" < ?)" + end,
       {Bytes{1}}},
      {"between",
       rowidTable,
       filtered({filter(FilterOperator::between, 1, 9)}),
       {},
       {},
       begin + R"("n" BETWEEN ? AND ?)" + end,
       {1, 9}},
      {"between without a second value",
       rowidTable,
       filtered({filter(FilterOperator::between, 1)}),
       {},
       {},
       begin + R"("n" BETWEEN ? AND ?)" + end,
       {1, Null{}}},
      {"contains",
       rowidTable,
       filtered({filter(FilterOperator::contains, "x")}),
       {},
       {},
       begin + R"(instr(CAST("n" AS TEXT), ?) > 0)" + end,
       {"x"}},
      {"starts",
       rowidTable,
       filtered({filter(FilterOperator::starts, "x")}),
       {},
       {},
       begin + R"(substr(CAST("n" AS TEXT), 1, length(?)) = ?)" + end,
       {"x", "x"}},
      {"ends",
       rowidTable,
       filtered({filter(FilterOperator::ends, "x")}),
       {},
       {},
       begin + R"(substr(CAST("n" AS TEXT), -length(?)) = ?)" + end,
       {"x", "x"}},
      {"is NULL",
       rowidTable,
       filtered({filter(FilterOperator::isNull, 5)}),
       {},
       {},
       begin + R"("n" IS NULL)" + end,
       {}},
      {"is not NULL",
       rowidTable,
       filtered({filter(FilterOperator::notNull, 5)}),
       {},
       {},
       begin + R"("n" IS NOT NULL)" + end,
       {}},
      {"a deferred value stays as it is",
       rowidTable,
       filtered({filter(FilterOperator::equals, SQLiteValue::largeText(70'000))}),
       {},
       {},
       begin + R"("n" = ?)" + end,
       {SQLiteValue::largeText(70'000)}},
      {"text operators take what is displayed: an integer",
       rowidTable,
       filtered({filter(FilterOperator::contains, 12)}),
       {},
       {},
       begin + R"(instr(CAST("n" AS TEXT), ?) > 0)" + end,
       {"12"}},
      {"a real",
       rowidTable,
       filtered({filter(FilterOperator::starts, 2.0)}),
       {},
       {},
       begin + R"(substr(CAST("n" AS TEXT), 1, length(?)) = ?)" + end,
       {"2.0", "2.0"}},
      {"a NULL",
       rowidTable,
       filtered({filter(FilterOperator::contains)}),
       {},
       {},
       begin + R"(instr(CAST("n" AS TEXT), ?) > 0)" + end,
       {"NULL"}},
      {"a blob",
       rowidTable,
       filtered({filter(FilterOperator::ends, Bytes{1, 2, 3})}),
       {},
       {},
       begin + R"(substr(CAST("n" AS TEXT), -length(?)) = ?)" + end,
       {"BLOB · 3 bytes", "BLOB · 3 bytes"}},
      {"a marker",
       rowidTable,
       filtered({filter(FilterOperator::contains, SQLiteValue::largeBlob(70'000))}),
       {},
       {},
       begin + R"(instr(CAST("n" AS TEXT), ?) > 0)" + end,
       {"BLOB · 70 KB"}},
      {"several, in their order",
       rowidTable,
       filtered({filter(FilterOperator::less, 9), filter(FilterOperator::contains, "x", {}, "a"),
                 filter(FilterOperator::greater, 1)}),
       {},
       {},
       begin + R"("n" < ? AND instr(CAST("a" AS TEXT), ?) > 0 AND "n" > ?)" + end,
       {9, "x", 1}},
      {"a quoted name",
       oddNames,
       filtered({filter(FilterOperator::contains, "x", {}, "x\"y")}),
       {},
       {},
       R"(SELECT "x""y","select","x""y" FROM "a""b" WHERE instr(CAST("x""y" AS TEXT), ?) > 0 ORDER BY "x""y")",
       {"x"}},
  };
  check(filters);
}

TEST(TableQueryBuilder, SearchesTextAndUntypedColumns) {
  TableSchema const types{.object = {.name = "t", .kind = "table", .sql = ""},
                          .columns = {{.name = "a", .type = ""},
                                      {.name = "b", .type = "INTEGER"},
                                      {.name = "c", .type = "varchar(10)"},
                                      {.name = "d", .type = "BLOB"},
                                      {.name = "e", .type = "Clob"},
                                      {.name = "f", .type = "REAL"},
                                      {.name = "g", .type = "tinytext"},
                                      {.name = "h", .type = "POINT"}},
                          .identity = {}};
  TableSchema numbers = types;
  numbers.columns = {{.name = "b", .type = "INTEGER"}, {.name = "d", .type = "BLOB"}};
  BuildCase const searches[] = {
      {"each searchable column",
       types,
       searched(" Straße"),
       {},
       {},
       R"(SELECT "a","b","c","d","e","f","g","h" FROM "t" WHERE (instr(lower(CAST("a" AS TEXT)), lower(?)) > 0 OR )"
       R"(instr(lower(CAST("c" AS TEXT)), lower(?)) > 0 OR instr(lower(CAST("e" AS TEXT)), lower(?)) > 0 OR )"
       R"(instr(lower(CAST("g" AS TEXT)), lower(?)) > 0))",
       {" Straße", " Straße", " Straße", " Straße"}},
      {"one searchable column",
       view,
       searched(" "),
       {},
       {},
       R"(SELECT "a" FROM "v" WHERE (instr(lower(CAST("a" AS TEXT)), lower(?)) > 0))",
       {" "}},
      {"no searchable column", numbers, searched("x"), {}, {}, R"(SELECT "b","d" FROM "t" WHERE 0)", {}},
      {"an empty search", numbers, searched(""), {}, {}, R"(SELECT "b","d" FROM "t")", {}},
  };
  check(searches);
}

TEST(TableQueryBuilder, OrdersParametersByFiltersSearchKeyLimitAndOffset) {
  BrowseRequest const narrowed{.filters = {filter(FilterOperator::between, 1, 9)}, .search = "x"};
  BrowseRequest sorted = narrowed;
  sorted.sort = TableSort{.column = "a", .ascending = true};
  BuildCase const orders[] = {
      {"by key",
       rowidTable,
       narrowed,
       tokenAt({7}, 321),
       {.limit = 500},
       R"(SELECT "a","n","rowid" FROM "t" WHERE "n" BETWEEN ? AND ? AND (instr(lower(CAST("a" AS TEXT)), lower(?)) > 0) )"
       R"(AND "rowid" > ? ORDER BY "rowid" LIMIT ?)",
       {1, 9, "x", 7, 500}},
      {"by offset",
       rowidTable,
       sorted,
       tokenAt({7}, 321),
       {.limit = 500},
       R"(SELECT "a","n","rowid" FROM "t" WHERE "n" BETWEEN ? AND ? AND (instr(lower(CAST("a" AS TEXT)), lower(?)) > 0) )"
       R"(ORDER BY "a" ASC,"rowid" LIMIT ? OFFSET ?)",
       {1, 9, "x", 500, 321}},
      {"counted",
       rowidTable,
       sorted,
       {},
       {.countOnly = true},
       R"(SELECT COUNT(*) FROM "t" WHERE "n" BETWEEN ? AND ? AND (instr(lower(CAST("a" AS TEXT)), lower(?)) > 0))",
       {1, 9, "x"}},
  };
  check(orders);
}

TEST(TableQueryBuilder, KeepsTheLimitFrom1To500) {
  struct LimitCase {
    std::int64_t asked;
    std::int64_t given;
  };
  for (LimitCase const& each : {LimitCase{INT64_MIN, 1}, LimitCase{-1, 1}, LimitCase{0, 1}, LimitCase{1, 1},
                                LimitCase{2, 2}, LimitCase{499, 499}, LimitCase{500, 500}, LimitCase{501, 500},
                                LimitCase{1000, 500}, LimitCase{INT64_MAX, 500}}) {
    BuiltQuery const query = TableQueryBuilder::build(view, {}, {}, {.limit = each.asked});
    EXPECT_EQ(query.parameters, Values{each.given}) << each.asked;
  }
}

TEST(TableQueryBuilder, RefusesAFilterOnAColumnThatIsGone) {
  for (FilterOperator const operation : filterOperators) {
    for (char const* const gone : {"gone", "N", "rowid", ""}) {
      SCOPED_TRACE(std::string(label(operation)) + " " + gone);
      EXPECT_EQ(failureOf([&] { TableQueryBuilder::build(rowidTable, filtered({filter(operation, 1, 2, gone)})); }),
                DatabaseError("The filtered column no longer exists."));
    }
  }
}

TEST(TableQueryBuilder, RefusesASortOnAColumnThatIsGone) {
  for (bool const countOnly : {false, true}) {
    EXPECT_EQ(failureOf([&] { TableQueryBuilder::build(rowidTable, sortedBy("gone"), {}, {.countOnly = countOnly}); }),
              DatabaseError("The sorted column no longer exists."));
  }
  BrowseRequest both = sortedBy("gone");
  both.filters = {filter(FilterOperator::isNull, {}, {}, "lost")};
  EXPECT_EQ(failureOf([&] { TableQueryBuilder::build(rowidTable, both); }),
            DatabaseError("The filtered column no longer exists."));
}

}  // namespace
}  // namespace tolva
