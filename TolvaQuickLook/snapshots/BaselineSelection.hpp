// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <optional>

#include "platform/UUID.hpp"
#include "snapshots/Snapshot.hpp"

namespace tolva {

/// The baseline of a database: none (both empty), a valid one (both there), or one whose snapshot is gone (`id` alone),
/// which a person clears or replaces. A value.
struct BaselineSelection {
  std::optional<UUID> id;
  std::optional<Snapshot> snapshot;

  bool operator==(BaselineSelection const&) const = default;
};

}  // namespace tolva
