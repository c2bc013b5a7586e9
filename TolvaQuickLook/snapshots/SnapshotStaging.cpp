// SPDX-License-Identifier: Apache-2.0
#include "snapshots/SnapshotStaging.hpp"

#include <fcntl.h>
#include <stdio.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <string_view>
#include <system_error>
#include <vector>

#include "platform/DiskFlush.hpp"
#include "platform/DurableFolder.hpp"
#include "platform/LockedFiles.hpp"
#include "platform/SystemError.hpp"

namespace tolva {
namespace {

constexpr std::string_view prefix = ".partial-";
constexpr char const* databaseName = "database.sqlite";

Descriptor openFolder(int parent, std::string const& name, std::filesystem::path const& path) {
  Descriptor folder(::openat(parent, name.c_str(), O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC));
  if (!folder) throwFileError("The folder cannot be opened", path);
  return folder;
}

bool isStaging(std::filesystem::directory_entry const& entry) {
  std::string const name = entry.path().filename();
  return name.starts_with(prefix) && UUID::parse(std::string_view(name).substr(prefix.size()));
}

}  // namespace

// Cleaning ----------------------------------------------------------------------------------------

void cleanStaging(SnapshotStore const& store, std::filesystem::path const& databaseFolder) {
  std::vector<std::filesystem::path> left;
  for (std::filesystem::directory_entry const& entry : std::filesystem::directory_iterator(databaseFolder)) {
    if (isStaging(entry)) left.push_back(store.checked(entry.path()));
  }
  if (left.empty()) return;
  // The disk may still have one of them under the name of a snapshot, which would be torn if the power failed now.
  flushFolder(databaseFolder);
  for (std::filesystem::path const& folder : left) std::filesystem::remove_all(folder);
}

// Life --------------------------------------------------------------------------------------------

SnapshotStaging::SnapshotStaging(SnapshotStore const& store, std::filesystem::path const& databaseFolder)
    : name_(std::string(prefix) + UUID::make().text()),
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

SnapshotStaging::~SnapshotStaging() {
  std::error_code ignored;
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
