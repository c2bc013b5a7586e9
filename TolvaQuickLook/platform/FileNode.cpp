// SPDX-License-Identifier: Apache-2.0
#include "platform/FileNode.hpp"

#include <fcntl.h>
#include <sys/stat.h>

namespace tolva {
namespace {

std::optional<FileNode> nodeOf(int folder, char const* name, int flags) {
  struct stat status {};
  if (::fstatat(folder, name, &status, flags) != 0) return std::nullopt;
  return FileNode{status.st_dev, status.st_ino};
}

}  // namespace

std::optional<FileNode> fileNode(std::filesystem::path const& path) { return nodeOf(AT_FDCWD, path.c_str(), 0); }

std::optional<FileNode> fileNode(int folder, std::string const& name) {
  return nodeOf(folder, name.c_str(), AT_SYMLINK_NOFOLLOW);
}

std::optional<FileNode> fileNode(int descriptor) { return nodeOf(descriptor, "", AT_EMPTY_PATH); }

}  // namespace tolva
