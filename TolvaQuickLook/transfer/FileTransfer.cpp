// SPDX-License-Identifier: Apache-2.0
#include "transfer/FileTransfer.hpp"

#include "core/SQLiteConnection.hpp"
#include "transfer/ByteOrderMark.hpp"
#include "transfer/CSVStream.hpp"
#include "transfer/TableExport.hpp"
#include "transfer/TableImport.hpp"

namespace tolva {
namespace {

constexpr std::size_t previewRows = 6;

}  // namespace

FileTransfer::FileTransfer() : cancellation_(std::make_shared<CancellationHandle>()) {}

FileTransfer::~FileTransfer() = default;

std::int64_t FileTransfer::exportRows(std::filesystem::path const& database, TableSchema const& schema,
                                      ExportRows const& rows, ExportFormat format,
                                      std::filesystem::path const& destination, TransferProgress const& progress,
                                      std::stop_token task) {
  Turn const turn(turns_);
  ExportOrder const order{database, schema, rows, format, destination};
  std::int64_t const written = TableExport(order, progress, cancellation_, std::move(task)).run();
  if (progress) progress(written);
  return written;
}

std::vector<std::vector<std::string>> FileTransfer::preview(std::filesystem::path const& file,
                                                            CSVOptions const& options, std::stop_token task) {
  Turn const turn(turns_);
  CSVStream stream(file, options, importLimits);
  std::vector<std::vector<std::string>> rows;
  while (rows.size() < previewRows) {
    auto row = stream.next(task);
    if (!row) break;
    rows.push_back(std::move(*row));
  }
  if (!rows.empty()) removeByteOrderMarks(rows.front().front());
  return rows;
}

std::int64_t FileTransfer::importCSV(std::filesystem::path const& file, std::filesystem::path const& database,
                                     std::string const& table, std::optional<TableSchema> const& schema,
                                     CSVOptions const& options, TransferProgress const& progress,
                                     std::stop_token task) {
  Turn const turn(turns_);
  auto const connection = SQLiteConnection::open(database, {.readOnly = false}, cancellation_);
  return TableImport(*connection, table, schema, options).run(file, progress, task);
}

}  // namespace tolva
