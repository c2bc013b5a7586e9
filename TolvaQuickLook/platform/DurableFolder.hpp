// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <filesystem>

namespace tolva {

// Folders that outlive a power loss. Each throws `std::filesystem::filesystem_error`. Any thread.

/// Makes the folder at `path`, and those above it, with mode 0700 where they are not there yet, each on the disk before
/// the next one. A folder whose name cannot be put on the disk is not left behind.
void makeDurableFolder(std::filesystem::path const& path);

/// Puts the names in a folder on the disk: what was made, renamed or removed there. A file system without a way to do
/// that is no failure.
void flushFolder(std::filesystem::path const& path);

}  // namespace tolva
