// SPDX-License-Identifier: Apache-2.0
#include "platform/LockedFiles.hpp"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <map>
#include <vector>

#include "platform/ThreadSafety.hpp"

namespace tolva {
namespace {

struct HeldFile {
  int holds = 0;
  std::vector<int> parked;  // descriptors whose close waits for the last hold
};

struct Registry {
  Mutex lock;
  std::map<FileNode, HeldFile> files GUARDED_BY(lock);
};

/// Never destroyed: a static object of the host may close its files after ours are gone.
Registry& registry() {
  static Registry& only = *new Registry;
  return only;
}

}  // namespace

void LockedFiles::hold(FileNode file) {
  Registry& all = registry();
  MutexLock const locked(all.lock);
  ++all.files[file].holds;
}

void LockedFiles::letGo(FileNode file) noexcept {
  Registry& all = registry();
  MutexLock const locked(all.lock);
  auto const held = all.files.find(file);
  if (held == all.files.end() || --held->second.holds > 0) return;
  for (int const descriptor : held->second.parked) ::close(descriptor);
  all.files.erase(held);
}

int LockedFiles::close(int descriptor) noexcept {
  int const reason = errno;
  int failure = 0;
  Registry& all = registry();
  {
    MutexLock const locked(all.lock);
    struct stat status {};
    bool const regular = ::fstat(descriptor, &status) == 0 && S_ISREG(status.st_mode);
    auto const held = regular ? all.files.find({status.st_dev, status.st_ino}) : all.files.end();
    if (held == all.files.end()) {
      if (::close(descriptor) != 0) failure = errno;
    } else {
      try {
        held->second.parked.push_back(descriptor);
      } catch (...) {
        // Without memory to park it the descriptor stays open for good: one number lost, no lock.
      }
    }
  }
  errno = reason;
  return failure;
}

int LockedFiles::takeParked(FileNode file) noexcept {
  Registry& all = registry();
  MutexLock const locked(all.lock);
  auto const held = all.files.find(file);
  if (held == all.files.end()) return -1;
  auto const forReading = [](int descriptor) { return (::fcntl(descriptor, F_GETFL) & O_ACCMODE) == O_RDONLY; };
  auto const found = std::ranges::find_if(held->second.parked, forReading);
  if (found == held->second.parked.end() || ::lseek(*found, 0, SEEK_SET) != 0) return -1;
  int const descriptor = *found;
  held->second.parked.erase(found);
  return descriptor;
}

}  // namespace tolva
