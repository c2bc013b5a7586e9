// SPDX-License-Identifier: Apache-2.0
#include "core/DeadlineInterrupt.hpp"

#include <sqlite3.h>
#include <sys/stat.h>

#include <algorithm>
#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <mutex>
#include <stop_token>
#include <system_error>

namespace tolva {
namespace {

// An interrupt that comes while no statement runs is forgotten by SQLite when the next one begins.
constexpr std::chrono::milliseconds repetition{20};

constexpr std::int64_t smallFile = std::int64_t{1} << 20;

bool isLargeFile(char const* file) {
  struct stat found;
  return stat(file, &found) == 0 && found.st_size > smallFile;
}

void interruptFrom(std::stop_token const& ended, sqlite3* handle, Uptime deadline) {
  std::mutex lock;
  std::unique_lock held(lock);
  std::condition_variable_any wake;
  auto const isEnded = [&] { return ended.stop_requested(); };
  for (Uptime next = deadline; !wake.wait_until(held, ended, next, isEnded); next = uptime() + repetition) {
    sqlite3_interrupt(handle);
  }
}

}  // namespace

DeadlineInterrupt::DeadlineInterrupt(sqlite3* handle, Uptime deadline, std::initializer_list<char const*> databases) {
  auto const isLarge = [&](char const* name) { return mayHoldLargeValues(handle, name); };
  if (std::ranges::none_of(databases, isLarge)) return;
  try {
    watch_ = std::jthread(interruptFrom, handle, deadline);
  } catch (std::system_error const&) {
    // A process that may not start a thread keeps the time less exactly.
  }
}

DeadlineInterrupt::~DeadlineInterrupt() = default;

bool mayHoldLargeValues(sqlite3* handle, char const* name) {
  char const* const database = sqlite3_db_filename(handle, name);
  if (!database || !*database) return true;  // in memory, or not attached
  return isLargeFile(database) || isLargeFile(sqlite3_filename_wal(database));
}

}  // namespace tolva
