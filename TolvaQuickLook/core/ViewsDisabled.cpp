// SPDX-License-Identifier: Apache-2.0
#include "core/ViewsDisabled.hpp"

#include <sqlite3.h>

namespace tolva {

ViewsDisabled::ViewsDisabled(SQLiteConnection const& connection) : db_(connection.handle()) {
  sqlite3_db_config(db_, SQLITE_DBCONFIG_ENABLE_VIEW, -1, &before_);
  sqlite3_db_config(db_, SQLITE_DBCONFIG_ENABLE_VIEW, 0, nullptr);
}

ViewsDisabled::~ViewsDisabled() { sqlite3_db_config(db_, SQLITE_DBCONFIG_ENABLE_VIEW, before_, nullptr); }

}  // namespace tolva
