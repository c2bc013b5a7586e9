// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <sys/types.h>

#include <chrono>
#include <cstdint>
#include <filesystem>

#include "platform/FileNode.hpp"

namespace tolva {

/// What the file system says of a file at one moment; equal as long as nobody wrote to it. A value.
struct FileStatus {
  FileNode node;
  bool regular = false;    // no folder, pipe or device
  std::uint64_t size = 0;  // bytes
  std::chrono::system_clock::time_point modified;
  std::chrono::system_clock::time_point changed;  // of the content or of what is told here
  std::uint64_t links = 0;                        // hard links
  uid_t owner = 0;
  friend bool operator==(FileStatus const&, FileStatus const&) = default;
};

// Throw the system's own `std::filesystem::filesystem_error`. Any thread.

FileStatus fileStatus(std::filesystem::path const& path);  // at the end of links; the file itself is never opened
FileStatus fileStatus(int descriptor, std::filesystem::path const& path);  // `path` for what is told of a failure

}  // namespace tolva
