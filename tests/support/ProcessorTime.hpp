// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <time.h>

#include <chrono>

namespace tolva {

/// What this thread has computed so far, which a busy machine does not stretch.
inline std::chrono::nanoseconds processorTime() {
  timespec now{};
  clock_gettime(CLOCK_THREAD_CPUTIME_ID, &now);
  return std::chrono::seconds(now.tv_sec) + std::chrono::nanoseconds(now.tv_nsec);
}

}  // namespace tolva
