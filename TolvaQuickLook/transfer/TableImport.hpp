// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdint>
#include <filesystem>
#include <functional>
#include <optional>
#include <stop_token>
#include <string>
#include <vector>

#include "core/SQLiteConnection.hpp"
#include "core/TableSchema.hpp"
#include "transfer/CSVOptions.hpp"
#include "transfer/CSVStream.hpp"
#include "transfer/ColumnTypeInference.hpp"

namespace tolva {

/// What a file that a person imports may hold: rows of any length, but fields of 16 MiB.
inline constexpr CSVLimits importLimits{.fieldBytes = std::int64_t{16} << 20};

/// One import of a delimited file into a table, on a connection of its own. The first failure ends it and leaves the
/// database as it was.
class TableImport {
 public:
  using Progress = std::function<void(std::int64_t)>;

  /// All is kept by reference. With a `schema` the rows go into that table, without one `table` is made for them.
  TableImport(SQLiteConnection& connection, std::string const& table, std::optional<TableSchema> const& schema,
              CSVOptions const& options)
      : connection_(connection), table_(table), schema_(schema), options_(options) {}

  /// Inserts the rows of `file` and returns their number. `progress` is called behind each 500th row, inside the
  /// transaction, and when that is committed; never for a file without any row. Nothing of SQLite is locked to other
  /// threads then, so that it may wait for one that cancels.
  std::int64_t run(std::filesystem::path const& file, Progress const& progress, std::stop_token const& task);

 private:
  using Names = std::vector<std::string>;

  Names columnNames(Names const& firstRow) const;
  Names declaredTypes(Names const& names) const;
  Names inferredTypes(std::filesystem::path const& file, std::size_t columns, std::stop_token const& task) const;

  SQLiteConnection& connection_;
  std::string const& table_;
  std::optional<TableSchema> const& schema_;
  CSVOptions const& options_;
};

}  // namespace tolva
