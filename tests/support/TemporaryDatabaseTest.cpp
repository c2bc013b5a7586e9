// SPDX-License-Identifier: Apache-2.0
#include "support/TemporaryDatabase.hpp"

#include <gtest/gtest.h>
#include <sqlite3.h>

#include "support/Failure.hpp"

namespace tolva {
namespace {

TEST(TemporaryDatabase, IsMadeFromSQLAndShowsRowsAsText) {
  TemporaryFolder const folder;
  TemporaryDatabase const database(folder, "a.db", "CREATE TABLE t(a, b); INSERT INTO t VALUES(1, 'a'), (2, NULL);");
  EXPECT_EQ(database.path(), folder / "a.db");
  EXPECT_EQ(database.rows("SELECT * FROM t"), "1|a\n2|NULL");
  database.run("DELETE FROM t WHERE a = 1");
  EXPECT_EQ(rowsAsText(database.path(), "SELECT * FROM t"), "2|NULL");
}

TEST(TemporaryDatabase, ShowsEachKindOfValue) {
  TemporaryFolder const folder;
  TemporaryDatabase const database(folder, "a.db", "");
  struct {
    char const* sql;
    char const* text;
  } const values[] = {
      {"SELECT x'00FFa1'", "x'00ffa1'"},
      {"SELECT x''", "x''"},
      {"SELECT ''", ""},
      {"SELECT 1.5, -2", "1.5|-2"},
      {"SELECT 1; SELECT 2; -- and no more", "1\n2"},
  };
  for (auto const& value : values) EXPECT_EQ(database.rows(value.sql), value.text) << value.sql;
}

TEST(TemporaryDatabase, ThrowsWhatSQLiteRefuses) {
  TemporaryFolder const folder;
  TemporaryDatabase const database(folder, "a.db", "CREATE TABLE t(a UNIQUE); INSERT INTO t VALUES(1)");
  EXPECT_EQ(failureOf([&] { database.run("INSERT INTO t VALUES(1)"); }),
            DatabaseError("UNIQUE constraint failed: t.a", SQLITE_CONSTRAINT_UNIQUE));
  EXPECT_EQ(failureOf([&] { rowsAsText(folder / "absent", "SELECT 1"); }).code & 0xFF, SQLITE_CANTOPEN);
}

}  // namespace
}  // namespace tolva
