// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdint>
#include <filesystem>
#include <variant>

#include "platform/Export.hpp"

namespace tolva {

/// Whether a file is there, and how large. A value with three cases.
class TOLVA_EXPORT FileObservation {
 public:
  static FileObservation present(std::int64_t bytes) { return FileObservation(Present{bytes}); }
  static FileObservation missing() { return FileObservation(Missing{}); }
  static FileObservation unavailable() { return FileObservation(Unavailable{}); }

  /// Asks the file system. Does not follow a link at the end of `path`: its size is that of the link. Never throws.
  static FileObservation read(std::filesystem::path const& path) noexcept;

  /// The size of a file that is there; null for the other cases.
  std::int64_t const* bytes() const {
    auto const* const present = std::get_if<Present>(&found_);
    return present ? &present->bytes : nullptr;
  }
  bool isMissing() const { return std::holds_alternative<Missing>(found_); }
  bool isUnavailable() const { return std::holds_alternative<Unavailable>(found_); }  // nobody can say

  bool operator==(FileObservation const&) const = default;

 private:
  struct Present {
    std::int64_t bytes;
    bool operator==(Present const&) const = default;
  };
  struct Missing {
    bool operator==(Missing const&) const = default;
  };
  struct Unavailable {
    bool operator==(Unavailable const&) const = default;
  };
  using Found = std::variant<Present, Missing, Unavailable>;

  explicit FileObservation(Found found) : found_(found) {}

  Found found_;
};

}  // namespace tolva
