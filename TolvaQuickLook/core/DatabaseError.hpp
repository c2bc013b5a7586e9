// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdint>
#include <exception>
#include <string>
#include <utility>

#include "platform/Export.hpp"

namespace tolva {

/// The one database error: a failure of SQLite, or of the system's own validation. A value.
struct TOLVA_EXPORT DatabaseError : std::exception {
  explicit DatabaseError(std::string detail, std::int32_t code = 1) : code(code), detail(std::move(detail)) {}

  std::int32_t code;   // a SQLite result code as returned, extended codes included; 1 for own validation
  std::string detail;  // the raw message

  /// The text for the person. SQLite's primary code (https://sqlite.org/rescode.html) decides what stands before or
  /// in place of `detail`.
  std::string errorDescription() const;

  /// Whether a running statement was interrupted.
  bool isCancellation() const { return (code & 0xFF) == 9; }

  /// `detail`, for programs that know only `std::exception`.
  char const* what() const noexcept override { return detail.c_str(); }

  friend bool operator==(DatabaseError const& left, DatabaseError const& right) {
    return left.code == right.code && left.detail == right.detail;
  }
};

}  // namespace tolva
