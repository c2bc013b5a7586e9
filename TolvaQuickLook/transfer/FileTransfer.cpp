// SPDX-License-Identifier: Apache-2.0
#include "transfer/FileTransfer.hpp"

#include "transfer/TableExport.hpp"

namespace tolva {

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

}  // namespace tolva
