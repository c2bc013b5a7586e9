// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <chrono>
#include <cstdint>
#include <optional>

namespace tolva {

/// What a monitor tells of a database file and its companions. A value.
struct DatabaseObservation {
  std::uint64_t revision = 0;            // rises by one for each change seen
  std::optional<std::int64_t> walBytes;  // size of the "-wal" file; absent if it cannot be looked at
  bool shmPresent = false;               // the "-shm" file could be looked at
  bool requiresReopen = false;           // the file is no longer the one first seen; never false again
  bool unavailable = false;              // a file is there, perhaps, but cannot be looked at
  std::optional<std::chrono::system_clock::time_point> lastChange;  // when `revision` last rose

  bool operator==(DatabaseObservation const&) const = default;
};

}  // namespace tolva
