// SPDX-License-Identifier: Apache-2.0
#include "snapshots/SnapshotComparison.hpp"

#include <sqlite3.h>

#include <algorithm>
#include <chrono>
#include <initializer_list>
#include <set>
#include <utility>

#include "core/MemoryBudget.hpp"
#include "core/RowIdentityResolver.hpp"
#include "core/SQLiteStatement.hpp"
#include "platform/Graphemes.hpp"
#include "platform/JoinedText.hpp"
#include "platform/TaskCancellation.hpp"
#include "snapshots/ComparisonBudget.hpp"
#include "snapshots/ComparisonSQL.hpp"
#include "snapshots/TableComparison.hpp"
#include "snapshots/ValuePreview.hpp"

namespace tolva {
namespace {

constexpr std::size_t longestExplanation = 600;  // characters

// Time -----------------------------------------------------------------------------------------------

Uptime deadlineIn(double seconds) {
  std::chrono::duration<double> const time(std::clamp(seconds, 0.0, 1e9));
  return uptime() + std::chrono::duration_cast<Uptime::duration>(time);
}

void checkOverallDeadline(Uptime deadline) {
  if (uptime() < deadline) return;
  throw DatabaseError("Comparison exceeded five minutes. No complete result is available.");
}

/// The result of `call`, which prepares the comparison: a failure at the deadline reads as that of the whole.
template <class Call>
auto prepared(Uptime deadline, std::stop_token const& task, Call const& call) {
  try {
    return call();
  } catch (DatabaseError const&) {
    checkCancellation(task);
    checkOverallDeadline(deadline);
    throw;
  }
}

// Objects --------------------------------------------------------------------------------------------

/// One object in both snapshots, or in one.
struct Sides {
  SchemaObject const* before = nullptr;
  SchemaObject const* after = nullptr;

  SchemaObject const& any() const { return before ? *before : *after; }
};

using Objects = std::map<SchemaKey, SchemaObject>;

std::map<SchemaKey, Sides> pairsOf(Objects const& older, Objects const& newer) {
  std::map<SchemaKey, Sides> pairs;
  for (auto const& [key, object] : older) pairs[key].before = &object;
  for (auto const& [key, object] : newer) pairs[key].after = &object;
  return pairs;
}

TableDifference differenceOf(Sides const& sides, char const* status, char const* explanation) {
  TableDifference difference{
      .name = sides.any().name, .kind = sides.any().kind, .status = status, .explanation = explanation};
  if (sides.before) difference.beforeSQL = sides.before->sql;
  if (sides.after) difference.afterSQL = sides.after->sql;
  return difference;
}

/// How the definitions differ; nothing when they are the same.
std::optional<TableDifference> differenceOfDefinitions(Sides const& sides) {
  if (!sides.before) return differenceOf(sides, "Added", "Schema object added; rows not compared.");
  if (!sides.after) return differenceOf(sides, "Removed", "Schema object removed; rows not compared.");
  if (sides.before->definition == sides.after->definition) return std::nullopt;
  return differenceOf(sides, "Schema changed", "Definition changed; rows not compared.");
}

/// Names that are no UTF-8 can look alike and would then stand for one and the same column.
void requireDistinct(std::vector<std::string> const& columns) {
  std::set<std::string> const distinct(columns.begin(), columns.end());
  if (distinct.size() != columns.size()) throw DatabaseError("Unsupported column metadata.");
}

// Rows -----------------------------------------------------------------------------------------------

/// The reading of a result under way: it ends at its deadline and with its task. Only what is prepared has a bound for
/// memory: the values of a row that was compared may take more, and SQLite holds those of one at a time.
class Reading {
 public:
  Reading(SQLiteConnection const& connection, double seconds, std::stop_token const& task)
      : task_(task), deadline_(deadlineIn(seconds)), time_(connection.handle(), deadline_, task) {}

  /// The result of `read`. Whatever it was that ended it in time, the task is told first and then the deadline.
  template <class Read>
  auto run(Read const& read) const try {
    check();
    return read();
  } catch (DatabaseError const& error) {
    if (error.isCancellation()) check();
    throw;
  }

  static SQLiteStatement prepare(SQLiteConnection& connection, std::string const& sql,
                                 std::initializer_list<SQLiteValue> values) {
    MemoryBudget const preparing(MemoryBudget::ordinary);
    return connection.prepare(sql, values);
  }

  bool step(SQLiteStatement& row) const {
    check();
    return row.step();
  }

 private:
  void check() const {
    checkCancellation(task_);
    if (uptime() >= deadline_) throw DatabaseError("Reading the comparison took too long.");
  }

  std::stop_token const& task_;
  Uptime const deadline_;
  ComparisonTime const time_;
};

std::string kindOf(SQLiteStatement const& row, int column) { return row.value(column, /*full=*/false).display(); }

/// The key of one side of the current row, whose columns begin at `first`.
std::string identityText(SQLiteStatement const& row, ComparisonIdentity const& identity, int first) {
  std::vector<std::string> parts;
  for (std::string const& name : identity.columns) parts.push_back(name + "=" + valuePreview(row, first++));
  return joined(parts, ", ");
}

/// The current row of the statement for the cells of one difference.
struct CellsRow {
  SQLiteStatement const& row;
  ComparisonIdentity const& identity;
  std::string const kind = kindOf(row, 0);
  int const count = static_cast<int>(identity.allColumns.size());

  bool hasOlder() const { return kind != "Inserted"; }
  bool hasNewer() const { return kind != "Deleted"; }

  /// Whether each side has the key that is `stored`. A damaged snapshot may give another row for it, or none.
  bool hasKeyOf(SQLiteStatement const& stored) const {
    int const keys = static_cast<int>(identity.columns.size());
    for (int key = 0; key < keys; ++key) {
      int const column = 1 + placeOf(identity.columns[static_cast<std::size_t>(key)]);
      if (hasOlder() && stored.value(2 + key, /*full=*/true) != row.value(column, /*full=*/true)) return false;
      if (hasNewer() && stored.value(2 + keys + key, true) != row.value(column + count, true)) return false;
    }
    return true;
  }

  int placeOf(std::string const& name) const {
    return static_cast<int>(std::ranges::find(identity.allColumns, name) - identity.allColumns.begin());
  }

  DifferenceCell cell(int column) const {
    DifferenceCell cell{.column = identity.allColumns[static_cast<std::size_t>(column)]};
    if (hasOlder()) cell.before = valuePreview(row, 1 + column);
    if (hasNewer()) cell.after = valuePreview(row, 1 + count + column);
    bool const differs = row.value(1 + 2 * count + column, /*full=*/false) == SQLiteValue(1);
    cell.changed = kind != "Updated" || differs;
    return cell;
  }
};

}  // namespace

// Comparing ------------------------------------------------------------------------------------------

SnapshotComparison::SnapshotComparison(std::shared_ptr<SnapshotLease const> const& before,
                                       std::shared_ptr<SnapshotLease const> const& after,
                                       ComparisonLimits const& limits,
                                       std::shared_ptr<CancellationHandle> const& cancellation,
                                       std::stop_token const& task)
    : limits_(limits),
      preparationDeadline_(deadlineIn(limits.totalSeconds)),
      store_(prepared(preparationDeadline_, task, [&] {
        return std::make_unique<ComparisonStore const>(before, after, limits.storagePages, cancellation,
                                                       preparationDeadline_, task);
      })) {}

/// The time for the whole begins when both schemas are known; until then there is as much again.
std::vector<TableDifference> SnapshotComparison::compare(std::function<void(std::string const& name)> const& progress,
                                                         std::stop_token const& task) {
  Objects const older = readSchema("older", task);
  Objects const newer = readSchema("newer", task);
  Uptime const deadline = deadlineIn(limits_.totalSeconds);
  std::vector<TableDifference> differences;
  for (auto const& [key, sides] : pairsOf(older, newer)) {
    checkCancellation(task);
    checkOverallDeadline(deadline);
    if (std::optional<TableDifference> difference = differenceOfDefinitions(sides)) {
      differences.push_back(std::move(*difference));
    } else if (sides.before->kind == "table") {
      if (progress) progress(sides.before->name);
      std::string const store = "changes_" + std::to_string(differences.size());
      differences.push_back(differenceOf(sides, "Compared", "Matched by declared primary key: "));
      compareRows(differences.back(), sides.before->table, store, deadline, task);
    }
  }
  return differences;
}

Objects SnapshotComparison::readSchema(char const* database, std::stop_token const& task) const {
  return prepared(preparationDeadline_, task, [&] {
    ComparisonBudget const budget(store_->connection().handle(), preparationDeadline_, task);
    return readSchemaObjects(store_->connection(), database, task);
  });
}

/// Completes `difference`. What fails here is told of this table alone, unless it is a cancellation.
void SnapshotComparison::compareRows(TableDifference& difference, std::string const& table, std::string const& store,
                                     Uptime overallDeadline, std::stop_token const& task) {
  Uptime const deadline = std::min(deadlineIn(limits_.tableSeconds), overallDeadline);
  try {
    if (hasRowsOf(difference.id())) throw DatabaseError("Another table is shown by the same name.");
    ComparisonPlan plan = makePlan(table, store, deadline, task);
    RowCounts const counts = compareTable(store_->connection(), plan, deadline, task);
    difference.explanation += joined(plan.identity.columns, ", ");
    difference.inserted = counts.inserted;
    difference.updated = counts.updated;
    difference.deleted = counts.deleted;
    plans_.emplace(difference.id(), std::move(plan));
  } catch (DatabaseError const& error) {
    checkCancellation(task);
    if (error.isCancellation()) throw;
    difference.status = "Not compared";
    difference.explanation = firstGraphemes(error.errorDescription(), longestExplanation);
  }
}

ComparisonPlan SnapshotComparison::makePlan(std::string const& table, std::string const& store, Uptime deadline,
                                            std::stop_token const& task) const try {
  SQLiteConnection& connection = store_->connection();
  ComparisonBudget const budget(connection.handle(), deadline, task);
  ComparisonIdentity const older = RowIdentityResolver::resolve(connection, "older", table, task);
  ComparisonIdentity const newer = RowIdentityResolver::resolve(connection, "newer", table, task);
  if (older != newer) throw DatabaseError("Row identity differs between snapshots.");
  requireDistinct(older.allColumns);
  return {.store = store, .table = table, .identity = older};
} catch (DatabaseError const& error) {
  checkCancellation(task);
  if (error.isCancellation() && uptime() >= deadline) failForTime();
  throw;
}

// Reading the result -----------------------------------------------------------------------------------

std::vector<DifferenceRow> SnapshotComparison::rows(std::string const& tableID, std::int64_t after, std::int64_t limit,
                                                    std::stop_token const& task) const {
  ComparisonPlan const& plan = plans_.at(tableID);
  Reading const reading(store_->connection(), limits_.readingSeconds, task);
  return reading.run([&] {
    std::int64_t const most = std::clamp<std::int64_t>(limit, 1, 100);
    SQLiteStatement row = Reading::prepare(store_->connection(), ComparisonSQL::page(plan), {after, most});
    std::vector<DifferenceRow> rows;
    while (reading.step(row)) {
      SQLiteValue const id = row.value(0, /*full=*/false);
      if (!id.asInteger()) continue;
      std::string const kind = kindOf(row, 1);
      int const first = kind == "Inserted" ? 2 + static_cast<int>(plan.identity.columns.size()) : 2;
      rows.push_back({.id = *id.asInteger(), .kind = kind, .identity = identityText(row, plan.identity, first)});
    }
    return rows;
  });
}

std::vector<DifferenceCell> SnapshotComparison::cells(std::string const& tableID, std::int64_t rowID,
                                                      std::stop_token const& task) const {
  ComparisonPlan const& plan = plans_.at(tableID);
  Reading const reading(store_->connection(), limits_.readingSeconds, task);
  return reading.run([&] {
    SQLiteStatement row = Reading::prepare(store_->connection(), ComparisonSQL::cells(plan), {rowID});
    std::int64_t const before = std::max<std::int64_t>(rowID, 1) - 1;  // ids begin with 1
    SQLiteStatement stored = Reading::prepare(store_->connection(), ComparisonSQL::page(plan), {before, 1});
    bool const isThere = reading.step(row) && reading.step(stored);
    CellsRow const found{row, plan.identity};
    if (!isThere || !found.hasKeyOf(stored)) throw DatabaseError("This comparison row is no longer available.");
    std::vector<DifferenceCell> cells;
    cells.reserve(static_cast<std::size_t>(found.count));
    for (int column = 0; column < found.count; ++column) cells.push_back(found.cell(column));
    return cells;
  });
}

}  // namespace tolva
