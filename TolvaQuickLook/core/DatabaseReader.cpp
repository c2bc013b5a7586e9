// SPDX-License-Identifier: Apache-2.0
#include "core/DatabaseReader.hpp"

#include <chrono>
#include <utility>

#include "core/DeadlineInterrupt.hpp"
#include "core/KeptText.hpp"
#include "core/MemoryBudget.hpp"
#include "core/PreviewSummary.hpp"
#include "core/ProgressDeadline.hpp"
#include "core/SQLiteConnection.hpp"
#include "core/SQLiteStatement.hpp"
#include "core/SchemaPragmas.hpp"
#include "core/TraceInterval.hpp"
#include "platform/FileStatus.hpp"
#include "platform/LastPathComponent.hpp"

namespace tolva {
namespace {

using namespace std::chrono_literals;

constexpr auto previewBudget = 2s;
constexpr int previewPeriod = 1000;  // operations of SQLite's virtual machine

/// Counts the objects of the schema into `summary`.
void countObjects(SQLiteConnection& connection, PreviewSummary& summary) {
  SQLiteStatement statement = connection.prepare(
      "SELECT type, name FROM sqlite_schema WHERE name NOT GLOB ? ORDER BY name COLLATE NOCASE", {"sqlite_*"});
  HandleLock const held(connection);
  while (statement.step()) {
    summary.count(statement.value(0, /*full=*/false).display(),
                  [&] { return statement.value(1, /*full=*/false).display(); });
  }
}

}  // namespace

DatabaseReader::DatabaseReader() : cancellation_(std::make_shared<CancellationHandle>()) {}

DatabaseReader::~DatabaseReader() = default;

std::vector<DatabaseObject> DatabaseReader::open(std::filesystem::path const& database, std::stop_token task) {
  Turn const turn(turns_);
  checkCancellation(task);
  TraceInterval const interval("database open");
  forget();
  MemoryBudget const budget(MemoryBudget::ordinary);
  try {
    connection_ = SQLiteConnection::open(database, {.readOnly = true}, cancellation_);
    return readObjects();
  } catch (...) {
    forget();  // a file without a readable schema does not count as open
    throw;
  }
}

void DatabaseReader::close() {
  Turn const turn(turns_);
  forget();
}

std::vector<DatabaseObject> DatabaseReader::objects() {
  Turn const turn(turns_);
  MemoryBudget const budget(MemoryBudget::ordinary);
  return readObjects();
}

TableSchema DatabaseReader::schema(DatabaseObject const& object) {
  Turn const turn(turns_);
  MemoryBudget const budget(MemoryBudget::ordinary);
  auto known = schemas_.find(object.name);
  if (known == schemas_.end()) known = schemas_.emplace(object.name, readSchema(db(), object)).first;
  return known->second;
}

StructureDetails DatabaseReader::structure(TableSchema const& schema) {
  Turn const turn(turns_);
  MemoryBudget const budget(MemoryBudget::ordinary);
  return readStructure(db(), schema.object.name);
}

std::string DatabaseReader::preview(std::filesystem::path const& database, std::stop_token task) {
  Turn const turn(turns_);
  TraceInterval const interval("Quick Look generation");
  std::shared_ptr<SQLiteConnection> connection;  // closes when the budget has gone: nobody counts what it frees
  MemoryBudget const budget(MemoryBudget::ordinary);
  connection = SQLiteConnection::open(database, {.readOnly = true});
  Uptime const deadline = uptime() + previewBudget;
  ProgressDeadline const time(connection->handle(), deadline, previewPeriod, DeadlineTest::passed, std::move(task));
  DeadlineInterrupt const watch(connection->handle(), deadline);
  PreviewSummary summary{.fileName = lastPathComponent(database)};
  countObjects(*connection, summary);
  FileStatus const status = fileStatus(database);
  summary.fileSize = static_cast<std::int64_t>(status.size);
  summary.modified = status.modified;
  return summary.text();
}

SQLiteConnection& DatabaseReader::db() const {
  if (!connection_) throw DatabaseError("No database is open.");
  return *connection_;
}

std::vector<DatabaseObject> DatabaseReader::readObjects() {
  TraceInterval const interval("schema load");
  schemas_.clear();
  SQLiteStatement statement = db().prepare(
      "SELECT name, type, coalesce(sql, ?) FROM sqlite_schema WHERE type IN (?, ?) AND name NOT GLOB ? ORDER BY name "
      "COLLATE NOCASE",
      {"", "table", "view", "sqlite_*"});
  std::vector<DatabaseObject> objects;
  while (statement.step()) {
    objects.push_back({.name = keptText(statement, 0), .kind = keptText(statement, 1), .sql = keptText(statement, 2)});
  }
  return objects;
}

void DatabaseReader::forget() {
  connection_.reset();
  schemas_.clear();
}

}  // namespace tolva
