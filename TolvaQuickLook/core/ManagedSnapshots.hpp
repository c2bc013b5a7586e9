// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <filesystem>

namespace tolva {

/// The user's own snapshot store, "Tolva/Snapshots" in the folder of application data.
std::filesystem::path defaultSnapshotRoot();

/// Whether `path`, made absolute with its links resolved, lies in the user's snapshot store, whose databases are never
/// written. The test is of the path alone: a second name of a snapshot elsewhere is none. A user without a home folder
/// has no store.
bool isManagedSnapshot(std::filesystem::path const& path);

}  // namespace tolva
