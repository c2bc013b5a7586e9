// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <functional>

#include "platform/Export.hpp"
#include "platform/ThreadSafety.hpp"

struct sqlite3;  // sqlite3.h stays in the .cpp files of this folder

namespace tolva {

/// The hold on an open database handle by which any thread can interrupt the statement that runs on it.
///
/// Any thread. A service keeps one across the reopenings of its connection. A cancel while no statement runs is lost.
/// One between two rows of a statement stops it at the next, and until then whatever else the connection runs.
class TOLVA_EXPORT CancellationHandle {
 public:
  /// Makes `handle` the one that `cancel` interrupts.
  void install(sqlite3* handle);

  /// Runs `body`, which closes `closing`, while no cancel can reach that handle. A handle that was installed since
  /// stays: a statement that outlives a reopening closes the old connection late.
  void close(sqlite3* closing, std::function<void()> const& body);

  /// Interrupts the running statement, which then fails as cancelled.
  void cancel();

 private:
  Mutex lock_;
  sqlite3* handle_ GUARDED_BY(lock_) = nullptr;
};

}  // namespace tolva
