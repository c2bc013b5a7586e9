// SPDX-License-Identifier: Apache-2.0
#include "core/GuardVFS.hpp"

#include <sqlite3.h>
#include <sys/stat.h>

#include <algorithm>
#include <map>
#include <memory>
#include <optional>
#include <set>
#include <string>
#include <string_view>

#include "core/OpenDatabases.hpp"
#include "platform/FileNode.hpp"
#include "platform/LockedFiles.hpp"
#include "platform/ThreadSafety.hpp"

namespace tolva {
namespace {

sqlite3_vfs* below = nullptr;  // set once, before the guard is registered

OpenDatabases& databases() { return OpenDatabases::shared(); }

// Super-journals ------------------------------------------------------------------------------------

/// SQLite names a super-journal after the first database, "-mj", six hexadecimal digits, "9" and two more.
bool isSuperJournal(std::string_view path) {
  if (path.size() < 12) return false;
  std::string_view const tail = path.substr(path.size() - 12);
  auto const isHex = [](char c) { return (c >= '0' && c <= '9') || (c >= 'A' && c <= 'F'); };
  return tail.starts_with("-mj") && tail[9] == '9' && std::ranges::all_of(tail.substr(3), isHex);
}

/// The journals that this thread has read as super-journals and not opened as themselves since. SQLite reads a
/// super-journal on the thread that deletes it, just before, so a name in here is about to be deleted because a journal
/// names it and not because its transaction has ended.
std::set<std::string, std::less<>>& readAsSuperJournals() {
  static thread_local std::set<std::string, std::less<>> names;
  return names;
}

// Opening -------------------------------------------------------------------------------------------

/// Whether a file of SQLite's own may be opened under this name: nothing is there yet, or a regular file without a
/// second name that is no open database, whose locks its close would drop.
bool isOwnFile(char const* path) {
  struct stat found {};
  if (lstat(path, &found) != 0) return true;
  return S_ISREG(found.st_mode) && found.st_nlink == 1 && !databases().contain({found.st_dev, found.st_ino});
}

bool isDatabaseFile(char const* path) {
  struct stat found {};
  if (stat(path, &found) != 0) return true;  // SQLite makes it, or says why not
  return S_ISREG(found.st_mode) && !databases().useAsSharedMemory({found.st_dev, found.st_ino});
}

std::string sharedMemoryOf(std::string_view wal) {
  constexpr std::string_view ending = "-wal";
  return std::string(wal.substr(0, wal.size() - ending.size())) + "-shm";
}

bool mayOpenSuperJournal(std::string const& path) {
  if (isSuperJournal(path)) return isOwnFile(path.c_str());
  if (!path.ends_with("-journal") || !isOwnFile(path.c_str())) return false;
  readAsSuperJournals().insert(path);
  return true;
}

bool mayOpen(char const* path, int flags) {
  if (!path) return true;  // a temporary file, which SQLite names and removes itself
  if (flags & SQLITE_OPEN_MAIN_DB) return isDatabaseFile(path);
  if (flags & SQLITE_OPEN_SUPER_JOURNAL) return mayOpenSuperJournal(path);
  if (flags & SQLITE_OPEN_WAL) return isOwnFile(path) && isOwnFile(sharedMemoryOf(path).c_str());
  if (flags & SQLITE_OPEN_MAIN_JOURNAL) {
    readAsSuperJournals().erase(path);
    return isOwnFile(path);
  }
  return true;
}

// Open databases ------------------------------------------------------------------------------------

int closeDatabase(sqlite3_file* file) noexcept;
int mapSharedMemory(sqlite3_file* file, int region, int bytes, int extend, void volatile** memory) noexcept;
int unmapSharedMemory(sqlite3_file* file, int remove) noexcept;

/// The methods of the VFS below with those of the guard in their place. Each kind is made once and kept for good.
sqlite3_io_methods const* guardedMethods(sqlite3_io_methods const* methods) {
  static Mutex lock;
  static auto* const made = new std::map<sqlite3_io_methods const*, std::unique_ptr<sqlite3_io_methods>>;
  MutexLock const locked(lock);
  std::unique_ptr<sqlite3_io_methods>& guarded = (*made)[methods];
  if (!guarded) {
    guarded = std::make_unique<sqlite3_io_methods>(*methods);
    guarded->xClose = closeDatabase;
    if (methods->iVersion >= 2 && methods->xShmMap) {
      guarded->xShmMap = mapSharedMemory;
      guarded->xShmUnmap = unmapSharedMemory;
    }
  }
  return guarded.get();
}

/// Remembers a database that has just been opened, before SQLite takes its first lock on it. False if its name already
/// leads to another file.
bool keep(sqlite3_file* file, char const* path) {
  int moved = 0;
  std::optional<FileNode> const node = fileNode(path);
  if (!node) return false;
  if (file->pMethods->xFileControl(file, SQLITE_FCNTL_HAS_MOVED, &moved) == SQLITE_OK && moved) return false;
  sqlite3_io_methods const* const guarded = guardedMethods(file->pMethods);
  LockedFiles::hold(*node);
  try {
    databases().add(file, {.path = path,
                           .journal = sqlite3_filename_journal(path),
                           .writeAheadLog = sqlite3_filename_wal(path),
                           .node = *node,
                           .methods = file->pMethods});
  } catch (...) {
    LockedFiles::letGo(*node);
    throw;
  }
  file->pMethods = guarded;
  return true;
}

void abandon(sqlite3_file* file) noexcept {
  if (file->pMethods) file->pMethods->xClose(file);
  file->pMethods = nullptr;
}

int openFile(sqlite3_vfs*, char const* path, sqlite3_file* file, int flags, int* given) noexcept try {
  file->pMethods = nullptr;
  if (!mayOpen(path, flags)) return SQLITE_CANTOPEN;
  int const opened = below->xOpen(below, path, file, flags, given);
  if (opened != SQLITE_OK || !path || !(flags & SQLITE_OPEN_MAIN_DB)) return opened;
  if (keep(file, path)) return SQLITE_OK;
  abandon(file);
  return SQLITE_CANTOPEN;
} catch (...) {
  abandon(file);
  return SQLITE_NOMEM;
}

int closeDatabase(sqlite3_file* file) noexcept {
  OpenDatabase const database = databases().remove(file);
  file->pMethods = database.methods;
  int const closed = file->pMethods->xClose(file);
  if (database.sharedMemory) LockedFiles::letGo(*database.sharedMemory);
  LockedFiles::letGo(database.node);
  return closed;
}

/// Holds the "-shm" file under the inode that it has now; a database that leaves WAL mode and returns to it has a new
/// one.
void followSharedMemory(sqlite3_file* file, std::optional<FileNode> const& now) {
  std::optional<FileNode> const before = databases().find(file).sharedMemory;
  if (now == before) return;
  if (now) LockedFiles::hold(*now);
  databases().setSharedMemory(file, now);
  if (before) LockedFiles::letGo(*before);
}

/// The first region is mapped before the others and, where the file is not there yet, makes it. SQLite's locks begin
/// with it, so a file that is there is held before.
int mapSharedMemory(sqlite3_file* file, int region, int bytes, int extend, void volatile** memory) noexcept try {
  OpenDatabase const database = databases().find(file);
  if (region != 0) return database.methods->xShmMap(file, region, bytes, extend, memory);
  std::string const path = database.path + "-shm";
  if (!isOwnFile(path.c_str())) return SQLITE_CANTOPEN;
  followSharedMemory(file, fileNode(path));
  int const mapped = database.methods->xShmMap(file, region, bytes, extend, memory);
  followSharedMemory(file, fileNode(path));
  return mapped;
} catch (...) {
  return SQLITE_NOMEM;
}

int unmapSharedMemory(sqlite3_file* file, int remove) noexcept try {
  int const unmapped = databases().find(file).methods->xShmUnmap(file, remove);
  followSharedMemory(file, std::nullopt);
  return unmapped;
} catch (...) {
  return SQLITE_NOMEM;
}

// Deleting ------------------------------------------------------------------------------------------

/// A companion is deleted by SQLite's own name for it. A library that makes another copy of the name is believed too,
/// unless the name was read as a super-journal's.
bool mayDelete(char const* path) {
  if (isSuperJournal(path) || databases().nameCompanion(path)) return true;
  return databases().haveCompanion(path) && !readAsSuperJournals().contains(std::string_view(path));
}

int deleteFile(sqlite3_vfs*, char const* path, int syncFolder) noexcept {
  return mayDelete(path) ? below->xDelete(below, path, syncFolder) : SQLITE_IOERR_DELETE;
}

}  // namespace

void GuardVFS::install() {
  below = sqlite3_vfs_find(nullptr);
  if (!below) return;
  static sqlite3_vfs guard = *below;
  guard.zName = name;
  guard.xOpen = openFile;
  guard.xDelete = deleteFile;
  guard.pNext = nullptr;
  sqlite3_vfs_register(&guard, /*makeDflt=*/0);
}

}  // namespace tolva
