// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

#include "core/DatabaseError.hpp"

namespace tolva {

/// A bound and the sentence that reports it, kept together so that neither changes alone.
struct Limit {
  std::int64_t most;         // inclusive
  std::string_view message;  // the user's exact words

  void check(std::int64_t amount) const {
    if (amount > most) throw DatabaseError(std::string(message));
  }
};

}  // namespace tolva
