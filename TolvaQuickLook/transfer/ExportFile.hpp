// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstddef>
#include <cstring>
#include <memory>
#include <stop_token>
#include <string_view>

#include "platform/AtomicFile.hpp"
#include "transfer/ExportDestination.hpp"

namespace tolva {

/// The file that an export grows in before it takes the destination's name. What is put into it is gathered in one
/// buffer on the way. Used by one thread; what it throws leaves the destination as it was.
class ExportFile {
 public:
  static constexpr std::size_t capacity = 65'536;  // of the buffer, in bytes

  /// Makes the hidden file in the folder of `destination`, which outlives it, as the path stands. Fails where the
  /// export would replace what it may not.
  ExportFile(ExportDestination const& destination, std::stop_token task);

  void put(std::string_view text) {
    if (text.empty()) return;
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

  /// Puts the file on the disk and under its name, in place of a file or link that has it. Looks once more, in the
  /// folder that the file grew in, whether that may be replaced.
  void publish();

 private:
  void putInPieces(std::string_view text);
  void drain();
  void write();

  ExportDestination const& destination_;
  std::stop_token const task_;
  AtomicFile file_;
  std::unique_ptr<char[]> const buffer_;
  std::size_t used_ = 0;
};

}  // namespace tolva
