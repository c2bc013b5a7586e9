// SPDX-License-Identifier: Apache-2.0
#include "core/RowSelectionReader.hpp"

#include <algorithm>

#include "core/Limit.hpp"
#include "core/RowCursor.hpp"
#include "core/RowsByKey.hpp"
#include "platform/TaskCancellation.hpp"

namespace tolva {
namespace {

constexpr Limit selectionMemory{
    std::int64_t{32} << 20, "The selection exceeds the 32 MB operation limit. Select fewer rows or export instead."};

}  // namespace

std::vector<DatabaseRow> RowSelectionReader::read(RowSelection const& selection) {
  HandleLock const held(connection_);
  RowsByKey const byKey(connection_, schema_, request_);
  if (selection.ranges().size() > 1 && byKey.areFound()) {
    byKey.read(
        selection, [&](RowCursor const& row) { add(row); }, task_);
  } else {
    for (RowSelection::Range const& range : selection.ranges()) readRange(range);
  }
  return std::move(rows_);
}

void RowSelectionReader::readRange(RowSelection::Range range) {
  while (range.first < range.end) {
    checkCancellation(task_);
    std::int64_t const read = readChunk(range.first, std::min(range.end - range.first, TableQueryBuilder::mostRows));
    if (read == 0) selectedRowsAreGone();
    range.first += read;
  }
}

std::int64_t RowSelectionReader::readChunk(std::int64_t first, std::int64_t most) {
  BuiltQuery const query =
      TableQueryBuilder::build(schema_, request_, PageToken{.identity = {}, .offset = first}, {.limit = most});
  RowCursor cursor(connection_, query, schema_, RowCursor::Identity::marked);
  std::int64_t read = 0;
  for (; cursor.step(); ++read) {
    checkCancellation(task_);
    add(cursor);
  }
  return read;
}

void RowSelectionReader::add(RowCursor const& cursor) {
  rows_.push_back(cursor.row());
  memorySize_ += rows_.back().memorySize();
  selectionMemory.check(memorySize_);
}

}  // namespace tolva
