// SPDX-License-Identifier: Apache-2.0
#include "core/SchemaPragmas.hpp"

#include <gtest/gtest.h>
#include <sqlite3.h>

#include "core/SQLiteConnection.hpp"
#include "support/HostileDatabases.hpp"
#include "support/TableRows.hpp"
#include "support/TemporaryDatabase.hpp"

namespace tolva {
namespace {

/// Makes the table "t" with the function and the collation of an application that is not there to read it, and beside
/// it a view over which SQLite despairs.
TableSchema schemaBesideAHostileView(std::string const& table) {
  TemporaryDatabase const database("SELECT 1");
  sqlite3* db = nullptr;
  sqlite3_open(database.path().c_str(), &db);
  auto const compare = [](void*, int, void const*, int, void const*) { return 0; };
  auto const check = [](sqlite3_context* context, int, sqlite3_value**) { sqlite3_result_int(context, 1); };
  sqlite3_create_collation(db, "reversed", SQLITE_UTF8, nullptr, compare);
  sqlite3_create_function(db, "my_check", 1, SQLITE_UTF8 | SQLITE_DETERMINISTIC, nullptr, check, nullptr, nullptr);
  rowsAsText(db, table + "; CREATE VIEW v AS " + doublingQuery());
  sqlite3_close(db);
  return schemaOf(database.path(), "t");
}

TEST(SchemaPragmas, NameRowsWithoutTheApplicationThatMadeTheTable) {
  struct TableCase {
    char const* sql;
    std::vector<std::string> identity;
    bool withoutRowID;
    bool strict;
  };
  TableCase const cases[] = {
      {"CREATE TABLE t(a INTEGER PRIMARY KEY, b TEXT)", {"a"}, false, false},
      {"CREATE TABLE t(a INTEGER PRIMARY KEY, b TEXT) STRICT", {"a"}, false, true},
      {"CREATE TABLE t(a INTEGER, b TEXT, PRIMARY KEY (b, a)) STRICT, WITHOUT ROWID", {"b", "a"}, true, true},
      {"CREATE TABLE t(a INTEGER PRIMARY KEY, b TEXT CHECK (my_check(b)))", {"a"}, false, false},
      {"CREATE TABLE t(a TEXT COLLATE reversed PRIMARY KEY)", {"rowid"}, false, false},
      {"CREATE TABLE t(a TEXT COLLATE reversed PRIMARY KEY) WITHOUT ROWID", {"a"}, true, false},
      {"CREATE TABLE t(a INTEGER PRIMARY KEY, b UNIQUE COLLATE reversed)", {"a"}, false, false},
  };
  for (TableCase const& each : cases) {
    SCOPED_TRACE(each.sql);
    TableSchema const schema = schemaBesideAHostileView(each.sql);
    EXPECT_EQ(schema.identity, each.identity);
    EXPECT_EQ(schema.withoutRowID, each.withoutRowID);
    EXPECT_EQ(schema.strict, each.strict);
  }
}

}  // namespace
}  // namespace tolva
