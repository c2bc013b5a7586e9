// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <chrono>
#include <cstdint>
#include <filesystem>

namespace tolva {

/// What the file system tells of a file without opening it.
struct FileAttributes {
  std::int64_t bytes;
  std::chrono::system_clock::time_point modified;

  /// Follows links. Throws `std::filesystem::filesystem_error`, the system's own error.
  static FileAttributes read(std::filesystem::path const& path);
};

}  // namespace tolva
