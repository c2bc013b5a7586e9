// SPDX-License-Identifier: Apache-2.0
#include "core/Stamp.hpp"

#include <fcntl.h>
#include <sys/stat.h>

#include <cerrno>

#include "platform/FilePath.hpp"

namespace tolva {

Stamp Stamp::of(std::filesystem::path const& path) noexcept {
  if (holdsNUL(path)) return {.error = ENOENT};
  struct stat status {};
  if (::fstatat(AT_FDCWD, path.c_str(), &status, 0) != 0) return {.error = errno};
  return {.device = status.st_dev,
          .inode = status.st_ino,
          .bytes = status.st_size,
          .seconds = status.st_mtim.tv_sec,
          .nanoseconds = status.st_mtim.tv_nsec,
          .changedSeconds = status.st_ctim.tv_sec,
          .changedNanoseconds = status.st_ctim.tv_nsec};
}

}  // namespace tolva
