// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace tolva {

/// What a preview tells of a database. A value.
struct PreviewSummary {
  static constexpr std::size_t mostNames = 100;

  std::string fileName;
  std::int64_t tables = 0;
  std::int64_t views = 0;
  std::int64_t indexes = 0;
  std::vector<std::string> names;  // of the first tables, at most `mostNames`
  std::int64_t fileSize = 0;
  std::optional<std::chrono::system_clock::time_point> modified;

  /// Counts one object of the schema, and keeps a table's name while there is room. Triggers are not told.
  template <class Name>
  void count(std::string_view kind, Name&& name) {
    if (kind == "table") {
      ++tables;
      if (names.size() < mostNames) names.push_back(name());
    } else if (kind == "view") {
      ++views;
    } else if (kind == "index") {
      ++indexes;
    }
  }

  /// The plain text of the preview: lines ended by one line feed, the last one without. Counts are never put in the
  /// singular, and the words are not localised; the date is in the user's locale and zone.
  std::string text() const;
};

}  // namespace tolva
