// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <sqlite3.h>

#include <cstdint>

namespace tolva {

/// The limits of memory that the host program itself has set for SQLite, in bytes, for a scope.
struct HostHeapLimits {
  HostHeapLimits(std::int64_t hardLimit, std::int64_t softLimit) : hard(hardLimit), soft(softLimit) { set(hard, soft); }
  ~HostHeapLimits() { set(0, 0); }
  HostHeapLimits(HostHeapLimits const&) = delete;
  HostHeapLimits& operator=(HostHeapLimits const&) = delete;

  bool stand() const { return sqlite3_hard_heap_limit64(-1) == hard && sqlite3_soft_heap_limit64(-1) == soft; }

  static void set(std::int64_t hard, std::int64_t soft) {
    sqlite3_hard_heap_limit64(hard);
    sqlite3_soft_heap_limit64(soft);
  }

  std::int64_t const hard;
  std::int64_t const soft;
};

}  // namespace tolva
