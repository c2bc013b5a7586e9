// SPDX-License-Identifier: Apache-2.0
#include "core/FileObservation.hpp"

#include <fcntl.h>
#include <sys/stat.h>

#include <cerrno>

#include "platform/FilePath.hpp"

namespace tolva {

FileObservation FileObservation::read(std::filesystem::path const& path) noexcept {
  if (holdsNUL(path)) return missing();
  struct stat status {};
  if (::fstatat(AT_FDCWD, path.c_str(), &status, AT_SYMLINK_NOFOLLOW) == 0) return present(status.st_size);
  return errno == ENOENT || errno == ENOTDIR ? missing() : unavailable();
}

}  // namespace tolva
