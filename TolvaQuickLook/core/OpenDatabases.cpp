// SPDX-License-Identifier: Apache-2.0
#include "core/OpenDatabases.hpp"

#include <algorithm>
#include <array>
#include <utility>

namespace tolva {
namespace {

constexpr std::array<std::string_view, 3> companions{"-journal", "-shm", "-wal"};

}  // namespace

OpenDatabases& OpenDatabases::shared() {
  static auto* const all = new OpenDatabases;  // outlives whatever closes a database at exit
  return *all;
}

void OpenDatabases::add(sqlite3_file* file, OpenDatabase database) {
  MutexLock const lock(lock_);
  open_.emplace(file, std::move(database));
}

OpenDatabase OpenDatabases::find(sqlite3_file* file) {
  MutexLock const lock(lock_);
  return open_.at(file);
}

OpenDatabase OpenDatabases::remove(sqlite3_file* file) {
  MutexLock const lock(lock_);
  auto const entry = open_.find(file);
  OpenDatabase database = std::move(entry->second);
  open_.erase(entry);
  return database;
}

void OpenDatabases::setSharedMemory(sqlite3_file* file, std::optional<FileNode> node) {
  MutexLock const lock(lock_);
  open_.at(file).sharedMemory = node;
}

bool OpenDatabases::contain(FileNode node) {
  MutexLock const lock(lock_);
  return std::ranges::any_of(open_, [&](auto const& entry) { return entry.second.node == node; });
}

bool OpenDatabases::useAsSharedMemory(FileNode node) {
  MutexLock const lock(lock_);
  return std::ranges::any_of(open_, [&](auto const& entry) { return entry.second.sharedMemory == node; });
}

bool OpenDatabases::nameCompanion(char const* name) {
  MutexLock const lock(lock_);
  return std::ranges::any_of(
      open_, [&](auto const& entry) { return entry.second.journal == name || entry.second.writeAheadLog == name; });
}

bool OpenDatabases::haveCompanion(std::string_view path) {
  MutexLock const lock(lock_);
  return std::ranges::any_of(open_, [&](auto const& entry) {
    std::string_view const database = entry.second.path;
    return path.starts_with(database) && std::ranges::count(companions, path.substr(database.size())) > 0;
  });
}

}  // namespace tolva
