// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdint>
#include <filesystem>
#include <memory>
#include <stop_token>
#include <string>

#include "core/CancellationHandle.hpp"
#include "core/DatabaseError.hpp"
#include "core/DatabaseRow.hpp"
#include "core/SQLiteValue.hpp"
#include "core/TableSchema.hpp"
#include "platform/Bytes.hpp"
#include "platform/Export.hpp"
#include "platform/Turn.hpp"
#include "preview/CellPreview.hpp"
#include "preview/PreviewHelpers.hpp"

namespace tolva {

struct CellHead;

/// Turns a value into what a person can look at, from a head of at most 1 MiB, and saves that head to a file.
///
/// A serial service: each operation waits for its turn and blocks, so call it from a worker thread. `task` is checked
/// between steps; `cancellation()->cancel()`, from any thread, stops the running statement of `fetch`.
class TOLVA_EXPORT CellPreviewService {
 public:
  explicit CellPreviewService(PreviewHelpers helpers = PreviewHelpers());

  /// The handle of the connections that `fetch` opens, the same for the service's whole life.
  std::shared_ptr<CancellationHandle> const& cancellation() const { return cancellation_; }

  /// Reads the cell anew from the file, by the row's identity, on a connection of its own; without an identity the
  /// value of `row` is shown. Gives up reading after 3 seconds.
  CellPreview fetch(std::filesystem::path const& database, TableSchema const& schema, DatabaseRow const& row,
                    std::string const& column, std::stop_token task);

  /// Shows a whole value that is already in memory; a deferred one is refused.
  CellPreview cached(SQLiteValue const& value, std::stop_token task);

  /// Shows the head of a value of `total` bytes; `type` is "text" or "blob", the head at most 1,048,576 bytes.
  CellPreview previewBytes(std::string const& type, std::int64_t total, Bytes bytes, std::stop_token task);

  /// Writes the bytes of a preview to a new file, which only its owner can read. Never replaces a file, never follows a
  /// link, never writes to `source` or its companions. A failure or a cancel leaves no file.
  void save(CellPreview const& preview, std::filesystem::path const& to, std::filesystem::path const& source,
            std::stop_token task);

 private:
  CellPreview render(CellHead head, std::stop_token const& task) const REQUIRES(turns_);

  TurnQueue turns_;
  std::shared_ptr<CancellationHandle> const cancellation_;
  PreviewHelpers const helpers_;
};

}  // namespace tolva
