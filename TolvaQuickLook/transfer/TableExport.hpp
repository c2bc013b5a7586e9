// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdint>
#include <filesystem>
#include <memory>
#include <optional>
#include <stop_token>
#include <string>

#include "core/CancellationHandle.hpp"
#include "core/SQLiteConnection.hpp"
#include "core/TableSchema.hpp"
#include "transfer/ExportDestination.hpp"
#include "transfer/ExportFile.hpp"
#include "transfer/ExportFormat.hpp"
#include "transfer/ExportRowWriter.hpp"
#include "transfer/FileTransfer.hpp"

namespace tolva {

class RowCursor;

/// What is to be exported, borrowed from the caller for the length of the call.
struct ExportOrder {
  std::filesystem::path const& database;
  TableSchema const& schema;
  ExportRows const& rows;
  ExportFormat format;
  std::filesystem::path const& destination;
};

/// One export on its way: from the open database to the complete file, before it has its name. Lives in the service's
/// turn; its arguments outlive it.
class TableExport {
 public:
  /// Checks the destination, opens the database and makes the hidden file. Whatever fails later deletes that.
  TableExport(ExportOrder const& order, TransferProgress const& progress,
              std::shared_ptr<CancellationHandle> const& cancellation, std::stop_token task);

  /// Writes everything, gives the file its name and returns the number of rows.
  std::int64_t run();

 private:
  void begin();
  void writeRows();
  void end();
  std::string createStatement();
  std::string storedStatement();

  void writeBrowsed();
  void writeSelected();
  void writePositions();
  void writePositionsInOneWalk();
  void write(RowCursor const& row);
  void tell(std::int64_t rows);

  ExportOrder const& order_;
  TableSchema const& schema_;
  std::stop_token const task_;
  ExportDestination destination_;
  std::shared_ptr<SQLiteConnection> const connection_;
  ExportFile file_;
  TransferProgress const& progress_;
  ExportRowWriter writer_;
  std::optional<HandleLock> held_;  // while rows are written, for the many calls that each would take it
};

}  // namespace tolva
