// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdint>
#include <optional>

namespace tolva {

/// What a snapshot takes, and what there is. A value.
struct SnapshotEstimate {
  std::int64_t bytes = 0;                      // of the database
  std::optional<std::int64_t> availableBytes;  // of the store's file system; empty where it does not tell

  bool operator==(SnapshotEstimate const&) const = default;
};

}  // namespace tolva
