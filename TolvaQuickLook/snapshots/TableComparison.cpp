// SPDX-License-Identifier: Apache-2.0
#include "snapshots/TableComparison.hpp"

#include <sqlite3.h>

#include <array>
#include <chrono>
#include <cstddef>
#include <optional>
#include <string>

#include "core/SQLIdentifier.hpp"
#include "core/SQLiteStatement.hpp"
#include "core/TablePragmas.hpp"
#include "platform/TaskCancellation.hpp"
#include "snapshots/ComparisonBudget.hpp"
#include "snapshots/ComparisonSQL.hpp"

namespace tolva {
namespace {

using namespace std::chrono_literals;

constexpr auto tidyingTime = 5s;  // for a schema that is parsed again after a rollback

/// One table under way.
struct Run {
  SQLiteConnection& connection;
  ComparisonPlan const& plan;
  Uptime const deadline;
  std::stop_token const& task;

  RowCounts fill() const;
  void undo() const noexcept;
  [[noreturn]] void report() const;

 private:
  void check() const;
  std::int64_t changes(std::string const& insertion) const;
  void refuseNullKeys() const;
  void refuseDamagedIndex(std::string const& database) const;
  bool hasTree(std::string const& database, std::string const& index) const;
};

/// The handler of SQLite asks the clock too, but small statements never reach it.
void Run::check() const {
  checkCancellation(task);
  if (uptime() >= deadline) failForTime();
}

RowCounts Run::fill() const {
  connection.execute("BEGIN");
  connection.execute(ComparisonSQL::createStore(plan));
  std::array<std::int64_t, 3> counts{};
  std::array<std::string, 3> const statements = ComparisonSQL::fillStore(plan);
  for (std::size_t kind = 0; kind < statements.size(); ++kind) {
    check();
    counts[kind] = changes(statements[kind]);
  }
  refuseNullKeys();
  refuseDamagedIndex("older");
  refuseDamagedIndex("newer");
  check();
  connection.execute("COMMIT");
  return {.inserted = counts[0], .updated = counts[1], .deleted = counts[2]};
}

std::int64_t Run::changes(std::string const& insertion) const {
  connection.execute(insertion);
  return sqlite3_changes64(connection.handle());
}

/// No row matches such a key, so it is among those that differ.
void Run::refuseNullKeys() const {
  if (!connection.prepare(ComparisonSQL::findNullKey(plan)).step()) return;
  throw DatabaseError("A column of the primary key holds NULL.", SQLITE_CORRUPT);
}

/// Rows are looked up by that index, and one that it misses would read as inserted or deleted.
void Run::refuseDamagedIndex(std::string const& database) const {
  std::optional<std::string> const index = keyIndex(connection, database, plan.table);
  if (!index || !hasTree(database, *index)) return;
  SQLiteStatement equal = connection.prepare(ComparisonSQL::compareIndex(database, plan.table, *index));
  if (equal.step() && isOne(equal, 0)) return;
  throw DatabaseError("The index of the primary key does not hold all rows.", SQLITE_CORRUPT);
}

/// Where the table is itself the tree of its key, which is one WITHOUT ROWID, the index is one in name only.
bool Run::hasTree(std::string const& database, std::string const& index) const {
  return connection
      .prepare("SELECT 1 FROM " + quoteIdentifier(database) + ".sqlite_schema WHERE type = 'index' AND name = ?",
               {index})
      .step();
}

/// Neither may fail for the time that has run out. The rollback has SQLite parse all schemas again for the statement
/// behind it.
void Run::undo() const noexcept try {
  connection.rollBack();
  ComparisonBudget const budget(connection.handle(), uptime() + tidyingTime, {});
  connection.execute("DROP TABLE IF EXISTS " + plan.store);
} catch (...) {
  // What made the comparison fail is the error to tell.
}

/// Tells what the exception at hand means to the person; the first that fits.
void Run::report() const {
  checkCancellation(task);
  if (uptime() >= deadline) failForTime();
  try {
    throw;
  } catch (DatabaseError const& error) {
    if (error.code == SQLITE_TOOBIG) {
      throw DatabaseError("A row exceeds the 1 MiB comparison limit; rows were not compared.");
    }
    if (error.code == SQLITE_FULL) {
      throw DatabaseError(
          "Comparison result storage reached its 64 MiB budget or the disk is full; rows were not compared.");
    }
    throw;
  }
}

}  // namespace

RowCounts compareTable(SQLiteConnection& connection, ComparisonPlan const& plan, Uptime deadline,
                       std::stop_token task) {
  Run const run{connection, plan, deadline, task};
  try {
    // The schemas are parsed by now, and a bound for memory would be charged for each text that is compared.
    ComparisonTime const time(connection.handle(), deadline, task);
    return run.fill();
  } catch (...) {
    run.undo();
    run.report();
  }
}

void failForTime() { throw DatabaseError("Table comparison exceeded its time budget; no row counts were retained."); }

}  // namespace tolva
