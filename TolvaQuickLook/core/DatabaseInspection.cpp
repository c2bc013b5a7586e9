// SPDX-License-Identifier: Apache-2.0
#include "core/DatabaseInspection.hpp"

#include <sqlite3.h>

#include <chrono>
#include <map>
#include <set>
#include <string_view>

#include "core/CompanionFiles.hpp"
#include "core/DeadlineInterrupt.hpp"
#include "core/MemoryBudget.hpp"
#include "core/ProgressDeadline.hpp"
#include "core/ReadTransaction.hpp"
#include "core/SQLIdentifier.hpp"
#include "core/SQLiteConnection.hpp"
#include "core/SQLiteStatement.hpp"
#include "core/VirtualModule.hpp"
#include "platform/ASCIICase.hpp"

namespace tolva {
namespace {

using namespace std::chrono_literals;

constexpr auto inspectionBudget = 3s;
constexpr int inspectionPeriod = 1000;  // operations of SQLite's virtual machine
constexpr int mostTables = 4'096;
constexpr std::size_t mostSchemaBytes = 4'194'304;  // of the names and statements of tables

/// Until when an inspection may go on.
class InspectionDeadline {
 public:
  Uptime moment() const { return moment_; }

  void check() const {
    if (uptime() < moment_) return;
    throw DatabaseError("Database Info took too long. Try again when the database is less busy.");
  }

 private:
  Uptime const moment_ = uptime() + inspectionBudget;
};

/// What the tables told.
struct TableScan {
  bool complete = true;
  bool foreignKeySeen = false;
  std::size_t bytes = 0;
  std::set<std::string> ftsModules;

  std::optional<bool> hasForeignKeys() const {
    if (foreignKeySeen) return true;
    return complete ? std::optional(false) : std::nullopt;
  }
};

/// One inspection under way: the budgets, the connection and the transaction, undone in the opposite order.
class Inspection {
 public:
  Inspection(std::filesystem::path const& path, std::shared_ptr<CancellationHandle> cancellation, std::stop_token task,
             InspectionDeadline const& deadline)
      : path_(path),
        task_(task),
        deadline_(deadline),
        connection_(SQLiteConnection::open(path, {.readOnly = true}, std::move(cancellation))),
        time_(connection_->handle(), deadline.moment(), inspectionPeriod, DeadlineTest::reached, std::move(task)),
        watch_(connection_->handle(), deadline.moment()),
        state_(*connection_) {}

  DatabaseInfo info();

 private:
  void check() const;
  SQLiteValue scalar(std::string_view sql);
  std::map<std::string, std::int64_t> countObjects();
  TableScan scanTables();
  void scanTable(SQLiteStatement const& row, std::string const& sql, TableScan& scan);

  std::filesystem::path const& path_;
  std::stop_token const task_;
  InspectionDeadline const& deadline_;
  MemoryBudget const memory_{MemoryBudget::ordinary};
  std::shared_ptr<SQLiteConnection> const connection_;
  ProgressDeadline const time_;
  DeadlineInterrupt const watch_;
  ReadTransaction const state_;
};

DatabaseInfo Inspection::info() {
  std::string const journalMode = upperASCII(scalar("PRAGMA journal_mode").display());
  SQLiteValue const pageSize = scalar("PRAGMA page_size");
  std::map<std::string, std::int64_t> counts = countObjects();
  TableScan const scan = scanTables();
  check();
  std::int64_t const* const pageBytes = pageSize.asInteger();
  if (!pageBytes) throw DatabaseError("SQLite did not return a page size.");
  return {.databaseURL = path_,
          .sqliteVersion = sqlite3_libversion(),
          .journalMode = journalMode,
          .pageSize = *pageBytes,
          .tables = counts["table"],
          .views = counts["view"],
          .indexes = counts["index"],
          .triggers = counts["trigger"],
          .databaseSize = FileObservation::read(path_),
          .walSize = FileObservation::read(walOf(path_)),
          .shmSize = FileObservation::read(shmOf(path_)),
          .inspectionReadOnly = sqlite3_db_readonly(connection_->handle(), "main") == 1,
          .capabilities = {.hasForeignKeys = scan.hasForeignKeys(),
                           .ftsModules = {scan.ftsModules.begin(), scan.ftsModules.end()},
                           .inspectionComplete = scan.complete,
                           .hasViews = counts["view"] > 0,
                           .hasTriggers = counts["trigger"] > 0}};
}

void Inspection::check() const {
  checkCancellation(task_);
  deadline_.check();
}

/// The first column of the first row, or null.
SQLiteValue Inspection::scalar(std::string_view sql) {
  deadline_.check();
  SQLiteStatement row = connection_->prepare(sql);
  return row.step() ? row.value(0, /*full=*/false) : SQLiteValue::null();
}

std::map<std::string, std::int64_t> Inspection::countObjects() {
  SQLiteStatement row = connection_->prepare(
      "SELECT type, count(*) FROM sqlite_schema WHERE name NOT GLOB 'sqlite_*' OR type = 'index' GROUP BY type");
  std::map<std::string, std::int64_t> counts{{"table", 0}, {"view", 0}, {"index", 0}, {"trigger", 0}};
  while (row.step()) {
    check();
    SQLiteValue const value = row.value(1, /*full=*/false);
    auto const counted = counts.find(row.value(0, /*full=*/false).display());  // a file may claim kinds without number
    if (auto const* const count = value.asInteger(); count && counted != counts.end()) counted->second = *count;
  }
  return counts;
}

TableScan Inspection::scanTables() {
  SQLiteStatement row = connection_->prepare(
      "SELECT name, sql FROM sqlite_schema WHERE type = 'table' AND name NOT GLOB 'sqlite_*' ORDER BY name LIMIT 4097");
  TableScan scan;
  for (int tables = 0; row.step(); ++tables) {
    check();
    SQLiteValue const nameValue = row.value(0, /*full=*/false);
    SQLiteValue const sqlValue = row.value(1, /*full=*/false);
    std::string const* const name = nameValue.asText();
    std::string const* const sql = sqlValue.asText();
    bool const told = name && sql;
    if (told) scan.bytes += name->size() + sql->size();
    bool const within = tables < mostTables && scan.bytes <= mostSchemaBytes;
    scan.complete = scan.complete && told && within;
    if (!within) break;
    if (told) scanTable(row, *sql, scan);
  }
  return scan;
}

/// The name goes to SQLite as it knows it, up to a NUL and with whatever is no UTF-8: a repaired one names no table.
void Inspection::scanTable(SQLiteStatement const& row, std::string const& sql, TableScan& scan) {
  std::optional<std::string> const module = virtualModule(sql);
  if (module == "fts3" || module == "fts4" || module == "fts5") scan.ftsModules.insert(upperASCII(*module));
  if (scan.foreignKeySeen) return;
  auto const* const name = reinterpret_cast<char const*>(sqlite3_column_text(row.handle(), 0));
  scan.foreignKeySeen = connection_->prepare("PRAGMA foreign_key_list(" + quoteIdentifier(name) + ")").step();
}

}  // namespace

DatabaseInfo inspectDatabase(std::filesystem::path const& path, std::shared_ptr<CancellationHandle> cancellation,
                             std::stop_token task) {
  InspectionDeadline const deadline;
  return Inspection(path, std::move(cancellation), std::move(task), deadline).info();
}

}  // namespace tolva
