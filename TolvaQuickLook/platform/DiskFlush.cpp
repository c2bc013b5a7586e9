// SPDX-License-Identifier: Apache-2.0
#include "platform/DiskFlush.hpp"

#include <unistd.h>

#include <cerrno>

namespace tolva {

bool flushFileToDisk(int file) noexcept {
  int result = ::fsync(file);
  while (result != 0 && errno == EINTR) result = ::fsync(file);
  return result == 0;
}

bool flushFolderToDisk(int folder) noexcept { return flushFileToDisk(folder) || errno == EINVAL; }

}  // namespace tolva
