// SPDX-License-Identifier: Apache-2.0
#include "core/DeadlineInterrupt.hpp"

#include <sqlite3.h>

#include <chrono>
#include <condition_variable>
#include <mutex>
#include <stop_token>
#include <system_error>

namespace tolva {
namespace {

// An interrupt that comes while no statement runs is forgotten by SQLite when the next one begins.
constexpr std::chrono::milliseconds repetition{20};

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

DeadlineInterrupt::DeadlineInterrupt(sqlite3* handle, Uptime deadline) {
  try {
    watch_ = std::jthread(interruptFrom, handle, deadline);
  } catch (std::system_error const&) {
    // A process that may not start a thread keeps the time less exactly.
  }
}

DeadlineInterrupt::~DeadlineInterrupt() = default;

}  // namespace tolva
