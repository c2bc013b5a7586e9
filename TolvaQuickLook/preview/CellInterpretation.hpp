// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <optional>
#include <string>
#include <string_view>

#include "platform/Export.hpp"

namespace tolva {

/// What a short text might mean: a UUID, a date, a timestamp, a number of seconds. Pure; any thread.
struct TOLVA_EXPORT CellInterpretation {
  CellInterpretation() = delete;

  /// A line that names the reading, and the reading itself. None for a text that has none, or of over 128 bytes.
  static std::optional<std::string> describe(std::string_view text);
};

}  // namespace tolva
