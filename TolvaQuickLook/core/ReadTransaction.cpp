// SPDX-License-Identifier: Apache-2.0
#include "core/ReadTransaction.hpp"

namespace tolva {

ReadTransaction::ReadTransaction(SQLiteConnection& connection) : connection_(connection) {
  connection_.execute("BEGIN");
}

ReadTransaction::~ReadTransaction() { connection_.rollBack(); }

}  // namespace tolva
