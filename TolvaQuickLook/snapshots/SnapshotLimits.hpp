// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <chrono>
#include <cstdint>
#include <optional>

namespace tolva {

/// The bounds of a capture. A value.
struct SnapshotLimits {
  std::chrono::duration<double> timeout{300.0};          // of one copy, in seconds
  std::optional<std::int64_t> availableBytesOverride{};  // in place of the free bytes of the store's file system
  std::optional<std::int64_t> destinationPageLimit{};    // pages that the copy may have; 0 or less is no limit
};

}  // namespace tolva
