// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "core/SQLiteConnection.hpp"

namespace tolva {

/// One state of the database for several reads, from the first of them to the end of the scope. Always rolled back.
/// Used in the turn of the connection's service; statements made under it go before it does.
class ReadTransaction {
 public:
  explicit ReadTransaction(SQLiteConnection& connection) : connection_(connection) { connection_.execute("BEGIN"); }
  ~ReadTransaction() { connection_.rollBack(); }
  ReadTransaction(ReadTransaction const&) = delete;
  ReadTransaction& operator=(ReadTransaction const&) = delete;

 private:
  SQLiteConnection& connection_;
};

}  // namespace tolva
