// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdint>
#include <filesystem>
#include <span>
#include <stop_token>
#include <string>

#include "platform/Descriptor.hpp"

namespace tolva {

/// A new file under its name from the beginning, for bytes that a person saves: readable by its owner alone.
///
/// Whatever has the name already, a link included, is left alone. Deleted when the object goes, unless it was kept.
/// The folder is opened once: what is asked, made and deleted is of one folder, whatever its path leads to
/// by then, and nothing is deleted but the file that was made. Used by one thread at a time. Throws `DatabaseError`.
class PreviewFile {
 public:
  /// Refuses to be `database` or one of the files that SQLite keeps beside it, whether they exist or not.
  PreviewFile(std::filesystem::path const& path, std::filesystem::path const& database);
  ~PreviewFile();
  PreviewFile(PreviewFile const&) = delete;
  PreviewFile& operator=(PreviewFile const&) = delete;

  /// Appends all of `bytes`. Throws `TaskCancelled` between two writes.
  void write(std::span<std::uint8_t const> bytes, std::stop_token const& task);

  void keep() { kept_ = true; }

 private:
  bool isOurs() const;

  std::string const name_;
  Descriptor const folder_;
  int const file_;
  bool kept_ = false;
};

}  // namespace tolva
