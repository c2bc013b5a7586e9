// SPDX-License-Identifier: Apache-2.0
#include "preview/PreviewFile.hpp"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstddef>
#include <iterator>

#include "core/CompanionFiles.hpp"
#include "core/DatabaseError.hpp"
#include "platform/ASCIICase.hpp"
#include "platform/CanonicalPath.hpp"
#include "platform/FileNode.hpp"
#include "platform/LockedFiles.hpp"
#include "platform/TaskCancellation.hpp"

namespace tolva {
namespace {

Descriptor folderOf(std::filesystem::path const& path) {
  std::filesystem::path const folder = path.has_parent_path() ? path.parent_path() : ".";
  return Descriptor(::open(folder.c_str(), O_PATH | O_DIRECTORY | O_CLOEXEC));
}

bool isOfTheDatabase(std::filesystem::path const& file, std::filesystem::path const& database) {
  std::filesystem::path const own[] = {database, walOf(database), shmOf(database), journalOf(database)};
  return std::ranges::find(own, file) != std::end(own);
}

/// Looks at the folder itself: two paths may lead to it, by a mount for instance, and a link on the way may have been
/// exchanged since the paths were compared. Folders that hold "A" for "a" exist, so case makes no other name.
bool isOfTheDatabase(int folder, std::string const& name, std::filesystem::path const& database) {
  auto const own = fileNode(database.parent_path());
  return own && fileNode(folder) == own && isOfTheDatabase(lowerASCII(name), lowerASCII(database.filename().native()));
}

/// A log that somebody else wrote is played into the database when it is next opened.
void refuseFilesOf(std::filesystem::path const& database, int folder, std::filesystem::path const& path,
                   std::string const& name) {
  if (!isOfTheDatabase(canonicalPath(path), database) && !isOfTheDatabase(folder, name, database)) return;
  throw DatabaseError("Choose a new file outside the database and its companion files.");
}

/// A name with a NUL would be cut there, by which it could become another one.
int create(int folder, std::filesystem::path const& path, std::string const& name,
           std::filesystem::path const& database) {
  refuseFilesOf(canonicalPath(database), folder, path, name);
  if (path.native().find('\0') != std::string::npos) return -1;
  return ::openat(folder, name.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, 0600);
}

}  // namespace

PreviewFile::PreviewFile(std::filesystem::path const& path, std::filesystem::path const& database)
    : name_(path.filename()), folder_(folderOf(path)), file_(create(folder_.get(), path, name_, database)) {
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
