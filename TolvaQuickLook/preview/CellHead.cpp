// SPDX-License-Identifier: Apache-2.0
#include "preview/CellHead.hpp"

#include <sqlite3.h>

#include <chrono>
#include <utility>

#include "core/MemoryBudget.hpp"
#include "core/ProgressDeadline.hpp"
#include "core/SQLIdentifier.hpp"
#include "core/SQLiteConnection.hpp"
#include "core/SQLiteStatement.hpp"

namespace tolva {
namespace {

using namespace std::chrono_literals;

constexpr auto readBudget = 3s;
constexpr int readPeriod = 1000;           // operations of SQLite's virtual machine
constexpr int mostValueBytes = 8'388'608;  // of any text or blob on the way

std::string headSQL(TableSchema const& schema, std::string const& column) {
  std::string const blob = "CAST(" + quoteIdentifier(column) + " AS BLOB)";
  std::string sql = "SELECT typeof(" + quoteIdentifier(column) + "), length(" + blob + "), substr(" + blob +
                    ",1,?) FROM " + quoteIdentifier(schema.object.name) + " WHERE ";
  char const* between = "";
  for (std::string const& name : schema.identity) {
    sql += between + quoteIdentifier(name) + " IS ?";
    between = " AND ";
  }
  return sql + " LIMIT 2";
}

std::vector<SQLiteValue> parameters(std::vector<SQLiteValue> const& identity) {
  std::vector<SQLiteValue> values{mostHeadBytes};
  values.insert(values.end(), identity.begin(), identity.end());
  return values;
}

/// A second row is asked for, so that a row is never shown in the place of another.
CellHead onlyRow(SQLiteStatement& statement) {
  if (!statement.step()) throw DatabaseError("This row no longer exists. Refresh the table.");
  SQLiteValue const length = statement.value(1, /*full=*/false);
  SQLiteValue const head = statement.value(2, /*full=*/true);
  std::int64_t const* const total = length.asInteger();
  Bytes const* const bytes = head.asBlob();
  CellHead read{.type = statement.value(0, /*full=*/false).display(),
                .totalBytes = total ? *total : 0,
                .bytes = bytes ? *bytes : Bytes()};
  if (statement.step()) {
    throw DatabaseError("This identity matches multiple rows. Preview cannot select one safely.");
  }
  return read;
}

}  // namespace

CellHead readCellHead(std::filesystem::path const& database, TableSchema const& schema,
                      std::vector<SQLiteValue> const& identity, std::string const& column,
                      std::shared_ptr<CancellationHandle> cancellation, std::stop_token task) try {
  MemoryBudget const memory(MemoryBudget::ordinary);
  auto const connection = SQLiteConnection::open(database, {.readOnly = true}, std::move(cancellation));
  sqlite3* const handle = connection->handle();
  sqlite3_limit(handle, SQLITE_LIMIT_LENGTH, mostValueBytes);
  // A column that was dropped meanwhile is an error: its quoted name would else be read, and shown, as a text.
  sqlite3_db_config(handle, SQLITE_DBCONFIG_DQS_DML, 0, nullptr);
  ProgressDeadline const time(handle, uptime() + readBudget, readPeriod, DeadlineTest::reached, std::move(task));
  SQLiteStatement statement = connection->prepare(headSQL(schema, column), parameters(identity));
  return onlyRow(statement);
} catch (DatabaseError const& error) {
  if (error.code != SQLITE_TOOBIG) throw;
  throw DatabaseError("This value exceeds the safe cell-preview limit. Use table export for its full contents.");
}

}  // namespace tolva
