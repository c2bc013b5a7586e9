// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <sys/types.h>

#include <filesystem>
#include <optional>
#include <string>

#include "platform/FileNode.hpp"

namespace tolva {

/// Where an export goes, and what it must never take the place of: the database that it reads, that one's "-wal" and
/// "-shm", a device or a pipe. Used by one thread.
class ExportDestination {
 public:
  /// Fails where `destination` is one of the files of the database, by path or as another name of it. Nothing is
  /// opened.
  ///
  /// A companion by another name, a hard link or the same folder mounted elsewhere, is refused as one by path is:
  /// without it commits that are not in the database yet are lost.
  ExportDestination(std::filesystem::path const& database, std::filesystem::path destination);

  std::filesystem::path const& path() const { return path_; }  // as the caller passed it

  /// The permissions of the file that is written: read and write for everybody, less the umask; but where it
  /// replaces one, no wider than that.
  mode_t mode() const;

  /// Looks which files the database consists of now. They stay its files by whatever name somebody calls them later.
  void noteFiles();

  /// Fails where one of its files, a device or a pipe has the destination's name in `folder` by now.
  void requireReplaceable(int folder) const;

 private:
  void requireOtherFile(std::optional<FileNode> const& node) const;

  std::filesystem::path const path_;
  std::filesystem::path const source_;  // the canonical path of the database
  std::optional<FileNode> database_;
  std::optional<FileNode> writeAheadLog_;
  std::optional<FileNode> sharedMemory_;
};

}  // namespace tolva
