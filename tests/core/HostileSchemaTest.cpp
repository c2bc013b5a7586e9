// SPDX-License-Identifier: Apache-2.0
#include <gtest/gtest.h>
#include <sqlite3.h>

#include <chrono>
#include <stop_token>
#include <thread>

#include "core/DatabaseReader.hpp"
#include "core/MemoryBudget.hpp"
#include "support/Failure.hpp"
#include "support/HostileDatabases.hpp"
#include "support/NoTask.hpp"
#include "support/ProcessorTime.hpp"
#include "support/Sanitizer.hpp"
#include "support/TemporaryDatabase.hpp"
#include "support/TemporaryFolder.hpp"

// The reader's schema of files that were made to keep it busy.

namespace tolva {
namespace {

using namespace std::chrono_literals;

DatabaseObject named(std::string name, std::string kind) { return {.name = std::move(name), .kind = kind, .sql = ""}; }

class HostileSchema : public testing::Test {
 protected:
  TemporaryFolder const folder;
  DatabaseReader reader;
};

/// Whether `reader` gives the one column of a table, in the half second that it has.
void expectTableAtOnce(DatabaseReader& reader, std::string const& name) {
  SCOPED_TRACE(name);
  auto const begun = processorTime();
  EXPECT_EQ(reader.schema(named(name, "table")).identity, std::vector<std::string>{"id"});
  auto const taken = processorTime() - begun;
  EXPECT_LE(taken, sanitized ? 10s : 500ms);
  testing::Test::RecordProperty(name + "Milliseconds", static_cast<int>(taken / 1ms));
}

TEST_F(HostileSchema, GivesATableAtOnceBesideViewsThatMultiply) {
  writeMultiplyingViews(folder / "t.db");
  EXPECT_EQ(reader.open(folder / "t.db", noTask).size(), 3019);
  expectTableAtOnce(reader, "t1");
  EXPECT_EQ(reader.schema(named("v6", "view")).columns.size(), 1);
  expectTableAtOnce(reader, "t2");
  EXPECT_EQ(reader.schema(named("v15", "view")).columns.size(), 1);
  expectTableAtOnce(reader, "t3000");  // with most of the views resolved, the others take longest
}

TEST_F(HostileSchema, TellsTheFlagsOfATableBesideViewsThatMultiply) {
  writeMultiplyingViews(folder / "t.db");
  rowsAsText(folder / "t.db", "CREATE TABLE w(id INTEGER PRIMARY KEY) STRICT, WITHOUT ROWID");
  reader.open(folder / "t.db", noTask);
  reader.schema(named("v15", "view"));
  TableSchema const table = reader.schema(named("w", "table"));
  EXPECT_TRUE(table.withoutRowID);
  EXPECT_TRUE(table.strict);
  EXPECT_EQ(reader.structure(table).indexes.size(), 1) << "queries are allowed again";
  EXPECT_EQ(reader.objects().size(), 3020);
}

/// A table of 200 columns, and the view v15 that joins the view below it twice, and so on down to the table.
std::string wideViews() {
  std::string sql = "CREATE TABLE v0(c0";
  for (int column = 1; column < 200; ++column) sql += ", c" + std::to_string(column);
  sql += ");";
  for (int view = 1; view <= 15; ++view) {
    std::string const below = "v" + std::to_string(view - 1);
    sql += "CREATE VIEW v" + std::to_string(view) + " AS SELECT a.* FROM " + below + " a, " + below + " b;";
  }
  return sql + "CREATE TABLE t(id INTEGER PRIMARY KEY)";
}

TEST_F(HostileSchema, EndsAViewThatMultipliesTooOften) {
  writeMultiplyingViews(folder / "t.db");
  reader.open(folder / "t.db", noTask);
  EXPECT_EQ(failureOf([&] { reader.schema(named("v18", "view")); }),
            DatabaseError("too many references to \"v0\": max 65535", SQLITE_ERROR));
  expectTableAtOnce(reader, "t1");
}

TEST_F(HostileSchema, EndsAViewThatMultipliesAtTheMemoryBudget) {
  TemporaryDatabase const database(folder, "t.db", wideViews());
  reader.open(folder / "t.db", noTask);
  std::int64_t const before = sqlite3_memory_used();
  sqlite3_memory_highwater(/*reset=*/1);
  EXPECT_EQ(failureOf([&] { reader.schema(named("v15", "view")); }), DatabaseError("out of memory", SQLITE_NOMEM));
  EXPECT_LE(sqlite3_memory_highwater(/*reset=*/0) - before, MemoryBudget::ordinary);
  expectTableAtOnce(reader, "t");
}

TEST_F(HostileSchema, LetsACancelEndTheOpeningOfASchemaWithoutEnd) {
  writeEndlessSchema(folder / "t.db");
  std::jthread const canceller([&](std::stop_token ended) {
    while (!ended.stop_requested()) {
      std::this_thread::sleep_for(20ms);
      reader.cancellation()->cancel();
    }
  });
  EXPECT_TRUE(failureOf([&] { reader.open(folder / "t.db", noTask); }).isCancellation());
}

TEST_F(HostileSchema, EndsTheOpeningOfTooLargeASchemaAtTheMemoryBudget) {
  for (auto const write : {writeLongList, writeLongToken}) {
    write(folder / "t.db");
    EXPECT_EQ(failureOf([&] { reader.open(folder / "t.db", noTask); }), DatabaseError("out of memory", SQLITE_NOMEM));
    std::filesystem::remove(folder / "t.db");
  }
}

}  // namespace
}  // namespace tolva
