// SPDX-License-Identifier: Apache-2.0
#include "core/ManagedSnapshots.hpp"

#include <string>
#include <system_error>

#include "platform/ApplicationFolders.hpp"

namespace tolva {
namespace {

constexpr int mostLinks = 40;  // as many as the kernel follows

/// What a link leads to, whether that exists or not.
std::filesystem::path followed(std::filesystem::path path) {
  std::error_code failed;
  for (int links = 0; links < mostLinks && std::filesystem::is_symlink(path, failed); ++links) {
    path = path.parent_path() / std::filesystem::read_symlink(path, failed);
  }
  return path;
}

/// The absolute path with its links resolved, those of a file that is not there yet too.
std::string canonicalText(std::filesystem::path const& path) {
  std::error_code failed;
  std::filesystem::path const absolute = followed(std::filesystem::absolute(path, failed));
  std::filesystem::path const resolved = std::filesystem::weakly_canonical(absolute, failed);
  return (failed ? absolute.lexically_normal() : resolved).string();
}

}  // namespace

std::filesystem::path defaultSnapshotRoot() { return applicationSupport() / "Snapshots"; }

bool isManagedSnapshot(std::filesystem::path const& path) try {
  return canonicalText(path).starts_with(canonicalText(defaultSnapshotRoot()) + "/");
} catch (std::system_error const&) {
  return false;  // a user without a home has no store
}

}  // namespace tolva
