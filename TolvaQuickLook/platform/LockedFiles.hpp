// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "platform/FileNode.hpp"

namespace tolva {

/// The files of this process that SQLite has open, so that nobody drops SQLite's locks on them.
///
/// A POSIX lock belongs to a process and an inode, and close() of any descriptor of that inode drops it
/// (https://sqlite.org/howtocorrupt.html, 2.2): a moment later another process writes into our transaction.
/// Any thread: one plain lock, under which both the decision and the close happen, so that no hold slips in between.
class LockedFiles {
 public:
  /// Called before SQLite takes its first lock on a file, and counted: each connection holds for itself. In WAL mode
  /// the locks lie on the "-shm" companion, which appears with the first statement and is held as well.
  static void hold(FileNode file);

  /// Called when SQLite has closed it. With the last hold the descriptors that were parked meanwhile are closed.
  static void letGo(FileNode file) noexcept;

  /// Closes `descriptor`, or parks it while its file is held. One of anything but a regular file is closed at once.
  /// Returns the system's error number, 0 for none, and leaves `errno` as it was.
  static int close(int descriptor) noexcept;

  /// A descriptor for reading that is parked for `file`, at its beginning and the caller's from now on; -1 if there is
  /// none. With it a file that is read again and again while it is held takes one descriptor and not one each time.
  static int takeParked(FileNode file) noexcept;
};

}  // namespace tolva
