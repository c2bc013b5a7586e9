// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <filesystem>
#include <string>

namespace tolva {

/// One database file at one path, as the store knows it. A value.
struct SnapshotSource {
  std::filesystem::path path;  // absolute, without links
  std::string sourceIdentity;  // of the file, whatever its path
  std::string databaseID;      // of both: the same file elsewhere, or another file here, has a history of its own

  bool operator==(SnapshotSource const&) const = default;
};

/// Looks the file at the end of `source` up. Throws `std::filesystem::filesystem_error` where that fails, and
/// `DatabaseError` for anything but a regular file. The file is not opened: SQLite keeps its locks on it. Any thread.
SnapshotSource snapshotSource(std::filesystem::path const& source);

}  // namespace tolva
