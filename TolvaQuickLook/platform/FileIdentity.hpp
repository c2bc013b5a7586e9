// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <sys/types.h>

#include <compare>
#include <filesystem>
#include <optional>
#include <string>

#include "platform/Export.hpp"

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

std::optional<FileNode> TOLVA_EXPORT fileNode(std::filesystem::path const& path);    // at the end of links
std::optional<FileNode> TOLVA_EXPORT fileNode(int folder, std::string const& name);  // a link itself
std::optional<FileNode> TOLVA_EXPORT fileNode(int descriptor);

// The lasting identity ----------------------------------------------------------------------------

/// The year at whose first moment, UTC, a stored time counts from.
enum class EpochYear { y1970 = 1970, y2001 = 2001 };

/// The text "S:N:C", which stays while the file exists and is given to no later one; compared only for equality.
///
/// S is the file system's own number (`f_fsid` of statfs, unsigned), else its device number; N the inode; C the birth
/// time in seconds since `epoch`, as `doubleText` writes it, "0.0" where the file system keeps none. Neither the change
/// nor the modification time stands in for it: they move whenever the file is written.
/// Throws `std::filesystem::filesystem_error` when the file cannot be looked up.
std::string TOLVA_EXPORT fileIdentity(std::filesystem::path const& path, EpochYear epoch);    // at the end of links
std::string TOLVA_EXPORT fileIdentity(int folder, std::string const& name, EpochYear epoch);  // a link itself
std::string TOLVA_EXPORT fileIdentity(int descriptor, EpochYear epoch);

}  // namespace tolva
