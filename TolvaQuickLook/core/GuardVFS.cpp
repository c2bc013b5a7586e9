// SPDX-License-Identifier: Apache-2.0
#include "core/GuardVFS.hpp"

#include <sqlite3.h>
#include <sys/stat.h>

#include <algorithm>
#include <array>
#include <cctype>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <string_view>

#include "platform/FileNode.hpp"
#include "platform/LockedFiles.hpp"
#include "platform/ThreadSafety.hpp"

namespace tolva {
namespace {

constexpr std::array<std::string_view, 3> companions{"-journal", "-shm", "-wal"};

sqlite3_vfs* below = nullptr;  // set once, before the guard is registered

int closeDatabase(sqlite3_file* file) noexcept;
int mapSharedMemory(sqlite3_file* file, int region, int bytes, int extend, void volatile** memory) noexcept;

/// A database that SQLite has open through the guard.
struct OpenDatabase {
  std::string path;
  FileNode node;
  sqlite3_io_methods const* methods;       // those of the VFS below
  std::optional<FileNode> sharedMemory{};  // the "-shm" file, which carries the locks of a database in WAL mode
};

/// The databases that SQLite has open through the guard. Any thread.
class OpenDatabases {
 public:
  static OpenDatabases& shared() {
    static auto* const all = new OpenDatabases;  // outlives whatever closes a database at exit
    return *all;
  }

  /// Remembers `file` and routes its close through the guard.
  void add(sqlite3_file* file, std::string path, FileNode node) {
    MutexLock const lock(lock_);
    std::unique_ptr<sqlite3_io_methods>& guarded = guarded_[file->pMethods];
    if (!guarded) {
      guarded = std::make_unique<sqlite3_io_methods>(*file->pMethods);
      guarded->xClose = closeDatabase;
      guarded->xShmMap = mapSharedMemory;
    }
    open_.emplace(file, OpenDatabase{std::move(path), node, file->pMethods});
    file->pMethods = guarded.get();
  }

  /// Forgets `file` and gives it its own methods back.
  OpenDatabase remove(sqlite3_file* file) {
    MutexLock const lock(lock_);
    auto entry = open_.extract(file);
    file->pMethods = entry.mapped().methods;
    return std::move(entry.mapped());
  }

  OpenDatabase find(sqlite3_file* file) {
    MutexLock const lock(lock_);
    return open_.at(file);
  }

  void setSharedMemory(sqlite3_file* file, FileNode node) {
    MutexLock const lock(lock_);
    open_.at(file).sharedMemory = node;
  }

  bool hold(FileNode node) {
    MutexLock const lock(lock_);
    return std::ranges::any_of(open_, [&](auto const& entry) { return entry.second.node == node; });
  }

  bool haveCompanion(std::string_view path) {
    MutexLock const lock(lock_);
    return std::ranges::any_of(open_, [&](auto const& entry) {
      std::string_view const database = entry.second.path;
      return path.starts_with(database) && std::ranges::count(companions, path.substr(database.size())) > 0;
    });
  }

 private:
  Mutex lock_;
  std::map<sqlite3_file*, OpenDatabase> open_ GUARDED_BY(lock_);
  std::map<sqlite3_io_methods const*, std::unique_ptr<sqlite3_io_methods>> guarded_ GUARDED_BY(lock_);
};

/// SQLite names a super-journal after the first database, "-mj", six hexadecimal digits, "9" and two more.
bool isSuperJournal(std::string_view path) {
  if (path.size() < 12) return false;
  std::string_view const tail = path.substr(path.size() - 12);
  auto const isHex = [](char c) { return std::isxdigit(static_cast<unsigned char>(c)) != 0; };
  return tail.starts_with("-mj") && tail[9] == '9' && std::ranges::all_of(tail.substr(3), isHex);
}

/// Whether a file of SQLite's own may be opened under this name: nothing is there yet, or a regular file with no second
/// name that is no open database.
bool isOwnFile(char const* path) {
  struct stat found;
  if (lstat(path, &found) != 0) return true;
  return S_ISREG(found.st_mode) && found.st_nlink == 1 &&
         !OpenDatabases::shared().hold(FileNode{found.st_dev, found.st_ino});
}

bool mayOpen(char const* path, int flags) {
  if (!path) return true;  // a temporary file, which SQLite names and removes itself
  if (flags & SQLITE_OPEN_MAIN_DB) {
    struct stat found;
    return stat(path, &found) != 0 || S_ISREG(found.st_mode);
  }
  if (flags & SQLITE_OPEN_SUPER_JOURNAL) {
    return (isSuperJournal(path) || std::string_view(path).ends_with("-journal")) && isOwnFile(path);
  }
  if (flags & SQLITE_OPEN_WAL) {
    std::string_view const wal = path;
    std::string const shm = std::string(wal.substr(0, wal.size() - companions[2].size())).append(companions[1]);
    return isOwnFile(path) && isOwnFile(shm.c_str());
  }
  return !(flags & SQLITE_OPEN_MAIN_JOURNAL) || isOwnFile(path);
}

/// Holds the inode of a database that has just been opened. False if its name already leads to another file.
bool keep(sqlite3_file* file, char const* path) {
  struct stat found;
  int moved = 1;
  if (stat(path, &found) != 0) return false;
  if (file->pMethods->xFileControl(file, SQLITE_FCNTL_HAS_MOVED, &moved) == SQLITE_OK && moved) return false;
  FileNode const node{found.st_dev, found.st_ino};
  LockedFiles::hold(node);
  try {
    OpenDatabases::shared().add(file, path, node);
  } catch (...) {
    LockedFiles::letGo(node);
    throw;
  }
  return true;
}

int openFile(sqlite3_vfs*, char const* path, sqlite3_file* file, int flags, int* given) noexcept try {
  file->pMethods = nullptr;
  if (!mayOpen(path, flags)) return SQLITE_CANTOPEN;
  int const opened = below->xOpen(below, path, file, flags, given);
  if (opened != SQLITE_OK || !path || !(flags & SQLITE_OPEN_MAIN_DB)) return opened;
  if (keep(file, path)) return SQLITE_OK;
  file->pMethods->xClose(file);
  file->pMethods = nullptr;
  return SQLITE_CANTOPEN;
} catch (...) {
  if (file->pMethods) file->pMethods->xClose(file);
  file->pMethods = nullptr;
  return SQLITE_NOMEM;
}

int closeDatabase(sqlite3_file* file) noexcept {
  OpenDatabase const database = OpenDatabases::shared().remove(file);
  int const closed = file->pMethods->xClose(file);
  if (database.sharedMemory) LockedFiles::letGo(*database.sharedMemory);
  LockedFiles::letGo(database.node);
  return closed;
}

/// The first region that is mapped is the moment from which the "-shm" file is there.
int mapSharedMemory(sqlite3_file* file, int region, int bytes, int extend, void volatile** memory) noexcept try {
  OpenDatabase const database = OpenDatabases::shared().find(file);
  int const mapped = database.methods->xShmMap(file, region, bytes, extend, memory);
  if (mapped != SQLITE_OK || database.sharedMemory) return mapped;
  if (std::optional<FileNode> const node = fileNode(database.path + "-shm")) {
    LockedFiles::hold(*node);
    OpenDatabases::shared().setSharedMemory(file, *node);
  }
  return mapped;
} catch (...) {
  return SQLITE_NOMEM;
}

int deleteFile(sqlite3_vfs*, char const* path, int syncFolder) noexcept {
  if (!isSuperJournal(path) && !OpenDatabases::shared().haveCompanion(path)) return SQLITE_IOERR_DELETE;
  return below->xDelete(below, path, syncFolder);
}

}  // namespace

void GuardVFS::install() {
  below = sqlite3_vfs_find(nullptr);
  static sqlite3_vfs guard = *below;
  guard.zName = name;
  guard.xOpen = openFile;
  guard.xDelete = deleteFile;
  guard.pNext = nullptr;
  sqlite3_vfs_register(&guard, /*makeDflt=*/0);
}

}  // namespace tolva
