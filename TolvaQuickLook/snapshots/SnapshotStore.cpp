// SPDX-License-Identifier: Apache-2.0
#include "snapshots/SnapshotStore.hpp"

#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <string>

#include "core/DatabaseError.hpp"
#include "platform/CanonicalPath.hpp"
#include "platform/DurableFolder.hpp"
#include "platform/FilePath.hpp"

namespace tolva {
namespace {

constexpr std::size_t databaseIDLength = 64;

std::filesystem::path withoutLastSlash(std::filesystem::path const& path) {
  return path.has_filename() ? path : path.parent_path();
}

bool isLink(std::string const& path) {
  struct stat status {};
  return ::lstat(path.c_str(), &status) == 0 && S_ISLNK(status.st_mode);
}

/// Looks at each part by itself: a link that leads to itself or nowhere is one as well.
bool passesLink(std::string const& path) {
  for (std::size_t end = path.find('/', 1); end != std::string::npos; end = path.find('/', end + 1)) {
    if (isLink(path.substr(0, end))) return true;
  }
  return isLink(path);
}

bool isOwn(std::filesystem::path const& folder) {
  struct stat status {};
  return ::stat(folder.c_str(), &status) == 0 && status.st_uid == ::geteuid();
}

bool isLowerHexDigit(char digit) { return (digit >= '0' && digit <= '9') || (digit >= 'a' && digit <= 'f'); }

}  // namespace

SnapshotStore::SnapshotStore(std::filesystem::path const& root)
    : root_(withoutLastSlash(holdsNUL(root) ? root : canonicalPath(root))) {}

std::filesystem::path SnapshotStore::checked(std::filesystem::path const& path) const {
  std::filesystem::path tidied = withoutLastSlash(absolutePath(path).lexically_normal());
  std::string const below = root_ == "/" ? "/" : root_.string() + "/";
  std::string const text = tidied.string();
  bool const inside = text.size() > below.size() && text.starts_with(below);
  if (holdsNUL(path) || !inside || passesLink(text)) throw DatabaseError("Unsafe snapshot path.");
  return tidied;
}

std::filesystem::path SnapshotStore::directory(std::string_view databaseID) const {
  if (databaseID.size() != databaseIDLength || !std::all_of(databaseID.begin(), databaseID.end(), isLowerHexDigit))
    throw DatabaseError("Invalid snapshot database identifier.");
  return checked(root_ / databaseID);
}

std::filesystem::path SnapshotStore::directory(std::string_view databaseID, UUID const& id) const {
  return checked(directory(databaseID) / id.text());
}

StoreLock SnapshotStore::lockCatalog() const {
  std::filesystem::path const file = checked(root_ / catalogLockName);
  makeDurableFolder(root_);
  return StoreLock(file, LockKind::exclusive);
}

void SnapshotStore::flush() const {
  flushFolder(root_);
  std::filesystem::path folder = root_;
  do {
    std::filesystem::path const parent = folder.parent_path();
    flushFolder(parent);
    folder = parent;
  } while (folder.has_relative_path() && isOwn(folder));
}

}  // namespace tolva
