// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <filesystem>
#include <memory>
#include <stop_token>

#include "core/CancellationHandle.hpp"
#include "core/DatabaseError.hpp"
#include "core/DatabaseInfo.hpp"
#include "platform/Export.hpp"
#include "platform/Turn.hpp"

namespace tolva {

/// What a session needs of the gateway by which plugins reach its database.
class TOLVA_EXPORT SessionGateway {
 public:
  SessionGateway() = default;
  virtual ~SessionGateway() = default;
  SessionGateway(SessionGateway const&) = delete;
  SessionGateway& operator=(SessionGateway const&) = delete;

  /// Ends all that plugins do with the database. Called outside the session's turn: perhaps more than once, and from
  /// several threads at a time.
  virtual void close() = 0;
};

/// The service of one open database that belongs to none of its views: it answers Database Info and closes the gateway.
///
/// A serial service: each operation waits for its turn and blocks until it has an answer, so call it from a worker
/// thread. `cancellation()->cancel()`, from any thread, stops the inspection that runs. A session is open or closed and
/// never reopens.
class TOLVA_EXPORT DatabaseSession {
 public:
  /// Reads nothing yet. `databaseURL` has its links resolved: SQLite keeps the companions beside the file itself, and
  /// Database Info is of what the path names. `gateway` may be null: a database without plugins.
  explicit DatabaseSession(std::filesystem::path const& databaseURL, std::shared_ptr<SessionGateway> gateway = {});

  // What it is about, from any thread -----------------------------------------------------------

  std::filesystem::path const& databaseURL() const { return databaseURL_; }  // absolute
  std::filesystem::path walURL() const;
  std::filesystem::path shmURL() const;
  std::shared_ptr<CancellationHandle> const& cancellation() const { return cancellation_; }

  // Database Info -------------------------------------------------------------------------------

  /// Looks through the database on a connection of its own, read-only and within one read transaction, for at most 3
  /// seconds, `MemoryBudget::ordinary`, 4,096 tables and 4 MiB of schema text. Beyond the last two the answer is
  /// incomplete and says so; beyond the time it throws "Database Info took too long. ...", or, where a single statement
  /// was stopped, as cancelled. Other failures are SQLite's own; after `close` it is "This database session is closed."
  ///
  /// Where SQLite may write in the folder, reading a database in WAL mode makes its companions and leaves them there.
  DatabaseInfo inspect(std::stop_token task);

  // End -----------------------------------------------------------------------------------------

  /// Closes the gateway. May come more than once.
  void close();

 private:
  std::filesystem::path const databaseURL_;
  std::shared_ptr<CancellationHandle> const cancellation_;
  std::shared_ptr<SessionGateway> const gateway_;

  TurnQueue turns_;
  bool closed_ GUARDED_BY(turns_) = false;
};

}  // namespace tolva
