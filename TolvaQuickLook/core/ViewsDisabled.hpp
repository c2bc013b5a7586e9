// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "core/SQLiteConnection.hpp"

namespace tolva {

/// Keeps SQLite from resolving views for a scope. `PRAGMA table_list` resolves every view of the file that it comes
/// across, whatever it is narrowed to, and in a hostile file that takes minutes.
class ViewsDisabled {
 public:
  explicit ViewsDisabled(SQLiteConnection const& connection);
  ~ViewsDisabled();
  ViewsDisabled(ViewsDisabled const&) = delete;
  ViewsDisabled& operator=(ViewsDisabled const&) = delete;

 private:
  sqlite3* const db_;
  int before_ = 1;
};

}  // namespace tolva
