// SPDX-License-Identifier: Apache-2.0
#include "platform/FileAttributes.hpp"

#include <sys/stat.h>

#include <cerrno>

namespace tolva {

FileAttributes FileAttributes::read(std::filesystem::path const& path) {
  using namespace std::chrono;
  struct stat found;
  if (stat(path.c_str(), &found) != 0) {
    throw std::filesystem::filesystem_error("cannot read file attributes", path,
                                            std::error_code(errno, std::generic_category()));
  }
  auto const sinceEpoch = seconds(found.st_mtim.tv_sec) + nanoseconds(found.st_mtim.tv_nsec);
  return {found.st_size, system_clock::time_point(duration_cast<system_clock::duration>(sinceEpoch))};
}

}  // namespace tolva
