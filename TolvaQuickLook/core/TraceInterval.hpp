// SPDX-License-Identifier: Apache-2.0
#pragma once

namespace tolva {

/// Marks an interval of work by name, from its creation to its end. It has no effect that can be seen: no output, no
/// timing.
class TraceInterval {
 public:
  explicit TraceInterval(char const* /*name*/) {}
  ~TraceInterval() {}
  TraceInterval(TraceInterval const&) = delete;
  TraceInterval& operator=(TraceInterval const&) = delete;
};

}  // namespace tolva
