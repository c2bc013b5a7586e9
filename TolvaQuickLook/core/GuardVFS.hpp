// SPDX-License-Identifier: Apache-2.0
#pragma once

namespace tolva {

/// The layer between SQLite and the files (https://sqlite.org/vfs.html) that keeps a hostile folder from reaching other
/// files through a database.
///
/// - A database is a regular file, since a FIFO or a device would hang the open, and never the "-shm" file of a
///   database that this process has open.
/// - A companion (`-journal`, `-wal`, `-shm`) that is already there is a regular file of one name: a link would let a
///   planted companion read or overwrite what it points to. Databases in a backup of hard links are affected too, where
///   their companions were linked with them.
/// - A journal names the super-journal that is to be deleted after it, and a planted one can name any file. So nothing
///   is deleted but companions of an open database, as themselves, and files named as SQLite names super-journals.
/// - The inodes of every open database and of its "-shm" file are held in `LockedFiles` until the last close, so that
///   no reader of the same file drops SQLite's locks.
///
/// What is refused reads as SQLite's own "unable to open database file" (14) or "disk I/O error" (2570).
class GuardVFS {
 public:
  /// The name under which an open asks for it. It is never the default.
  static constexpr char const* name = "tolva";

  /// Registers it over the default VFS; called once, by `SQLiteLibrary`. Without a default VFS there is none, and every
  /// open fails.
  static void install();
};

}  // namespace tolva
