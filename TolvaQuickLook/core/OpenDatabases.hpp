// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <map>
#include <optional>
#include <string>
#include <string_view>

#include "platform/FileNode.hpp"
#include "platform/ThreadSafety.hpp"

struct sqlite3_file;
struct sqlite3_io_methods;

namespace tolva {

/// A database that SQLite has open through the guard of files.
struct OpenDatabase {
  std::string path;           // absolute, links resolved
  char const* journal;        // SQLite's own name object of the "-journal", and
  char const* writeAheadLog;  // of the "-wal"
  FileNode node;
  sqlite3_io_methods const* methods;       // those of the VFS below the guard
  std::optional<FileNode> sharedMemory{};  // the "-shm" file, which carries the locks of a database in WAL mode
};

/// The databases of this process that are open through the guard, by SQLite's file objects. Any thread.
class OpenDatabases {
 public:
  static OpenDatabases& shared();

  void add(sqlite3_file* file, OpenDatabase database);
  OpenDatabase find(sqlite3_file* file);
  OpenDatabase remove(sqlite3_file* file);
  void setSharedMemory(sqlite3_file* file, std::optional<FileNode> node);

  /// Whether this file is an open database.
  bool contain(FileNode node);

  /// Whether it is the "-shm" file of one.
  bool useAsSharedMemory(FileNode node);

  /// Whether `name` is the very object by which SQLite names the "-journal" or "-wal" of an open database.
  bool nameCompanion(char const* name);

  /// Whether `path` reads like the "-journal", "-wal" or "-shm" of an open database.
  bool haveCompanion(std::string_view path);

 private:
  Mutex lock_;
  std::map<sqlite3_file*, OpenDatabase> open_ GUARDED_BY(lock_);
};

}  // namespace tolva
