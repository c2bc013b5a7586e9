// SPDX-License-Identifier: Apache-2.0
#include "snapshots/SnapshotStaging.hpp"

#include <fcntl.h>
#include <stdio.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <exception>
#include <string_view>
#include <system_error>
#include <vector>

#include "platform/DiskFlush.hpp"
#include "platform/DurableFolder.hpp"
#include "platform/LockedFiles.hpp"
#include "platform/SystemError.hpp"

namespace tolva {
namespace {

constexpr std::string_view prefix = SnapshotStore::hiddenPrefix;
constexpr char const* databaseName = SnapshotStore::databaseName;

std::string hiddenName() { return std::string(prefix) + UUID::make().text(); }

Descriptor openFolder(int parent, std::string const& name, std::filesystem::path const& path) {
  Descriptor folder(::openat(parent, name.c_str(), O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC));
  if (!folder) throwFileError("The folder cannot be opened", path);
  return folder;
}

bool isStaging(std::filesystem::directory_entry const& entry) {
  std::string const name = entry.path().filename();
  return name.starts_with(prefix) && UUID::parse(std::string_view(name).substr(prefix.size()));
}

// What cannot be removed is told of by the removal itself.
void openToOwner(std::filesystem::path const& folder) {
  struct stat status {};
  if (::lstat(folder.c_str(), &status) != 0 || !S_ISDIR(status.st_mode) || (status.st_mode & 0700) == 0700) return;
  [[maybe_unused]] int const ignored = ::fchmodat(AT_FDCWD, folder.c_str(), 0700, AT_SYMLINK_NOFOLLOW);
}

/// Gives the owner all rights to a folder and those in it, each before it is gone into: a folder that may not be
/// written keeps its files.
void makeRemovable(std::filesystem::path const& folder) {
  openToOwner(folder);
  std::error_code ignored;
  std::filesystem::recursive_directory_iterator entry(folder, ignored);
  for (; entry != std::filesystem::recursive_directory_iterator(); entry.increment(ignored)) openToOwner(entry->path());
}

/// Removes the database of a snapshot that was moved aside, and before it what does not belong to a snapshot.
void removeDatabase(std::filesystem::path const& aside) {
  for (std::filesystem::directory_entry const& entry : std::filesystem::directory_iterator(aside)) {
    std::string const name = entry.path().filename();
    bool const file = !std::filesystem::is_directory(entry.symlink_status());
    if (!file || (name != databaseName && name != SnapshotStore::recordName)) std::filesystem::remove_all(entry.path());
  }
  std::filesystem::path const record = aside / SnapshotStore::recordName;
  std::filesystem::path const renamed = aside / hiddenName();
  std::filesystem::rename(record, renamed);  // refused where the record could not be removed later
  try {
    std::filesystem::remove(aside / databaseName);
  } catch (...) {
    std::filesystem::rename(renamed, record);
    throw;
  }
}

/// Without its record, or where this fails as well, the folder stays a staging folder, which the next capture or
/// listing clears away.
void moveBack(std::filesystem::path const& aside, std::filesystem::path const& folder) noexcept try {
  if (!std::filesystem::exists(aside / SnapshotStore::recordName)) return;
  std::filesystem::rename(aside, folder);
  flushFolder(folder.parent_path());
} catch (std::exception const&) {
}

}  // namespace

// Cleaning ----------------------------------------------------------------------------------------

void cleanStaging(SnapshotStore const& store, std::filesystem::path const& folder) {
  std::vector<std::filesystem::path> left;
  for (std::filesystem::directory_entry const& entry : std::filesystem::directory_iterator(folder)) {
    if (isStaging(entry)) left.push_back(store.checked(entry.path()));
  }
  if (left.empty()) return;
  // The disk may still have one of them under the name of a snapshot, which would be torn if the power failed now.
  flushFolder(folder);
  for (std::filesystem::path const& entry : left) {
    // Whoever is at work on it, although the lock is held here, finds it gone and publishes nothing half removed.
    std::filesystem::path const aside = store.checked(folder / hiddenName());
    std::filesystem::rename(entry, aside);
    makeRemovable(aside);
    std::filesystem::remove_all(aside);
  }
}

void deleteSnapshotFolder(SnapshotStore const& store, std::filesystem::path const& folder) {
  std::filesystem::path const aside = store.checked(folder.parent_path() / hiddenName());
  makeRemovable(folder);
  std::filesystem::rename(folder, aside);
  try {
    flushFolder(folder.parent_path());
    removeDatabase(aside);
  } catch (...) {
    moveBack(aside, folder);
    throw;
  }
  std::filesystem::remove_all(aside);
}

// Life --------------------------------------------------------------------------------------------

SnapshotStaging::SnapshotStaging(SnapshotStore const& store, std::filesystem::path const& databaseFolder)
    : name_(hiddenName()),
      path_(store.checked(databaseFolder / name_)),
      database_(store.checked(path_ / databaseName)),
      parent_(openFolder(AT_FDCWD, databaseFolder, databaseFolder)) {
  if (::mkdirat(parent_.get(), name_.c_str(), 0700) != 0) throwFileError("The folder cannot be made", path_);
  try {
    folder_ = openFolder(parent_.get(), name_, path_);
  } catch (...) {
    ::unlinkat(parent_.get(), name_.c_str(), AT_REMOVEDIR);
    throw;
  }
  deletable_ = true;
}

/// Removing a folder takes descriptors: its own go first, in case that the process has no more.
SnapshotStaging::~SnapshotStaging() {
  std::error_code ignored;
  folder_.reset();
  parent_.reset();
  if (deletable_) std::filesystem::remove_all(path_, ignored);
}

std::optional<FileNode> SnapshotStaging::databaseNode() const { return fileNode(folder_.get(), databaseName); }

// Completing --------------------------------------------------------------------------------------

std::int64_t SnapshotStaging::databaseSize() const {
  struct stat status {};
  return ::fstatat(folder_.get(), databaseName, &status, AT_SYMLINK_NOFOLLOW) == 0 ? status.st_size : 0;
}

void SnapshotStaging::protectDatabase() {
  if (::fchmodat(folder_.get(), databaseName, 0400, 0) != 0) throwFileError("The file cannot be protected", database_);
}

void SnapshotStaging::flush() {
  int const database = ::openat(folder_.get(), databaseName, O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC);
  if (database < 0) throwFileError("The file cannot be opened", database_);
  bool const done = flushFileToDisk(database);
  LockedFiles::close(database);  // leaves `errno` as it was
  if (!done) throwFileError("The file cannot be put on the disk", database_);
  if (!flushFolderToDisk(folder_.get())) throwFileError("The folder cannot be put on the disk", path_);
}

// Publication -------------------------------------------------------------------------------------

void SnapshotStaging::publish(UUID const& id) {
  std::string const name = id.text();
  move(name_, name);
  deletable_ = false;  // whatever happens now: nothing is ever deleted under the name of a snapshot
  if (flushFolderToDisk(parent_.get())) return;
  int const reason = errno;
  takeBack(name);
  errno = reason;
  throwFileError("The folder cannot be put on the disk", path_.parent_path());
}

/// A file system that does not know the flag can replace an empty folder at most, which is no snapshot.
void SnapshotStaging::move(std::string const& from, std::string const& to) {
  int const parent = parent_.get();
  if (::renameat2(parent, from.c_str(), parent, to.c_str(), RENAME_NOREPLACE) == 0) return;
  bool const unknown = errno == EINVAL || errno == ENOSYS;
  if (!unknown || ::renameat(parent, from.c_str(), parent, to.c_str()) != 0) {
    throwFileError("The folder cannot take its name", path_.parent_path() / to);
  }
}

/// Until the disk is known to have the hidden name again, the folder is not deleted: the next capture does that.
void SnapshotStaging::takeBack(std::string const& published) noexcept try {
  move(published, name_);
  deletable_ = flushFolderToDisk(parent_.get());
} catch (std::exception const&) {
  // It stays as what it is, a whole snapshot.
}

}  // namespace tolva
