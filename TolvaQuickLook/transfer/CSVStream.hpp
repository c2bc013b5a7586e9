// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdint>
#include <filesystem>
#include <limits>
#include <optional>
#include <span>
#include <stop_token>
#include <string>
#include <string_view>
#include <vector>

#include "core/DatabaseError.hpp"
#include "transfer/CSVOptions.hpp"

namespace tolva {

/// What a row of a delimited file may hold, each number included.
struct CSVLimits {
  static constexpr std::int64_t none = std::numeric_limits<std::int64_t>::max();

  std::int64_t columns = none;     // fields of a row
  std::int64_t fieldBytes = none;  // of one field as it stands in the file, its quotes removed
  std::int64_t rowBytes = none;    // that a row takes in the file, its line end included
};

/// Reads a delimited file (https://www.rfc-editor.org/rfc/rfc4180) row by row, with no more of it in memory than one row
/// and 64 KiB.
///
/// Used by one thread at a time; the file is closed with the object. A byte order mark stays where it stands. After a
/// failure the stream is of no more use.
class CSVStream {
 public:
  /// Throws `std::filesystem::filesystem_error` when the file cannot be opened.
  CSVStream(std::filesystem::path const& file, CSVOptions const& options, CSVLimits const& limits = {});
  ~CSVStream();

  /// The next row; none at the end of the file. Throws `DatabaseError` for what the file holds, the system's own
  /// `std::filesystem::filesystem_error` where it cannot be read, and `TaskCancelled`.
  std::optional<std::vector<std::string>> next(std::stop_token const& task);

  /// The same for rows by the million: the views hold until the next call.
  std::optional<std::span<std::string_view const>> nextFields(std::stop_token const& task);
};

}  // namespace tolva
