// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <condition_variable>
#include <cstdint>
#include <mutex>

#include "platform/ThreadSafety.hpp"

namespace tolva {

/// The queue in which callers wait for their turn at a serial service: first come, first served.
///
/// Any thread. A thread never waits for a turn while it holds one, of this queue or another, so turns cannot deadlock.
class TOLVA_EXPORT CAPABILITY("turn") TurnQueue {
 public:
  TurnQueue() = default;
  TurnQueue(TurnQueue const&) = delete;
  TurnQueue& operator=(TurnQueue const&) = delete;

 private:
  friend class Turn;

  void enter();
  void leave();

  std::mutex mutex_;
  std::condition_variable called_;
  std::uint64_t issued_ = 0;   // tickets handed out
  std::uint64_t serving_ = 0;  // the ticket whose turn it is
};

/// One caller's turn, for a scope. The first line of every public operation of a serial service.
///
/// Belongs to the thread that took it. Aborts the program if the thread holds a turn already.
class TOLVA_EXPORT SCOPED_CAPABILITY Turn {
 public:
  explicit Turn(TurnQueue& queue) ACQUIRE(queue) : queue_(queue) { queue_.enter(); }
  ~Turn() RELEASE() { queue_.leave(); }
  Turn(Turn const&) = delete;
  Turn& operator=(Turn const&) = delete;

  /// Gives the turn up while `call` runs and takes a new one, at the end of the queue, before it returns or throws.
  /// What was read before is compared or copied afterwards: other calls may have run in between.
  template <class Call>
  auto away(Call&& call) NO_THREAD_SAFETY_ANALYSIS {
    struct Away {
      explicit Away(TurnQueue& queue) : queue(queue) { queue.leave(); }
      ~Away() { queue.enter(); }
      TurnQueue& queue;
    } const given(queue_);
    return call();
  }

 private:
  TurnQueue& queue_;
};

}  // namespace tolva
