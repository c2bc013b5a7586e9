// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <filesystem>
#include <string>

namespace tolva {

/// The year at whose first moment, UTC, a stored time counts from.
enum class EpochYear { y1970 = 1970, y2001 = 2001 };

/// The text "S:N:C", which stays while the file exists and is given to no later one; compared only for equality.
///
/// S is the file system's own number (`f_fsid` of statfs, unsigned), else its device number; N the inode; C the birth
/// time in seconds since `epoch`, as `doubleText` writes it, "0.0" where the file system keeps none. Neither the change
/// nor the modification time stands in for it: they move whenever the file is written.
/// Throws `std::filesystem::filesystem_error` when the file cannot be looked up.
std::string fileIdentity(std::filesystem::path const& path, EpochYear epoch);    // at the end of links
std::string fileIdentity(int folder, std::string const& name, EpochYear epoch);  // a link itself
std::string fileIdentity(int descriptor, EpochYear epoch);

}  // namespace tolva
