// SPDX-License-Identifier: Apache-2.0
#include "platform/Turn.hpp"

#include <cstdio>
#include <cstdlib>

namespace tolva {
namespace {

thread_local bool holdsTurn = false;

}  // namespace

void TurnQueue::enter() {
  if (holdsTurn) {
    std::fputs("A thread waits for a turn while it holds one.\n", stderr);
    std::abort();
  }
  std::unique_lock lock(mutex_);
  std::uint64_t const ticket = issued_++;
  called_.wait(lock, [&] { return serving_ == ticket; });
  holdsTurn = true;
}

void TurnQueue::leave() {
  holdsTurn = false;
  std::lock_guard const lock(mutex_);
  ++serving_;
  called_.notify_all();  // under the lock: the next caller may destroy the queue as soon as it has it
}

}  // namespace tolva
