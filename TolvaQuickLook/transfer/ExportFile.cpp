// SPDX-License-Identifier: Apache-2.0
#include "transfer/ExportFile.hpp"

#include <sys/stat.h>

#include <algorithm>
#include <optional>
#include <string>
#include <system_error>
#include <utility>

#include "core/DatabaseError.hpp"
#include "platform/CanonicalPath.hpp"
#include "platform/FileNode.hpp"
#include "platform/FilePath.hpp"
#include "platform/TaskCancellation.hpp"

namespace tolva {
namespace {

/// Read and write for everybody, less the umask; but while a file is written that will replace one, no wider than that.
mode_t newMode(std::filesystem::path const& destination) {
  constexpr mode_t most = 0666;
  constexpr mode_t least = 0600;
  struct stat old {};
  bool const replaces = ::lstat(destination.c_str(), &old) == 0 && S_ISREG(old.st_mode);
  return replaces ? (old.st_mode & most) | least : most;
}

[[noreturn]] void failToCreate() { throw DatabaseError("The export file could not be created."); }

AtomicFile newFile(std::filesystem::path const& destination) try {
  if (holdsNUL(destination)) failToCreate();
  return AtomicFile(destination, {.prefix = ".tolva-export-", .mode = newMode(destination)});
} catch (std::filesystem::filesystem_error const&) {
  failToCreate();
}

/// A device or pipe has a use that a file in its place would not have.
void requireReplaceable(std::filesystem::path const& destination) {
  std::error_code ignored;
  auto const type = std::filesystem::status(destination, ignored).type();
  bool const isSpecial = type == std::filesystem::file_type::fifo || type == std::filesystem::file_type::socket ||
                         type == std::filesystem::file_type::character || type == std::filesystem::file_type::block;
  if (isSpecial)
    throw std::filesystem::filesystem_error("A device or pipe is not replaced", destination,
                                            std::make_error_code(std::errc::invalid_argument));
}

}  // namespace

ExportFile::ExportFile(std::filesystem::path const& destination, std::stop_token task)
    : destination_(destination),
      task_(std::move(task)),
      file_(newFile(destination)),
      buffer_(std::make_unique_for_overwrite<char[]>(capacity)) {}

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

/// Only the flush of the folder comes after the file has its name: its failure takes nothing back, so the export is done.
void ExportFile::publish() try {
  write();
  requireReplaceable(destination_);
  file_.publish(Publication::replace);
} catch (std::filesystem::filesystem_error const&) {
  if (!file_.published()) throw;
}

void checkExportDestination(std::filesystem::path const& database, std::filesystem::path const& destination) {
  std::filesystem::path const source = canonicalPath(database);
  std::filesystem::path const target = canonicalPath(destination);
  auto const isTarget = [&](char const* suffix) { return target.native() == source.native() + suffix; };
  if (isTarget("") || isTarget("-wal") || isTarget("-shm"))
    throw DatabaseError("Choose an export destination other than the open database or its companion files.");
  std::optional<FileNode> const node = fileNode(source);
  if (node && node == fileNode(target)) throw DatabaseError("The export destination is the open database.");
}

}  // namespace tolva
