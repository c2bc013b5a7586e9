// SPDX-License-Identifier: Apache-2.0
#include "core/RowSelection.hpp"

#include <algorithm>
#include <limits>
#include <stdexcept>

namespace tolva {

RowSelection::RowSelection(std::initializer_list<Range> ranges) {
  for (Range const& range : ranges) insert(range);
}

void RowSelection::insert(Range range) {
  if (range.first < 0) throw std::out_of_range("No row stands at a negative position");
  if (range.end <= range.first) return;
  auto const first = std::ranges::lower_bound(ranges_, range.first, {}, &Range::end);  // those that touch the new one
  auto const last = std::ranges::upper_bound(first, ranges_.end(), range.end, {}, &Range::first);
  if (first != last) {
    range.first = std::min(range.first, first->first);
    range.end = std::max(range.end, (last - 1)->end);
  }
  ranges_.insert(ranges_.erase(first, last), range);
}

void RowSelection::insert(std::int64_t position) {
  if (position == std::numeric_limits<std::int64_t>::max())
    throw std::out_of_range("No row stands at the last position");
  insert({position, position + 1});
}

std::int64_t RowSelection::count() const {
  std::int64_t count = 0;
  for (Range const& range : ranges_) count += range.end - range.first;
  return count;
}

}  // namespace tolva
