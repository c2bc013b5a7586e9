// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdint>

namespace tolva {

/// How far a copy is, in pages of the source. It falls back when the copy starts again. A value.
struct SnapshotProgress {
  std::int64_t copiedPages = 0;
  std::int64_t totalPages = 0;

  bool operator==(SnapshotProgress const&) const = default;
};

}  // namespace tolva
