// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <memory>

#include "snapshots/SnapshotLease.hpp"

namespace tolva {

/// Two snapshots, held, for `DatabaseDiffService::compare`. A value.
struct PreparedSnapshotComparison {
  std::shared_ptr<SnapshotLease const> before;
  std::shared_ptr<SnapshotLease const> after;
};

}  // namespace tolva
