// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "core/SQLiteStatement.hpp"
#include "core/TableSchema.hpp"
#include "transfer/ExportFile.hpp"
#include "transfer/ExportFormat.hpp"
#include "transfer/FileTransfer.hpp"

struct sqlite3_value;

namespace tolva {

/// Writes rows in one of the formats, each value straight from where SQLite holds it. Used in the turn of the service;
/// the file outlives it.
class ExportRowWriter {
 public:
  ExportRowWriter(TableSchema const& schema, ExportFormat format, ExportFile& file, TransferProgress progress);

  /// Writes the current row of a statement that selects the schema's columns first. The caller keeps a `HandleLock`.
  void write(SQLiteStatement const& row);

  std::int64_t rows() const { return rows_; }

  struct Notation;  // how a format writes what is no number

 private:
  struct Column {
    int index;           // in the row
    std::string before;  // what stands in front of each of its values
  };

  void writeValue(SQLiteStatement const& row, sqlite3_value* value);
  void writeText(SQLiteStatement const& row, sqlite3_value* value);
  void writeBlob(SQLiteStatement const& row, sqlite3_value* value);
  void writeInteger(std::int64_t value);
  void writeReal(double value);

  Notation const& notation_;
  ExportFile& file_;
  TransferProgress const progress_;
  std::vector<Column> columns_;
  std::string beforeRow_;
  std::int64_t rows_ = 0;
};

}  // namespace tolva
