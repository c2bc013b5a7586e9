// SPDX-License-Identifier: Apache-2.0
#include "core/SQLiteConnection.hpp"

#include <sqlite3.h>

#include <utility>

#include "core/GuardVFS.hpp"
#include "core/ManagedSnapshots.hpp"
#include "core/MemoryBudget.hpp"
#include "core/SQLiteLibrary.hpp"
#include "core/SQLiteStatement.hpp"
#include "platform/FilePath.hpp"
#include "platform/UTF8.hpp"

namespace tolva {
namespace {

int openFlags(OpenOptions const& options) {
  int flags = SQLITE_OPEN_FULLMUTEX | (options.readOnly ? SQLITE_OPEN_READONLY : SQLITE_OPEN_READWRITE);
  if (options.create && !options.readOnly) flags |= SQLITE_OPEN_CREATE;
  if (options.allowURI) flags |= SQLITE_OPEN_URI;
  return flags;
}

[[noreturn]] void failToOpen() { throw DatabaseError("unable to open database file", SQLITE_CANTOPEN); }

/// The name for SQLite. An absolute path is never read as a URI, which a library built with URI names on would do with
/// "file:...", nor as the private temporary database that an empty name means. SQLite would end a name at its first NUL
/// and open another file.
std::string databaseName(std::filesystem::path const& path, OpenOptions const& options) {
  if (options.inMemory) return ":memory:";
  std::filesystem::path const name = absolutePath(path);
  if (!name.is_absolute() || holdsNUL(name)) failToOpen();
  return name.string();
}

struct Close {
  void operator()(sqlite3* db) const { sqlite3_close(db); }
};
using Handle = std::unique_ptr<sqlite3, Close>;

/// Opens the handle, or throws with its message and leaves nothing behind.
Handle openHandle(std::string const& name, int flags) {
  sqlite3* opened = nullptr;
  int const result = sqlite3_open_v2(name.c_str(), &opened, flags, GuardVFS::name);
  Handle handle(opened);
  if (result == SQLITE_OK && handle) return handle;
  throw DatabaseError(handle ? repairUTF8(sqlite3_errmsg(opened)) : "Unable to open database", result);
}

}  // namespace

std::shared_ptr<SQLiteConnection> SQLiteConnection::open(std::filesystem::path const& path, OpenOptions options,
                                                         std::shared_ptr<CancellationHandle> cancellation) {
  SQLiteLibrary::prepare();
  if (!options.readOnly && !options.allowSnapshotWrite && isManagedSnapshot(path)) {
    throw DatabaseError("Historical snapshots cannot be modified.", SQLITE_READONLY);
  }
  if (!cancellation) cancellation = std::make_shared<CancellationHandle>();
  Handle handle = openHandle(databaseName(path, options), openFlags(options));
  auto* const made = new SQLiteConnection(handle.get(), std::move(cancellation), options.readOnly);
  static_cast<void>(handle.release());  // the connection owns it now
  std::shared_ptr<SQLiteConnection> connection(made);
  connection->configure();
  return connection;
}

SQLiteConnection::SQLiteConnection(sqlite3* db, std::shared_ptr<CancellationHandle> cancellation, bool readOnly)
    : db_(db), cancellation_(std::move(cancellation)), readOnly_(readOnly) {
  cancellation_->install(db_);
}

SQLiteConnection::~SQLiteConnection() {
  cancellation_->close(db_, [&] { sqlite3_close_v2(db_); });
}

void SQLiteConnection::configure() {
  sqlite3_extended_result_codes(db_, 1);
  sqlite3_busy_timeout(db_, static_cast<int>(busyTimeout.count()));
  execute("PRAGMA foreign_keys = ON");
  if (readOnly_) execute("PRAGMA query_only = ON");
}

SQLiteStatement SQLiteConnection::prepare(std::string_view sql, std::span<SQLiteValue const> values) {
  SQLiteStatement statement(shared_from_this(), sql);
  statement.bind(values);
  return statement;
}

SQLiteStatement SQLiteConnection::prepare(std::string_view sql, std::initializer_list<SQLiteValue> values) {
  return prepare(sql, std::span(values.begin(), values.size()));
}

void SQLiteConnection::execute(std::string_view sql, std::span<SQLiteValue const> values) try {
  SQLiteStatement statement = prepare(sql, values);
  while (statement.step()) continue;
} catch (DatabaseError const& error) {
  throw DatabaseError(error.detail + " [" + std::string(sql) + "]", error.code);
}

void SQLiteConnection::execute(std::string_view sql, std::initializer_list<SQLiteValue> values) {
  execute(sql, std::span(values.begin(), values.size()));
}

void SQLiteConnection::rollBack() noexcept {
  BudgetsLifted const lifted;
  int ended = SQLITE_INTERRUPT;  // a cancel may hit this statement as well, and would leave the transaction open
  while (ended == SQLITE_INTERRUPT && sqlite3_get_autocommit(db_) == 0) {
    ended = sqlite3_exec(db_, "ROLLBACK", nullptr, nullptr, nullptr) & 0xFF;
  }
}

bool SQLiteConnection::storesUTF8() {
  if (!storesUTF8_) {
    SQLiteStatement encoding = prepare("PRAGMA encoding");
    storesUTF8_ = encoding.step() && encoding.value(0, /*full=*/false) == SQLiteValue("UTF-8");
  }
  return *storesUTF8_;
}

DatabaseError SQLiteConnection::error(std::int32_t code) const {
  if ((code & 0xFF) == SQLITE_NOMEM && MemoryBudget::ranOutOfTime()) {
    return DatabaseError(sqlite3_errstr(SQLITE_INTERRUPT), SQLITE_INTERRUPT);
  }
  return DatabaseError(repairUTF8(sqlite3_errmsg(db_)), code);
}

SQLiteConnection::WriteTransaction::WriteTransaction(SQLiteConnection& connection) : connection_(connection) {
  connection_.execute("BEGIN IMMEDIATE");
}

SQLiteConnection::WriteTransaction::~WriteTransaction() {
  if (!committed_) connection_.rollBack();
}

void SQLiteConnection::WriteTransaction::commit(std::stop_token const& task) {
  checkCancellation(task);
  connection_.execute("COMMIT");
  committed_ = true;
}

HandleLock::HandleLock(SQLiteConnection const& connection) : db_(connection.handle()) {
  sqlite3_mutex_enter(sqlite3_db_mutex(db_));
}

HandleLock::~HandleLock() { sqlite3_mutex_leave(sqlite3_db_mutex(db_)); }

}  // namespace tolva
