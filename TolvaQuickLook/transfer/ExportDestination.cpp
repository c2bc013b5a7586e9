// SPDX-License-Identifier: Apache-2.0
#include "transfer/ExportDestination.hpp"

#include <fcntl.h>
#include <sys/stat.h>

#include <cerrno>
#include <utility>

#include "core/CompanionFiles.hpp"
#include "core/DatabaseError.hpp"
#include "platform/CanonicalPath.hpp"
#include "platform/SystemError.hpp"

namespace tolva {
namespace {

[[noreturn]] void refuseDatabase() {
  throw DatabaseError("Choose an export destination other than the open database or its companion files.");
}

/// Keeps what is known of a file that has gone from its path.
void note(std::optional<FileNode>& node, std::filesystem::path const& path) {
  if (auto const found = fileNode(path)) node = found;
}

}  // namespace

ExportDestination::ExportDestination(std::filesystem::path const& database, std::filesystem::path destination)
    : path_(std::move(destination)), source_(canonicalPath(database)) {
  std::filesystem::path const target = canonicalPath(path_);
  if (target == source_ || target == walOf(source_) || target == shmOf(source_)) refuseDatabase();
  noteFiles();
  requireOtherFile(fileNode(target));
}

mode_t ExportDestination::mode() const {
  constexpr mode_t most = 0666;
  constexpr mode_t least = 0600;
  struct stat old {};
  bool const replaces = ::lstat(path_.c_str(), &old) == 0 && S_ISREG(old.st_mode);
  return replaces ? (old.st_mode & most) | least : most;
}

void ExportDestination::noteFiles() {
  note(database_, source_);
  note(writeAheadLog_, walOf(source_));
  note(sharedMemory_, shmOf(source_));
}

void ExportDestination::requireReplaceable(int folder) const {
  std::string const name = path_.filename();
  requireOtherFile(fileNode(folder, name));
  struct stat there {};
  if (::fstatat(folder, name.c_str(), &there, 0) != 0 || S_ISREG(there.st_mode) || S_ISDIR(there.st_mode)) return;
  errno = EINVAL;  // it has a use that a file in its place would not have
  throwFileError("A device or pipe is not replaced", path_);
}

void ExportDestination::requireOtherFile(std::optional<FileNode> const& node) const {
  if (!node) return;
  if (node == database_) throw DatabaseError("The export destination is the open database.");
  if (node == writeAheadLog_ || node == sharedMemory_) refuseDatabase();
}

}  // namespace tolva
