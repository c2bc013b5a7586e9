// SPDX-License-Identifier: Apache-2.0
#include "platform/FileIdentity.hpp"

#include <fcntl.h>
#include <sys/stat.h>
#include <sys/statfs.h>
#include <sys/sysmacros.h>

#include <array>
#include <bit>
#include <cstdint>

#include "platform/Descriptor.hpp"
#include "platform/DoubleText.hpp"
#include "platform/SystemError.hpp"

namespace tolva {
namespace {

constexpr std::int64_t secondsFrom1970To2001 = 978'307'200;

/// The number of the file system under `descriptor`; 0 where it has none.
std::uint64_t fileSystemNumber(int descriptor, std::filesystem::path const& path) {
  struct statfs system {};
  if (::fstatfs(descriptor, &system) != 0) throwFileError("The file system cannot be identified", path);
  auto const halves = std::bit_cast<std::array<std::uint32_t, 2>>(system.f_fsid);
  return halves[0] | std::uint64_t{halves[1]} << 32;
}

double birthTime(struct statx const& status, EpochYear epoch) {
  if ((status.stx_mask & STATX_BTIME) == 0) return 0;
  std::int64_t const start = epoch == EpochYear::y2001 ? secondsFrom1970To2001 : 0;
  return static_cast<double>(status.stx_btime.tv_sec - start) + status.stx_btime.tv_nsec / 1e9;
}

std::string identityOf(int descriptor, std::filesystem::path const& path, EpochYear epoch) {
  struct statx status {};
  if (::statx(descriptor, "", AT_EMPTY_PATH, STATX_INO | STATX_BTIME, &status) != 0)
    throwFileError("The file cannot be identified", path);
  std::uint64_t system = fileSystemNumber(descriptor, path);
  if (system == 0) system = makedev(status.stx_dev_major, status.stx_dev_minor);
  return std::to_string(system) + ":" + std::to_string(status.stx_ino) + ":" + doubleText(birthTime(status, epoch));
}

/// The three numbers of one and the same file, whatever happens to its name meanwhile. An O_PATH descriptor is no open
/// file: closing it drops no lock.
std::string identityAt(int folder, std::filesystem::path const& path, int flags, EpochYear epoch) {
  Descriptor const place(::openat(folder, path.c_str(), O_PATH | O_CLOEXEC | flags));
  if (!place) throwFileError("The file cannot be identified", path);
  return identityOf(place.get(), path, epoch);
}

}  // namespace

std::string fileIdentity(std::filesystem::path const& path, EpochYear epoch) {
  return identityAt(AT_FDCWD, path, 0, epoch);
}

std::string fileIdentity(int folder, std::string const& name, EpochYear epoch) {
  return identityAt(folder, name, O_NOFOLLOW, epoch);
}

std::string fileIdentity(int descriptor, EpochYear epoch) { return identityOf(descriptor, {}, epoch); }

}  // namespace tolva
