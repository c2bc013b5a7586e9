// SPDX-License-Identifier: Apache-2.0
#include "core/ManagedSnapshots.hpp"

#include "platform/ApplicationFolders.hpp"

namespace tolva {
namespace {

/// The absolute path with the links of its existing part resolved.
std::string canonicalText(std::filesystem::path const& path) {
  std::error_code failed;
  std::filesystem::path const absolute = std::filesystem::absolute(path, failed);
  std::filesystem::path const resolved = std::filesystem::weakly_canonical(absolute, failed);
  return (failed ? absolute.lexically_normal() : resolved).string();
}

}  // namespace

std::filesystem::path defaultSnapshotRoot() { return applicationSupport() / "Snapshots"; }

bool isManagedSnapshot(std::filesystem::path const& path) {
  return canonicalText(path).starts_with(canonicalText(defaultSnapshotRoot()) + "/");
}

}  // namespace tolva
