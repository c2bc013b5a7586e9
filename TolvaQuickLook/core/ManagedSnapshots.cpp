// SPDX-License-Identifier: Apache-2.0
#include "core/ManagedSnapshots.hpp"

#include <string>
#include <system_error>

#include "platform/ApplicationFolders.hpp"
#include "platform/CanonicalPath.hpp"

namespace tolva {

std::filesystem::path defaultSnapshotRoot() { return applicationSupport() / "Snapshots"; }

bool isManagedSnapshot(std::filesystem::path const& path) try {
  return canonicalPath(path).string().starts_with(canonicalPath(defaultSnapshotRoot()).string() + "/");
} catch (std::system_error const&) {
  return false;  // a user without a home has no store
}

}  // namespace tolva
