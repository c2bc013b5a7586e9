// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdint>
#include <initializer_list>
#include <vector>

#include "platform/Export.hpp"

namespace tolva {

/// A set of positions in an order of rows, held as ranges. A value.
class TOLVA_EXPORT RowSelection {
 public:
  /// The positions from `first` up to and without `end`.
  struct Range {
    std::int64_t first;
    std::int64_t end;
    bool operator==(Range const&) const = default;
  };

  RowSelection() = default;
  RowSelection(std::initializer_list<Range> ranges);

  /// Adds the positions of a range, which may be in the set already. An empty range adds none; one that begins below 0
  /// is a fault of the program and throws `std::out_of_range`, as does the last 64-bit position, which no range ends
  /// behind.
  void insert(Range range);
  void insert(std::int64_t position);

  std::int64_t count() const;

  /// Ascending, with a gap between any two.
  std::vector<Range> const& ranges() const { return ranges_; }

  bool operator==(RowSelection const&) const = default;

 private:
  std::vector<Range> ranges_;
};

}  // namespace tolva
