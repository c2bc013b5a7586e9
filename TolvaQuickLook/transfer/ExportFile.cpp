// SPDX-License-Identifier: Apache-2.0
#include "transfer/ExportFile.hpp"

#include <algorithm>
#include <utility>

#include "core/DatabaseError.hpp"
#include "platform/FilePath.hpp"
#include "platform/TaskCancellation.hpp"

namespace tolva {
namespace {

[[noreturn]] void failToCreate() { throw DatabaseError("The export file could not be created."); }

AtomicFile newFile(ExportDestination const& destination) try {
  if (holdsNUL(destination.path())) failToCreate();
  return AtomicFile(destination.path(), {.prefix = ".tolva-export-", .mode = destination.mode()});
} catch (std::filesystem::filesystem_error const&) {
  failToCreate();
}

}  // namespace

ExportFile::ExportFile(ExportDestination const& destination, std::stop_token task)
    : destination_(destination),
      task_(std::move(task)),
      file_(newFile(destination)),
      buffer_(std::make_unique_for_overwrite<char[]>(capacity)) {
  destination_.requireReplaceable(file_.folder());
}

void ExportFile::putInPieces(std::string_view text) {
  for (; !text.empty(); text.remove_prefix(std::min(text.size(), capacity))) put(text.substr(0, capacity));
}

void ExportFile::drain() {
  checkCancellation(task_);
  write();
}

void ExportFile::write() {
  file_.write(std::string_view(buffer_.get(), used_));
  used_ = 0;
}

/// Only the flush of the folder comes after the file has its name: its failure takes nothing back, so the export is
/// done.
void ExportFile::publish() try {
  write();
  file_.publish(Publication::replace, [&] { destination_.requireReplaceable(file_.folder()); });
} catch (std::filesystem::filesystem_error const&) {
  if (!file_.published()) throw;
}

}  // namespace tolva
