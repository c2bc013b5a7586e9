// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <ostream>

#include "core/DatabaseError.hpp"

namespace tolva {

/// The `DatabaseError` that `call` ends with; one that names the lack of it when `call` returns.
template <class Call>
DatabaseError failureOf(Call&& call) {
  try {
    call();
  } catch (DatabaseError const& error) {
    return error;
  }
  return DatabaseError("(nothing failed)", -1);
}

/// How a failed comparison prints an error.
inline void PrintTo(DatabaseError const& error, std::ostream* out) { *out << error.code << ": " << error.detail; }

}  // namespace tolva
