// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdint>
#include <filesystem>

#include "platform/Export.hpp"

namespace tolva {

/// What one look at a file told: whatever changes the file changes its stamp. A value.
struct TOLVA_EXPORT Stamp {
  std::uint64_t device = 0;  // st_dev
  std::uint64_t inode = 0;   // st_ino
  std::int64_t bytes = 0;    // st_size
  std::int64_t seconds = 0;  // of the last modification, with the nanoseconds behind them
  std::int64_t nanoseconds = 0;
  std::int64_t changedSeconds = 0;  // of the last change of the status: permissions, names, links
  std::int64_t changedNanoseconds = 0;
  std::int32_t error = 0;  // 0, or the errno of the look that failed; all else is 0 then

  /// Follows links and never opens the file, so that no lock that SQLite has on it is dropped. Never throws.
  static Stamp of(std::filesystem::path const& path) noexcept;

  bool operator==(Stamp const&) const = default;
};

}  // namespace tolva
