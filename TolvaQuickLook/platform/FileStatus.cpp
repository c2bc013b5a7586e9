// SPDX-License-Identifier: Apache-2.0
#include "platform/FileStatus.hpp"

#include <fcntl.h>
#include <sys/stat.h>

#include "platform/SystemError.hpp"

namespace tolva {
namespace {

using Clock = std::chrono::system_clock;

Clock::time_point timeOf(timespec const& time) {
  auto const sinceEpoch = std::chrono::seconds(time.tv_sec) + std::chrono::nanoseconds(time.tv_nsec);
  return Clock::time_point(std::chrono::duration_cast<Clock::duration>(sinceEpoch));
}

FileStatus statusAt(int folder, char const* name, int flags, std::filesystem::path const& path) {
  struct stat status {};
  if (::fstatat(folder, name, &status, flags) != 0) throwFileError("The file cannot be inspected", path);
  return {.node = {status.st_dev, status.st_ino},
          .regular = S_ISREG(status.st_mode),
          .size = static_cast<std::uint64_t>(status.st_size),
          .modified = timeOf(status.st_mtim),
          .changed = timeOf(status.st_ctim),
          .links = status.st_nlink,
          .owner = status.st_uid};
}

}  // namespace

FileStatus fileStatus(std::filesystem::path const& path) { return statusAt(AT_FDCWD, path.c_str(), 0, path); }

FileStatus fileStatus(int descriptor, std::filesystem::path const& path) {
  return statusAt(descriptor, "", AT_EMPTY_PATH, path);
}

}  // namespace tolva
