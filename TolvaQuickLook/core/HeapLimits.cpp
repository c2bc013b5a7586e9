// SPDX-License-Identifier: Apache-2.0
#include "core/HeapLimits.hpp"

#include <sqlite3.h>

#include "platform/ThreadSafety.hpp"

namespace tolva {
namespace {

/// What the scopes of all threads share.
struct Kept {
  Mutex lock;
  int scopes GUARDED_BY(lock) = 0;
  sqlite3_int64 hard GUARDED_BY(lock) = 0;  // bytes; 0 is no limit
  sqlite3_int64 soft GUARDED_BY(lock) = 0;
};

Kept& kept() {
  static auto* const all = new Kept;
  return *all;
}

}  // namespace

HeapLimits::HeapLimits() {
  Kept& all = kept();
  MutexLock const lock(all.lock);
  if (all.scopes++ > 0) return;
  all.hard = sqlite3_hard_heap_limit64(-1);
  all.soft = sqlite3_soft_heap_limit64(-1);
}

/// The hard limit first: it bounds the soft one.
HeapLimits::~HeapLimits() {
  Kept& all = kept();
  MutexLock const lock(all.lock);
  --all.scopes;
  sqlite3_hard_heap_limit64(all.hard);
  sqlite3_soft_heap_limit64(all.soft);
}

}  // namespace tolva
