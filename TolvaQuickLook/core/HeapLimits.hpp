// SPDX-License-Identifier: Apache-2.0
#pragma once

namespace tolva {

/// Keeps SQLite's two limits of memory (https://sqlite.org/pragma.html#pragma_hard_heap_limit) for a scope in which SQL
/// of a person is compiled and stepped.
///
/// They belong to the process, not to a connection: a script that sets one would make every other service of the
/// process fail for want of memory. At the end of a scope both are again what they were when the first of the scopes
/// that live at one time began. Any thread.
class HeapLimits {
 public:
  HeapLimits();
  ~HeapLimits();
  HeapLimits(HeapLimits const&) = delete;
  HeapLimits& operator=(HeapLimits const&) = delete;
};

}  // namespace tolva
