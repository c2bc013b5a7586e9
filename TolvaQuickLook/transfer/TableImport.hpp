// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <optional>
#include <span>
#include <stop_token>
#include <string>
#include <string_view>
#include <vector>

#include "core/SQLiteConnection.hpp"
#include "core/TableSchema.hpp"
#include "transfer/CSVOptions.hpp"
#include "transfer/CSVStream.hpp"
#include "transfer/FileTransfer.hpp"

namespace tolva {

/// What a file that a person imports may hold: rows of any length, but fields of 16 MiB.
inline constexpr CSVLimits importLimits{.fieldBytes = std::int64_t{16} << 20};

/// One import of a delimited file into a table, on a connection of its own. The first failure ends it and leaves the
/// database as it was.
class TableImport {
 public:
  /// All is kept by reference. With a `schema` the rows go into that table, without one `table` is made for them.
  TableImport(SQLiteConnection& connection, std::string const& table, std::optional<TableSchema> const& schema,
              CSVOptions const& options)
      : connection_(connection), table_(table), schema_(schema), options_(options) {}

  /// Inserts the rows of `file` and returns their number. `progress` is called behind each 500th row, inside the
  /// transaction, and when that is committed; never for a file without any row. Nothing of SQLite is locked to other
  /// threads then, so that it may wait for one that cancels.
  std::int64_t run(std::filesystem::path const& file, TransferProgress const& progress, std::stop_token const& task);

 private:
  /// Its fields stand without byte order marks; of more than a table can have columns, so many and one more.
  struct FirstRow {
    std::size_t length;  // its fields in the file
    std::vector<std::string> fields;
  };

  FirstRow firstRow(std::span<std::string_view const> row) const;
  std::vector<std::string> columnNames(std::vector<std::string> const& firstRow) const;
  std::vector<std::string> declaredTypes(std::vector<std::string> const& names) const;
  std::vector<std::string> inferredTypes(std::filesystem::path const& file, FirstRow const& first,
                                         std::stop_token const& task) const;

  SQLiteConnection& connection_;
  std::string const& table_;
  std::optional<TableSchema> const& schema_;
  CSVOptions const& options_;
};

}  // namespace tolva
