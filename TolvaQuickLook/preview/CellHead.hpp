// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdint>
#include <filesystem>
#include <memory>
#include <stop_token>
#include <string>
#include <vector>

#include "core/CancellationHandle.hpp"
#include "core/SQLiteValue.hpp"
#include "core/TableSchema.hpp"
#include "platform/Bytes.hpp"

namespace tolva {

/// The most bytes of one value that a preview holds.
inline constexpr std::int64_t mostHeadBytes = 1'048'576;

/// The beginning of one stored value. A value.
struct CellHead {
  std::string type;             // SQLite's `typeof`
  std::int64_t totalBytes = 0;  // of the whole value as a blob; 0 for NULL
  Bytes bytes;                  // at most `mostHeadBytes`, in the encoding of the database
};

/// Reads the head of the cell in `column` of the one row that `identity` names, on a connection of its own.
///
/// Double-quoted strings are off there: a column that was dropped meanwhile is an error, not its name as a text.
/// Gives up after 3 seconds, and at 256 MiB of what SQLite allocates. `cancellation` interrupts it, and so does `task`.
CellHead readCellHead(std::filesystem::path const& database, TableSchema const& schema,
                      std::vector<SQLiteValue> const& identity, std::string const& column,
                      std::shared_ptr<CancellationHandle> cancellation, std::stop_token task);

}  // namespace tolva
