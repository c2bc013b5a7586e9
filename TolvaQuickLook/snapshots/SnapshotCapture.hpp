// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <filesystem>
#include <optional>
#include <stop_token>
#include <string>

#include "snapshots/Snapshot.hpp"
#include "snapshots/SnapshotLimits.hpp"
#include "snapshots/SnapshotService.hpp"
#include "snapshots/SnapshotStore.hpp"

namespace tolva {

/// What `SnapshotService::create` is asked for. A value, which refers to the caller's own.
struct CaptureRequest {
  std::filesystem::path const& source;
  std::optional<std::string> const& label;
  SnapshotProgressReport const& progress;
  SourceValidation const& validateSource;
};

/// Takes one snapshot, as `SnapshotService::create` tells. The caller has the store's catalog locked for the whole
/// call, in its turn. A failure leaves the store as it was, but for the folder of the source, which may be new and
/// empty.
Snapshot captureSnapshot(SnapshotStore const& store, SnapshotLimits const& limits, CaptureRequest const& request,
                         std::stop_token const& task);

}  // namespace tolva
