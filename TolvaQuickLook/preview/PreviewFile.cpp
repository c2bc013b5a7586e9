// SPDX-License-Identifier: Apache-2.0
#include "preview/PreviewFile.hpp"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstddef>

#include "core/DatabaseError.hpp"
#include "platform/LockedFiles.hpp"
#include "platform/TaskCancellation.hpp"

namespace tolva {
namespace {

Descriptor folderOf(std::filesystem::path const& path) {
  std::filesystem::path const folder = path.has_parent_path() ? path.parent_path() : ".";
  return Descriptor(::open(folder.c_str(), O_PATH | O_DIRECTORY | O_CLOEXEC));
}

/// A name with a NUL would be cut there, by which it could become another one.
int create(int folder, std::filesystem::path const& path, std::string const& name) {
  if (path.native().find('\0') != std::string::npos) return -1;
  return ::openat(folder, name.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, 0600);
}

}  // namespace

PreviewFile::PreviewFile(std::filesystem::path const& path)
    : name_(path.filename()), folder_(folderOf(path)), file_(create(folder_.get(), path, name_)) {
  if (file_ >= 0) return;
  throw DatabaseError(
      "Could not create the preview file. Choose a new filename; existing files are never overwritten.");
}

PreviewFile::~PreviewFile() {
  if (!kept_ && isOurs()) ::unlinkat(folder_.get(), name_.c_str(), 0);
  LockedFiles::close(file_);  // the name is visible, so SQLite may have the file open by now
}

void PreviewFile::write(std::span<std::uint8_t const> bytes, std::stop_token const& task) {
  while (!bytes.empty()) {
    checkCancellation(task);
    ssize_t const written = ::write(file_, bytes.data(), bytes.size());
    if (written < 0 && errno == EINTR) continue;
    if (written <= 0) throw DatabaseError("Could not save preview bytes.");
    bytes = bytes.subspan(static_cast<std::size_t>(written));
  }
}

/// Somebody may have moved the file away and put another in its place.
bool PreviewFile::isOurs() const {
  struct stat made {};
  struct stat named {};
  return ::fstat(file_, &made) == 0 && ::fstatat(folder_.get(), name_.c_str(), &named, AT_SYMLINK_NOFOLLOW) == 0 &&
         made.st_dev == named.st_dev && made.st_ino == named.st_ino;
}

}  // namespace tolva
