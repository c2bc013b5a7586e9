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
  std::optional<DatabaseError> undo() const noexcept;
  [[noreturn]] void report() const;

 private:
  void check() const;
  std::int64_t changes(std::string const& insertion) const;
  void refuseNullKeys() const;
  void refuseDamage(RowCounts const& found) const;
  std::optional<std::int64_t> indexedRows(std::string const& database) const;
  std::optional<std::string> keyTree(std::string const& database) const;
  std::int64_t count(std::string const& counting) const;
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
  RowCounts const found{.inserted = counts[0], .updated = counts[1], .deleted = counts[2]};
  refuseNullKeys();
  refuseDamage(found);
  check();
  connection.execute("COMMIT");
  return found;
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

/// SQLite scans whichever index holds the key in the fewest pages, and a row that it misses would be neither inserted
/// nor deleted. But the rows that were matched are as many on both sides. A table that is its only tree was scanned
/// itself, and need not be counted.
void Run::refuseDamage(RowCounts const& found) const {
  std::optional<std::int64_t> const older = indexedRows("older");
  std::optional<std::int64_t> const newer = indexedRows("newer");
  if (!older && !newer) return;
  std::int64_t const before = older ? *older : count(ComparisonSQL::countRows("older", plan.table));
  std::int64_t const after = newer ? *newer : count(ComparisonSQL::countRows("newer", plan.table));
  if (before - found.deleted == after - found.inserted) return;
  throw DatabaseError("The rows that were found are not all rows.", SQLITE_CORRUPT);
}

/// The rows of the table, if it has an index. By that of the key rows are looked up, and one that it misses would read
/// as inserted or deleted.
std::optional<std::int64_t> Run::indexedRows(std::string const& database) const {
  std::optional<std::string> const index = keyTree(database);
  if (!index && !hasIndexBesideKey(connection, database, plan.table)) return std::nullopt;
  std::int64_t const rows = count(ComparisonSQL::countRows(database, plan.table));
  if (!index || count(ComparisonSQL::countIndex(database, plan.table, *index)) == rows) return rows;
  throw DatabaseError("The index of the primary key does not hold all rows.", SQLITE_CORRUPT);
}

/// The index of the primary key. Where the table is itself the tree of its key, which is one WITHOUT ROWID, there is
/// one in name only.
std::optional<std::string> Run::keyTree(std::string const& database) const {
  std::optional<std::string> index = keyIndex(connection, database, plan.table);
  if (!index) return std::nullopt;
  std::string const schema = quoteIdentifier(database) + ".sqlite_schema";
  SQLiteStatement row = connection.prepare("SELECT 1 FROM " + schema + " WHERE type = 'index' AND name = ?", {*index});
  return row.step() ? index : std::nullopt;
}

std::int64_t Run::count(std::string const& counting) const {
  SQLiteStatement row = connection.prepare(counting);
  row.step();
  return sqlite3_column_int64(row.handle(), 0);
}

/// Neither may fail for the time that has run out. The rollback has SQLite parse all schemas again for the statement
/// behind it. Gives the cancellation that hit that one: it is meant for the comparison, as any other is.
std::optional<DatabaseError> Run::undo() const noexcept {
  Uptime const end = uptime() + tidyingTime;
  try {
    connection.rollBack();
    ComparisonBudget const budget(connection.handle(), end, task);
    connection.execute("DROP TABLE IF EXISTS " + plan.store);
  } catch (DatabaseError const& error) {
    if (error.isCancellation() && uptime() < end) return error;
  } catch (...) {
    // What made the comparison fail is the error to tell.
  }
  return std::nullopt;
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
    // A bound for memory would be charged for each text that is compared. The schemas were parsed by who made the plan.
    ComparisonTime const time(connection.handle(), deadline, task);
    return run.fill();
  } catch (...) {
    std::optional<DatabaseError> const cancelled = run.undo();
    checkCancellation(task);
    if (cancelled) throw *cancelled;
    run.report();
  }
}

void failForTime() { throw DatabaseError("Table comparison exceeded its time budget; no row counts were retained."); }

}  // namespace tolva
