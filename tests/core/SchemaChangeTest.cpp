// SPDX-License-Identifier: Apache-2.0
#include "core/SchemaChange.hpp"

#include <gtest/gtest.h>

#include <string_view>

namespace tolva {
namespace {

struct ColumnCase {
  char const* says;
  NewColumn column;
  std::string_view sql;
};

ColumnCase const columnCases[] = {
    {"a name and a type", {.name = "a", .type = "INTEGER"}, R"("a" INTEGER)"},
    {"no type leaves the blank", {.name = "a"}, R"("a" )"},
    {"a required one", {.name = "a", .type = "TEXT", .required = true}, R"("a" TEXT NOT NULL)"},
    {"a default as it was typed",
     {.name = "a", .type = "TEXT", .defaultSQL = "('x' || 1)"},
     R"("a" TEXT DEFAULT ('x' || 1))"},
    {"an empty default", {.name = "a", .type = "TEXT", .defaultSQL = ""}, R"("a" TEXT DEFAULT )"},
    {"a primary key", {.name = "a", .type = "INTEGER", .primaryKey = true}, R"("a" INTEGER PRIMARY KEY)"},
    {"a foreign key",
     {.name = "a", .type = "INT", .referenceTable = "p", .referenceColumn = "id"},
     R"("a" INT REFERENCES "p"("id"))"},
    {"only the table of a foreign key", {.name = "a", .type = "INT", .referenceTable = "p"}, R"("a" INT)"},
    {"only the column of a foreign key", {.name = "a", .type = "INT", .referenceColumn = "id"}, R"("a" INT)"},
    {"everything, in the one order",
     {.name = "a",
      .type = "INT",
      .required = true,
      .defaultSQL = "1",
      .primaryKey = true,
      .referenceTable = "p",
      .referenceColumn = "id"},
     R"("a" INT PRIMARY KEY NOT NULL DEFAULT 1 REFERENCES "p"("id"))"},
    {"double quotes in each name",
     {.name = "a\"b", .type = "\"t\"", .referenceTable = "p\"", .referenceColumn = "\"i"},
     R"("a""b" "t" REFERENCES "p"""("""i"))"},
};

TEST(NewColumn, WritesItsDefinition) {
  for (ColumnCase const& one : columnCases) {
    SCOPED_TRACE(one.says);
    EXPECT_EQ(one.column.sql(), one.sql);
  }
}

struct ChangeCase {
  char const* says;
  SchemaChange change;
  std::string_view sql;
};

ChangeCase const changeCases[] = {
    {"no blank behind the comma",
     SchemaChange(SchemaChange::CreateTable{
         "t", {{.name = "a", .type = "INTEGER", .primaryKey = true}, {.name = "b", .type = "TEXT"}}}),
     R"(CREATE TABLE "t" ("a" INTEGER PRIMARY KEY,"b" TEXT))"},
    {"a table without columns", SchemaChange(SchemaChange::CreateTable{"t", {}}), R"(CREATE TABLE "t" ())"},
    {"a quoted table", SchemaChange(SchemaChange::CreateTable{"t\"u", {{.name = "a\"", .type = "TEXT"}}}),
     R"(CREATE TABLE "t""u" ("a""" TEXT))"},
    {"renaming a table", SchemaChange(SchemaChange::RenameTable{"old\"", "\"new"}),
     R"(ALTER TABLE "old""" RENAME TO """new")"},
    {"adding a column",
     SchemaChange(SchemaChange::AddColumn{"t\"", {.name = "c\"", .type = "INT", .required = true, .defaultSQL = "0"}}),
     R"(ALTER TABLE "t""" ADD COLUMN "c""" INT NOT NULL DEFAULT 0)"},
    {"renaming a column", SchemaChange(SchemaChange::RenameColumn{"t\"", "a\"", "b\""}),
     R"(ALTER TABLE "t""" RENAME COLUMN "a""" TO "b""")"},
    {"an index", SchemaChange(SchemaChange::CreateIndex{"i\"", "t\"", "c\"", false}),
     R"(CREATE INDEX "i""" ON "t""" ("c"""))"},
    {"a unique index", SchemaChange(SchemaChange::CreateIndex{"i", "t", "c", true}),
     R"(CREATE UNIQUE INDEX "i" ON "t" ("c"))"},
    {"dropping a table", SchemaChange(SchemaChange::DropTable{"t\"; DROP TABLE u"}),
     R"(DROP TABLE "t""; DROP TABLE u")"},
    {"dropping an index", SchemaChange(SchemaChange::DropIndex{"i\""}), R"(DROP INDEX "i""")"},
};

TEST(SchemaChange, WritesItsStatement) {
  for (ChangeCase const& one : changeCases) {
    SCOPED_TRACE(one.says);
    EXPECT_EQ(one.change.sql(), one.sql);
  }
}

TEST(SchemaChange, IsAValue) {
  SchemaChange const drop(SchemaChange::DropTable{"t"});
  EXPECT_EQ(drop, SchemaChange(SchemaChange::DropTable{"t"}));
  EXPECT_NE(drop, SchemaChange(SchemaChange::DropTable{"u"}));
  EXPECT_NE(drop, SchemaChange(SchemaChange::DropIndex{"t"}));
  EXPECT_TRUE(std::holds_alternative<SchemaChange::DropTable>(drop.asCase()));
}

}  // namespace
}  // namespace tolva
