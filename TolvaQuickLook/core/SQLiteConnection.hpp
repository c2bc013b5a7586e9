// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <chrono>
#include <cstdint>
#include <filesystem>
#include <initializer_list>
#include <memory>
#include <optional>
#include <span>
#include <stop_token>
#include <string>
#include <string_view>
#include <type_traits>
#include <utility>

#include "core/CancellationHandle.hpp"
#include "core/DatabaseError.hpp"
#include "core/SQLiteValue.hpp"
#include "platform/Export.hpp"
#include "platform/TaskCancellation.hpp"

struct sqlite3;  // sqlite3.h stays in the .cpp files of this folder

namespace tolva {

class SQLiteStatement;

struct OpenOptions {
  bool readOnly = true;
  bool create = false;    // ignored when read-only
  bool allowURI = false;  // lets ATTACH take names as URIs, which Debian's SQLite does anyway; `path` never is one
  bool inMemory = false;  // `path` is not used
  bool allowSnapshotWrite = false;  // only the snapshot copy itself may set it
};

/// Owner of one open database handle.
///
/// Used from one service's turn at a time; only `cancellation` may be touched by another thread. A live object is open
/// and configured: opening either succeeds whole or throws `DatabaseError`. The handle closes when the connection and
/// the last of its statements have gone.
class TOLVA_EXPORT SQLiteConnection : public std::enable_shared_from_this<SQLiteConnection> {
 public:
  static constexpr std::chrono::milliseconds busyTimeout{1200};  // what a statement waits for the locks of others

  /// Opens the file at `path`, made absolute, with foreign keys enforced, a busy timeout of 1.2 seconds and extended
  /// result codes. Read-only connections also refuse to write through `PRAGMA query_only`; a writable one is refused
  /// on a database of the snapshot store (code 8).
  static std::shared_ptr<SQLiteConnection> open(
      std::filesystem::path const& path, OpenOptions options,
      std::shared_ptr<CancellationHandle> cancellation = std::make_shared<CancellationHandle>());

  ~SQLiteConnection();
  SQLiteConnection(SQLiteConnection const&) = delete;
  SQLiteConnection& operator=(SQLiteConnection const&) = delete;

  // Statements ---------------------------------------------------------------------------------

  /// Compiles the first statement of `sql` and binds `values`. Text behind that statement is ignored; text without a
  /// statement, empty or only a comment, is an error with code 0.
  SQLiteStatement prepare(std::string_view sql, std::span<SQLiteValue const> values = {});
  SQLiteStatement prepare(std::string_view sql, std::initializer_list<SQLiteValue> values);

  /// Runs the first statement of `sql` to its end and drops any rows. A failure names the SQL in square brackets.
  void execute(std::string_view sql, std::span<SQLiteValue const> values = {});
  void execute(std::string_view sql, std::initializer_list<SQLiteValue> values);

  /// Runs `body` inside "BEGIN IMMEDIATE" and "COMMIT" and returns its result. A failure of either, or a cancelled
  /// `task`, rolls back and is thrown. `task` is tested before both and not in between; there is no nesting.
  template <class Body>
  auto transaction(Body&& body, std::stop_token task) -> std::invoke_result_t<Body> {
    static_assert(!std::is_reference_v<std::invoke_result_t<Body>>, "the result outlives the body");
    checkCancellation(task);
    WriteTransaction open(*this);
    if constexpr (std::is_void_v<std::invoke_result_t<Body>>) {
      body();
      open.commit(task);
    } else {
      auto result = body();
      open.commit(task);
      return result;
    }
  }

  /// Undoes the open transaction, if there is one, also while another thread keeps cancelling. Any other failure is
  /// ignored: what made the transaction end is the error to tell.
  void rollBack() noexcept;

  // State --------------------------------------------------------------------------------------

  sqlite3* handle() const { return db_; }
  std::shared_ptr<CancellationHandle> const& cancellation() const { return cancellation_; }
  bool readOnly() const { return readOnly_; }

  /// Whether texts are stored as UTF-8, and not as UTF-16. The file is asked once.
  bool storesUTF8();

  /// A `DatabaseError` of `code` with SQLite's current message for this handle. Memory that was refused because a time
  /// budget ran out reads as the interruption that it is.
  DatabaseError error(std::int32_t code) const;

 private:
  /// Open from construction on; rolled back in its destructor unless committed.
  class TOLVA_EXPORT WriteTransaction {
   public:
    explicit WriteTransaction(SQLiteConnection& connection);
    ~WriteTransaction();
    WriteTransaction(WriteTransaction const&) = delete;
    WriteTransaction& operator=(WriteTransaction const&) = delete;

    void commit(std::stop_token const& task);

   private:
    SQLiteConnection& connection_;
    bool committed_ = false;
  };

  SQLiteConnection(sqlite3* db, std::shared_ptr<CancellationHandle> cancellation, bool readOnly);
  void configure();

  sqlite3* const db_;
  std::shared_ptr<CancellationHandle> const cancellation_;
  bool const readOnly_;
  std::optional<bool> storesUTF8_;
};

/// Keeps the mutex of a handle for a scope, so that the calls of a loop over rows need not take it one by one.
/// Belongs to the thread that made it, and ends before the connection; another thread may still cancel the statement.
class TOLVA_EXPORT HandleLock {
 public:
  explicit HandleLock(SQLiteConnection const& connection);
  ~HandleLock();
  HandleLock(HandleLock const&) = delete;
  HandleLock& operator=(HandleLock const&) = delete;

 private:
  sqlite3* const db_;
};

}  // namespace tolva
