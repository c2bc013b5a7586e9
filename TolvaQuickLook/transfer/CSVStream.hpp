// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdint>
#include <filesystem>
#include <limits>
#include <memory>
#include <optional>
#include <span>
#include <stop_token>
#include <string>
#include <string_view>
#include <vector>

#include "core/DatabaseError.hpp"
#include "platform/Export.hpp"
#include "transfer/CSVOptions.hpp"

namespace tolva {

/// What a row of a delimited file may hold, each number included. None is negative. A value.
struct CSVLimits {
  static constexpr std::int64_t none = std::numeric_limits<std::int64_t>::max();

  std::int64_t columns = none;     // fields of a row; a last one that the file's end leaves empty is not counted
  std::int64_t fieldBytes = none;  // of one field in the file's encoding, without its quotes
  std::int64_t rowBytes = none;    // of the row in the file; a CR LF and a doubled quote are one each
};

/// Reads a delimited file row by row.
///
/// The format is that of RFC 4180 (https://www.rfc-editor.org/rfc/rfc4180) and more: CR, LF and CR LF each end a row,
/// an empty line is a row of one empty field, and rows may differ in length. A quote opens a quoted section only as the
/// first byte of a field, and what follows the closing quote joins the field. A byte order mark stays where it stands.
///
/// It holds 64 KiB of the file and one row: its bytes, 16 more for each field and, of Latin-1, what it is in UTF-8.
/// While a row beyond 64 KiB grows it is there twice for a moment; the rows behind it give back the room that it took.
///
/// Used by one thread at a time. The file may be a database that is open. `task` is checked for each row and each
/// 64 KiB. After a failure the stream is of no more use.
class TOLVA_EXPORT CSVStream {
 public:
  /// Throws `std::filesystem::filesystem_error` when the file cannot be opened; a pipe, device or folder is refused at
  /// once with `std::errc::invalid_argument`.
  explicit CSVStream(std::filesystem::path const& file, CSVOptions const& options = {}, CSVLimits const& limits = {});
  ~CSVStream();
  CSVStream(CSVStream const&) = delete;
  CSVStream& operator=(CSVStream const&) = delete;

  /// The next row; none at the end of the file, then and ever after. Throws `DatabaseError` for what the file holds,
  /// `std::filesystem::filesystem_error` where it cannot be read, and `TaskCancelled`.
  std::optional<std::vector<std::string>> next(std::stop_token const& task);

  /// The same for rows by the million: the views hold until the next call.
  std::optional<std::span<std::string_view const>> nextFields(std::stop_token const& task);

 private:
  struct Source;
  std::unique_ptr<Source> source_;
};

}  // namespace tolva
