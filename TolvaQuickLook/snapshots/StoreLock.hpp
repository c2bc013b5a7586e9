// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <filesystem>
#include <utility>

namespace tolva {

enum class LockKind { shared, exclusive };

/// An advisory lock (flock) on a lock file, held for a scope against every other process and every other holder in this
/// one. It never waits. Used by one thread at a time.
class StoreLock {
 public:
  /// Makes the file, mode 0600, if it is not there. Throws `DatabaseError` where it cannot be opened, is anything but a
  /// regular file, is locked by somebody else, or loses its name before it is locked. Later it is not noticed.
  StoreLock(std::filesystem::path const& path, LockKind kind);
  ~StoreLock();
  StoreLock(StoreLock const&) = delete;
  StoreLock& operator=(StoreLock const&) = delete;
  StoreLock(StoreLock&& other) noexcept : descriptor_(other.release()) {}

  /// Gives the locked descriptor to the caller, who ends it with `unlockAndClose`.
  int release() noexcept { return std::exchange(descriptor_, -1); }

  /// Ends the lock of `descriptor`, at once even where a child that another thread forked still has a copy of it.
  /// Leaves `errno` as it was.
  static void unlockAndClose(int descriptor) noexcept;

 private:
  int descriptor_;
};

}  // namespace tolva
