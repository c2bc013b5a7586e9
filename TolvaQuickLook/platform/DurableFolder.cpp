// SPDX-License-Identifier: Apache-2.0
#include "platform/DurableFolder.hpp"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include "platform/Descriptor.hpp"
#include "platform/DiskFlush.hpp"
#include "platform/SystemError.hpp"

namespace tolva {
namespace {

bool isFolder(std::filesystem::path const& path) {
  struct stat status {};
  return ::stat(path.c_str(), &status) == 0 && S_ISDIR(status.st_mode);
}

/// Whether the folder is new. Fails with ENOENT where the one above is missing.
bool makeOne(std::filesystem::path const& path) {
  if (::mkdir(path.c_str(), 0700) == 0) return true;
  int const reason = errno;
  if (reason == EEXIST && isFolder(path)) return false;
  errno = reason;
  throwFileError("The folder cannot be made", path);
}

void makeMissing(std::filesystem::path const& path) {
  std::filesystem::path const parent = path.has_filename() ? path.parent_path() : path;
  if (isFolder(path)) return;
  if (parent != path && !parent.empty()) makeMissing(parent);
  if (!makeOne(path)) return;
  try {
    flushFolder(parent.empty() ? "." : parent);
  } catch (std::filesystem::filesystem_error const&) {
    ::rmdir(path.c_str());
    throw;
  }
}

}  // namespace

void makeDurableFolder(std::filesystem::path const& path) {
  makeMissing(path.has_filename() ? path : path.parent_path());
}

void flushFolder(std::filesystem::path const& path) {
  Descriptor const folder(::open(path.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
  if (!folder) {
    if (errno == EACCES && isFolder(path)) return;  // one that may be written but not read cannot be flushed
    throwFileError("The folder cannot be opened", path);
  }
  if (!flushFolderToDisk(folder.get())) throwFileError("The folder cannot be put on the disk", path);
}

}  // namespace tolva
