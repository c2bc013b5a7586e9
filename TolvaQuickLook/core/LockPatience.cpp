// SPDX-License-Identifier: Apache-2.0
#include "core/LockPatience.hpp"

#include <sqlite3.h>

#include <algorithm>
#include <thread>

#include "platform/Uptime.hpp"

namespace tolva {
namespace {

constexpr std::chrono::steady_clock::duration pause = std::chrono::milliseconds(5);  // between two tries for a lock

}  // namespace

LockPatience::LockPatience(SQLiteConnection const& connection, std::chrono::milliseconds most)
    : db_(connection.handle()), left_(most) {
  sqlite3_busy_handler(db_, waits, this);
}

LockPatience::~LockPatience() {
  sqlite3_busy_timeout(db_, static_cast<int>(SQLiteConnection::busyTimeout.count()));  // takes the handler away
}

int LockPatience::waits(void* self, int) noexcept {
  auto& patience = *static_cast<LockPatience*>(self);
  if (patience.left_ <= patience.left_.zero()) {
    patience.spent_ = true;
    return 0;
  }
  Uptime const begun = uptime();
  std::this_thread::sleep_for(std::min(pause, patience.left_));
  patience.left_ -= uptime() - begun;
  return 1;
}

}  // namespace tolva
