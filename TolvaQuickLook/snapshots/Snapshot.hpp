// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <chrono>
#include <cstdint>
#include <optional>
#include <string>

#include "platform/UUID.hpp"

namespace tolva {

/// What is told of one read-only copy of a database as it was at a moment. A value.
struct Snapshot {
  std::int64_t version = 1;  // of the stored record; there is no other yet
  UUID id;
  std::string databaseID;      // 64 hexadecimal digits of one file at one path
  std::string sourcePath;      // with its links resolved; bytes that are no UTF-8 stand as U+FFFD
  std::string sourceIdentity;  // the file itself, whatever its path; compared only for equality
  std::chrono::system_clock::time_point started;
  std::chrono::system_clock::time_point timestamp;  // when it was complete; the history is sorted by it
  std::optional<std::string> label;                 // the person's name for it; all that can change
  std::int64_t size = 0;                            // bytes of the copy; 0 where it is not known
  std::string sqliteVersion;                        // of the library that copied
  std::string journalMode;                          // of the source; the copy itself keeps no log
  std::int64_t pageSize = 0;                        // of the source, in bytes

  /// What a list shows: the label, or "Snapshot".
  std::string title() const { return label.value_or("Snapshot"); }

  bool operator==(Snapshot const&) const = default;
};

}  // namespace tolva
