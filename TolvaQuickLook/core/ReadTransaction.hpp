// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "core/SQLiteConnection.hpp"

namespace tolva {

/// Several statements that read one and the same state, for a scope: "BEGIN", and at the end always "ROLLBACK".
/// Belongs to the turn of the connection's service.
class ReadTransaction {
 public:
  explicit ReadTransaction(SQLiteConnection& connection);
  ~ReadTransaction();  // a failure to roll back is ignored
  ReadTransaction(ReadTransaction const&) = delete;
  ReadTransaction& operator=(ReadTransaction const&) = delete;

 private:
  SQLiteConnection& connection_;
};

}  // namespace tolva
