// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <chrono>

namespace tolva {

/// A moment on the monotonic clock. Budgets are counted on it, never on the wall clock, which a person can set.
using Uptime = std::chrono::steady_clock::time_point;

inline Uptime uptime() { return std::chrono::steady_clock::now(); }

}  // namespace tolva
