// SPDX-License-Identifier: Apache-2.0
#include "platform/CanonicalPath.hpp"

#include <system_error>

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

}  // namespace

std::filesystem::path canonicalPath(std::filesystem::path const& path) {
  std::error_code failed;
  std::filesystem::path const absolute = followed(std::filesystem::absolute(path, failed));
  std::filesystem::path resolved = std::filesystem::weakly_canonical(absolute, failed);
  return failed ? absolute.lexically_normal() : resolved;
}

}  // namespace tolva
