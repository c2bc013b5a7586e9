// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <filesystem>

namespace tolva {

/// The user's own snapshot store, "Tolva/Snapshots" in the folder of application data.
std::filesystem::path defaultSnapshotRoot();

/// Whether `path`, made absolute with its links resolved, lies in the user's snapshot store, whose databases are never
/// written. A store that does not exist yet holds nothing, and so does a path that leads nowhere.
bool isManagedSnapshot(std::filesystem::path const& path);

}  // namespace tolva
