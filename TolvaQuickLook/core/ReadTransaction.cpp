// SPDX-License-Identifier: Apache-2.0
#include "core/ReadTransaction.hpp"

namespace tolva {

ReadTransaction::ReadTransaction(SQLiteConnection& connection) : connection_(connection) {
  connection_.execute("BEGIN");
}

ReadTransaction::~ReadTransaction() {
  try {
    connection_.execute("ROLLBACK");
  } catch (...) {
    // SQLite may have rolled back already, and there is nothing to lose.
  }
}

}  // namespace tolva
