// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <chrono>

#include "core/SQLiteConnection.hpp"

namespace tolva {

/// Lets the statements of a connection wait for the locks of others a given time in all, for a scope; outside of it
/// each step of a statement may wait its busy timeout anew.
///
/// A transaction with a rollback journal that outgrows the cache asks for the exclusive lock whenever it would write a
/// page to the file. As long as somebody reads, SQLite waits, then keeps the page in memory and tells nobody: the row
/// is inserted, the memory grows, new readers are refused meanwhile, and COMMIT will fail for the same reader. Ask
/// `spent` after each step and give up.
///
/// Belongs to the thread that made it, and ends before the connection. One at a time for a connection; the busy timeout
/// of `SQLiteConnection::open` is back behind it.
class LockPatience {
 public:
  explicit LockPatience(SQLiteConnection const& connection,
                        std::chrono::milliseconds most = SQLiteConnection::busyTimeout);
  ~LockPatience();
  LockPatience(LockPatience const&) = delete;
  LockPatience& operator=(LockPatience const&) = delete;

  /// Whether somebody kept a lock until the time was over. It stays so: no statement waits any more.
  bool spent() const { return spent_; }

 private:
  static int waits(void* self, int call) noexcept;

  sqlite3* const db_;
  std::chrono::steady_clock::duration left_;
  bool spent_ = false;
};

}  // namespace tolva
