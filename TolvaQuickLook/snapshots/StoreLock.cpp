// SPDX-License-Identifier: Apache-2.0
#include "snapshots/StoreLock.hpp"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>

#include <cerrno>
#include <optional>
#include <system_error>

#include "core/DatabaseError.hpp"
#include "platform/FileNode.hpp"
#include "platform/LockedFiles.hpp"

namespace tolva {
namespace {

[[noreturn]] void failToLock(int reason) {
  throw DatabaseError("Cannot lock snapshot storage: " + std::generic_category().message(reason));
}

/// What opening may set going or wait for. A folder and a link are refused by the opening itself.
bool isPipeOrDevice(mode_t mode) { return S_ISFIFO(mode) || S_ISCHR(mode) || S_ISBLK(mode) || S_ISSOCK(mode); }

int openLockFile(std::filesystem::path const& path) {
  struct stat status {};  // looked at first; what is opened is looked at again
  if (::lstat(path.c_str(), &status) == 0 && isPipeOrDevice(status.st_mode)) failToLock(EINVAL);
  int descriptor = -1;
  do {
    descriptor = ::open(path.c_str(), O_RDWR | O_CREAT | O_NOFOLLOW | O_NONBLOCK | O_NOCTTY | O_CLOEXEC, 0600);
  } while (descriptor < 0 && errno == EINTR);
  if (descriptor < 0) failToLock(errno);
  return descriptor;
}

void requireRegular(int descriptor) {
  struct stat status {};
  if (::fstat(descriptor, &status) != 0) failToLock(errno);
  if (!S_ISREG(status.st_mode)) failToLock(EINVAL);
}

[[noreturn]] void refuse(LockKind kind) {
  if (kind == LockKind::shared) throw DatabaseError("This snapshot is being deleted. Try again.");
  throw DatabaseError(
      "Snapshot storage is in use. Close open snapshot tabs or wait for the other operation to finish.");
}

void takeLock(int descriptor, LockKind kind) {
  if (::flock(descriptor, (kind == LockKind::shared ? LOCK_SH : LOCK_EX) | LOCK_NB) == 0) return;
  if (errno != EWOULDBLOCK) failToLock(errno);
  refuse(kind);
}

/// The lock of a file that has lost its name excludes nobody who comes later.
void requireNamed(int descriptor, std::filesystem::path const& path, LockKind kind) {
  std::optional<FileNode> const node = fileNode(descriptor);
  if (!node || node != fileNode(AT_FDCWD, path)) refuse(kind);
}

}  // namespace

StoreLock::StoreLock(std::filesystem::path const& path, LockKind kind) : descriptor_(openLockFile(path)) {
  try {
    requireRegular(descriptor_);
    takeLock(descriptor_, kind);
    requireNamed(descriptor_, path, kind);
  } catch (...) {
    unlockAndClose(descriptor_);
    throw;
  }
}

StoreLock::~StoreLock() {
  if (descriptor_ >= 0) unlockAndClose(descriptor_);
}

/// A lock belongs to the open file, which a forked child shares until it runs its program: closing alone would leave
/// it the lock. The file may be a second name of a database that SQLite has open, hence `LockedFiles`.
void StoreLock::unlockAndClose(int descriptor) noexcept {
  int const reason = errno;
  ::flock(descriptor, LOCK_UN);
  LockedFiles::close(descriptor);
  errno = reason;
}

}  // namespace tolva
