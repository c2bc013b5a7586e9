// SPDX-License-Identifier: Apache-2.0
#include "core/DatabaseMonitor.hpp"

#include <algorithm>
#include <cerrno>

#include "core/CompanionFiles.hpp"
#include "platform/FilePath.hpp"
#include "platform/TaskCancellation.hpp"

namespace tolva {
namespace {

std::array<std::filesystem::path, 3> filesOf(std::filesystem::path const& database) {
  return {database, walOf(database), shmOf(database)};
}

bool failed(Stamp const& stamp) { return stamp.error != 0 && stamp.error != ENOENT; }

bool sameFile(Stamp const& one, Stamp const& other) {
  return one.error == 0 && other.error == 0 && one.device == other.device && one.inode == other.inode;
}

}  // namespace

DatabaseMonitor::DatabaseMonitor(std::filesystem::path const& databaseURL)
    : urls_(filesOf(absolutePath(databaseURL))) {}

DatabaseObservation DatabaseMonitor::sample(std::stop_token task) {
  Turn const turn(turns_);
  checkCancellation(task);
  Stamps const now = look();
  compare(now);
  Stamp const& wal = now[1];
  Stamp const& shm = now[2];
  return {.revision = revision_,
          .walBytes = wal.error == 0 ? std::optional(wal.bytes) : std::nullopt,
          .shmPresent = shm.error == 0,
          .requiresReopen = replaced_,
          .unavailable = std::ranges::any_of(now, failed),
          .lastChange = lastChange_};
}

DatabaseMonitor::Stamps DatabaseMonitor::look() const {
  return {Stamp::of(urls_[0]), Stamp::of(urls_[1]), Stamp::of(urls_[2])};
}

void DatabaseMonitor::compare(Stamps const& now) {
  if (!original_) original_ = now.front();
  if (previous_ && *previous_ != now) {
    ++revision_;
    lastChange_ = std::chrono::system_clock::now();
  }
  if (!sameFile(*original_, now.front())) replaced_ = true;
  previous_ = now;
}

}  // namespace tolva
