// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <sys/types.h>

#include <compare>
#include <filesystem>
#include <optional>
#include <string>

namespace tolva {

/// What two names of one file have in common, hard links included. Good while the file exists: Linux gives the
/// numbers of a deleted file to the next one, and some file systems change `device` at every start. A value.
struct FileNode {
  dev_t device = 0;
  ino_t inode = 0;
  auto operator<=>(FileNode const&) const = default;
};

// Looking up --------------------------------------------------------------------------------------
// Nothing when there is no such file or it cannot be looked up. The file itself is never opened, so that no lock that
// SQLite has on it is dropped. Any thread.

std::optional<FileNode> fileNode(std::filesystem::path const& path);    // at the end of links
std::optional<FileNode> fileNode(int folder, std::string const& name);  // a link itself
std::optional<FileNode> fileNode(int descriptor);

}  // namespace tolva
