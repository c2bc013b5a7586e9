// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <chrono>
#include <optional>
#include <string>
#include <string_view>

#include "platform/Export.hpp"

namespace tolva {

/// A calendar date without a time or a zone, as text of the form 2024-02-29. Gregorian in all years. Pure; any thread.
struct TOLVA_EXPORT PluginInspectorDate {
  PluginInspectorDate() = delete;

  static constexpr std::string_view earliest = "1600-01-01";
  static constexpr std::string_view latest = "9999-12-31";

  /// None unless the text is of that form and the day exists, between the two ends.
  static std::optional<std::chrono::sys_days> parse(std::string_view text);

  static std::string string(std::chrono::sys_days date);
};

}  // namespace tolva
