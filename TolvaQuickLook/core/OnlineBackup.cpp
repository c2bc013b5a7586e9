// SPDX-License-Identifier: Apache-2.0
#include "core/OnlineBackup.hpp"

#include <sqlite3.h>

#include <utility>

#include "core/SQLiteConnection.hpp"

namespace tolva {

OnlineBackup::OnlineBackup(SQLiteConnection& source, SQLiteConnection& destination)
    : source_(source.shared_from_this()),
      destination_(destination.shared_from_this()),
      backup_(sqlite3_backup_init(destination.handle(), "main", source.handle(), "main")) {
  if (!backup_) throw destination.error(sqlite3_errcode(destination.handle()));
}

OnlineBackup::~OnlineBackup() { finish(); }

int OnlineBackup::step(int pages) {
  int const stepped = sqlite3_backup_step(backup_, pages);
  pageCount_ = sqlite3_backup_pagecount(backup_);
  remaining_ = sqlite3_backup_remaining(backup_);
  return stepped;
}

int OnlineBackup::finish() {
  if (!finished_) finished_ = sqlite3_backup_finish(std::exchange(backup_, nullptr));
  return *finished_;
}

}  // namespace tolva
