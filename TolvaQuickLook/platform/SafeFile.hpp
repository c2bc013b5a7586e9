// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <chrono>
#include <cstdint>
#include <filesystem>
#include <span>
#include <string>

#include "platform/Bytes.hpp"
#include "platform/FileStatus.hpp"

namespace tolva {

/// Whether a link as the last part of a path leads on or is refused (with ELOOP).
enum class Links { follow, refuse };

/// A file that a person chose, open for reading: the one way such a file is opened.
///
/// It may be anything, a database that SQLite has open at this moment included, so it is closed through `LockedFiles`.
/// Throws `std::filesystem::filesystem_error` when the file cannot be opened or read; a pipe, device or folder is
/// refused at once with `std::errc::invalid_argument`. Movable; used by one thread at a time.
class SafeFile {
 public:
  explicit SafeFile(std::filesystem::path const& path, Links links = Links::follow);
  SafeFile(int folder, std::string const& name, Links links = Links::refuse);  // `name` in an open folder
  ~SafeFile();

  SafeFile(SafeFile&& other) noexcept;
  SafeFile& operator=(SafeFile&& other) noexcept;

  // What it is --------------------------------------------------------------------------------------

  FileNode node() const { return opened_.node; }
  std::uint64_t size() const { return opened_.size; }  // when it was opened, as `modified`
  std::chrono::system_clock::time_point modified() const { return opened_.modified; }

  /// As it is now.
  FileStatus status() const;

  // Reading -----------------------------------------------------------------------------------------

  /// Fills `into` from where the last read ended. Fewer bytes than asked for come only at the end of the file.
  std::size_t read(std::span<std::uint8_t> into);

  /// Fills `into` from `offset`; the place of `read` stays.
  std::size_t readAt(std::span<std::uint8_t> into, std::uint64_t offset) const;

  /// The rest of the file, cut after `limit` bytes. Ask for one more than a limit to see that it is passed.
  Bytes readUpTo(std::size_t limit);

 private:
  SafeFile() = default;
  void open(int folder, std::filesystem::path const& path, Links links);

  int descriptor_ = -1;
  std::filesystem::path path_;  // for what is told of a failure
  FileStatus opened_;
};

}  // namespace tolva
