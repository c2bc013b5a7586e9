// SPDX-License-Identifier: Apache-2.0
#include "core/CancellationHandle.hpp"

#include <sqlite3.h>

namespace tolva {

void CancellationHandle::install(sqlite3* handle) {
  MutexLock const lock(lock_);
  handle_ = handle;
}

void CancellationHandle::close(sqlite3* closing, std::function<void()> const& body) {
  MutexLock const lock(lock_);
  if (handle_ == closing) handle_ = nullptr;
  body();
}

void CancellationHandle::cancel() {
  MutexLock const lock(lock_);
  if (handle_) sqlite3_interrupt(handle_);
}

}  // namespace tolva
