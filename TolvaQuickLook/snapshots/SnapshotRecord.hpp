// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <filesystem>
#include <optional>
#include <string>
#include <string_view>

#include "snapshots/Snapshot.hpp"
#include "snapshots/SnapshotStore.hpp"

namespace tolva {

// The record of a snapshot as it stands in its folder, "metadata.json".

/// Reads it. Throws `DatabaseError` where it is too large, unsafe or not of this very folder, `JSONError` where it is
/// no record at all, and `std::filesystem::filesystem_error` where it is missing, no regular file or cannot be read.
/// Only the last names the file.
Snapshot readSnapshotRecord(SnapshotStore const& store, std::filesystem::path const& folder);

/// Writes it, whole and on the disk or not at all, and returns it as it will be read: texts are made valid UTF-8, since
/// what could not be read again would block the whole history, and a date keeps the digits of a double.
Snapshot writeSnapshotRecord(SnapshotStore const& store, std::filesystem::path const& folder, Snapshot const& snapshot);

/// A label as it is stored: valid UTF-8, without white space at its ends, nothing if that leaves nothing. Throws
/// `DatabaseError` if it is too long.
std::optional<std::string> trimmedLabel(std::string_view label);

}  // namespace tolva
