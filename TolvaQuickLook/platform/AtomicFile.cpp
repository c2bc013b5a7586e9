// SPDX-License-Identifier: Apache-2.0
#include "platform/AtomicFile.hpp"

#include <utility>

#include <fcntl.h>
#include <stdio.h>
#include <sys/stat.h>
#include <unistd.h>

#include "platform/DiskFlush.hpp"
#include "platform/LockedFiles.hpp"
#include "platform/SystemError.hpp"
#include "platform/UUID.hpp"

namespace tolva {
namespace {

Descriptor folderOf(std::filesystem::path const& destination) {
  std::filesystem::path const parent = destination.has_parent_path() ? destination.parent_path() : ".";
  Descriptor folder(::open(parent.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
  if (!folder && errno == EACCES) folder = Descriptor(::open(parent.c_str(), O_PATH | O_DIRECTORY | O_CLOEXEC));
  if (!folder) throwFileError("The folder cannot be opened", parent);
  return folder;
}

/// `call` again for as long as a signal interrupts it.
template <class Call>
auto uninterrupted(Call&& call) {
  auto result = call();
  while (result < 0 && errno == EINTR) result = call();
  return result;
}

}  // namespace

// Life --------------------------------------------------------------------------------------------

AtomicFile::AtomicFile(std::filesystem::path const& destination, AtomicFileOptions const& options)
    : destination_(destination),
      name_(destination.filename()),
      folder_(folderOf(destination)),
      sibling_(options.prefix + UUID::make().text()) {
  create(options.mode);
}

AtomicFile::AtomicFile(int folder, std::string name, AtomicFileOptions const& options)
    : destination_(name),
      name_(std::move(name)),
      folder_(::fcntl(folder, F_DUPFD_CLOEXEC, 0)),
      sibling_(options.prefix + UUID::make().text()) {
  if (!folder_) fail("The folder cannot be used");
  create(options.mode);
}

void AtomicFile::create(mode_t mode) {
  int const flags = O_RDWR | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC;
  file_ = uninterrupted([&] { return ::openat(folder_.get(), sibling_.c_str(), flags, mode); });
  if (file_ < 0) fail("The file cannot be created");
  siblingExists_ = true;
}

AtomicFile::~AtomicFile() {
  dropSibling();
  if (file_ >= 0) LockedFiles::close(file_);  // SQLite may have the sibling open
}

void AtomicFile::dropSibling() noexcept {
  if (siblingExists_ && ::unlinkat(folder_.get(), sibling_.c_str(), 0) == 0) siblingExists_ = false;
}

/// Deletes the sibling as well: an `fsync` that is repeated after a failure reports success for bytes that are lost.
void AtomicFile::fail(char const* what) {
  int const reason = errno;
  dropSibling();
  errno = reason;
  throwFileError(what, destination_);
}

// Writing -----------------------------------------------------------------------------------------

void AtomicFile::write(std::span<std::uint8_t const> bytes) {
  flushed_ = false;
  while (!bytes.empty()) {
    ssize_t const written = uninterrupted([&] { return ::write(file_, bytes.data(), bytes.size()); });
    if (written == 0) errno = ENOSPC;
    if (written <= 0) fail("The file cannot be written");
    bytes = bytes.subspan(static_cast<std::size_t>(written));
  }
}

void AtomicFile::write(std::string_view text) {
  auto const bytes = std::as_bytes(std::span(text));
  write(std::span(reinterpret_cast<std::uint8_t const*>(bytes.data()), bytes.size()));
}

void AtomicFile::flush() {
  if (!flushFileToDisk(file_)) fail("The file cannot be put on the disk");
  flushed_ = true;
}

// Publication -------------------------------------------------------------------------------------

void AtomicFile::publish(Publication publication, std::function<void()> const& lastLook) {
  if (publication == Publication::replace) keepPermissions();
  if (!flushed_) flush();
  close();
  if (lastLook) lastLook();
  rename(publication);
  // EBADF is a folder that may be written but not read.
  if (!flushFolderToDisk(folder_.get()) && errno != EBADF)
    fail("The file has its name, but its folder cannot be put on the disk");
}

/// Before the flush, so that the file never stands under its name with other permissions.
void AtomicFile::keepPermissions() {
  struct stat old {};
  if (::fstatat(folder_.get(), name_.c_str(), &old, AT_SYMLINK_NOFOLLOW) != 0 || !S_ISREG(old.st_mode)) return;
  if (::fchmod(file_, old.st_mode & 0777) != 0) fail("The file cannot take the permissions of the one it replaces");
  flushed_ = false;
}

/// Some file systems tell only now of bytes that they could not keep. An interrupted close has closed all the same.
void AtomicFile::close() {
  errno = LockedFiles::close(std::exchange(file_, -1));
  if (errno != 0 && errno != EINTR) fail("The file cannot be closed");
}

void AtomicFile::rename(Publication publication) {
  if (publication == Publication::exclusive)
    renameExclusively();
  else if (::renameat(folder_.get(), sibling_.c_str(), folder_.get(), name_.c_str()) != 0)
    fail("The file cannot replace its destination");
  published_ = true;
  siblingExists_ = false;
}

void AtomicFile::renameExclusively() {
  char const* const from = sibling_.c_str();
  char const* const to = name_.c_str();
  if (::renameat2(folder_.get(), from, folder_.get(), to, RENAME_NOREPLACE) == 0) return;
  if (errno != EINVAL && errno != ENOSYS) fail("The file cannot take its name");
  // The file system or the kernel does not know the flag. A new hard link is as exclusive.
  if (::linkat(folder_.get(), from, folder_.get(), to, 0) != 0) fail("The file cannot take its name");
  published_ = true;
  if (::unlinkat(folder_.get(), from, 0) != 0) fail("The file has its name, but keeps a hidden one as well");
}

}  // namespace tolva
