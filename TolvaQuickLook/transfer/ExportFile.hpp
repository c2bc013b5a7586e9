// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstddef>
#include <cstring>
#include <filesystem>
#include <memory>
#include <stop_token>
#include <string_view>

#include "platform/AtomicFile.hpp"

namespace tolva {

/// The file that an export grows in before it takes the destination's name. What is put into it is gathered in one buffer
/// on the way. Used by one thread; what it throws leaves the destination as it was.
class ExportFile {
 public:
  static constexpr std::size_t capacity = 65'536;  // of the buffer, in bytes

  /// Makes the hidden file in the folder of `destination`, as the path stands.
  ExportFile(std::filesystem::path const& destination, std::stop_token task);

  void put(std::string_view text) {
    if (text.size() > capacity) return putInPieces(text);
    std::memcpy(room(text.size()), text.data(), text.size());
    used_ += text.size();
  }

  /// A place for `bytes` bytes, at most `capacity`; what is written there counts once `wroteTo` is told where it ends.
  /// A full buffer goes to the file first, unless the task is cancelled.
  char* room(std::size_t bytes) {
    if (capacity - used_ < bytes) drain();
    return buffer_.get() + used_;
  }
  void wroteTo(char const* end) { used_ = static_cast<std::size_t>(end - buffer_.get()); }

  /// Puts the file on the disk and under its name, in place of a file or link that has it.
  void publish();

 private:
  void putInPieces(std::string_view text);
  void drain();
  void write();

  std::filesystem::path const destination_;
  std::stop_token const task_;
  AtomicFile file_;
  std::unique_ptr<char[]> const buffer_;
  std::size_t used_ = 0;
};

/// Fails where an export to `destination` would take away the database that it reads, or one of its companion files.
void checkExportDestination(std::filesystem::path const& database, std::filesystem::path const& destination);

}  // namespace tolva
