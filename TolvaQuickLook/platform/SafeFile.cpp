// SPDX-License-Identifier: Apache-2.0
#include "platform/SafeFile.hpp"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <utility>

#include "platform/LockedFiles.hpp"
#include "platform/SystemError.hpp"

namespace tolva {
namespace {

[[noreturn]] void refuseIrregular(std::filesystem::path const& path) {
  errno = EINVAL;
  throwFileError("The file is not a regular file", path);
}

int openForReading(int folder, std::filesystem::path const& path, Links links) {
  int const noFollow = links == Links::refuse ? O_NOFOLLOW : 0;
  struct stat status {};
  // Looked at first, because opening some devices sets them going. What is opened is looked at again.
  if (::fstatat(folder, path.c_str(), &status, noFollow != 0 ? AT_SYMLINK_NOFOLLOW : 0) == 0) {
    if (!S_ISREG(status.st_mode) && !S_ISLNK(status.st_mode)) refuseIrregular(path);
    int const parked = LockedFiles::takeParked({status.st_dev, status.st_ino});
    if (parked >= 0) return parked;
  }
  int descriptor = -1;
  do {
    descriptor = ::openat(folder, path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK | O_NOCTTY | noFollow);
  } while (descriptor < 0 && errno == EINTR);
  if (descriptor < 0) throwFileError("The file cannot be opened", path);
  return descriptor;
}

/// Calls `readSome(rest)` until `into` is full or the file ends.
template <class ReadSome>
std::size_t fill(std::span<std::uint8_t> into, std::filesystem::path const& path, ReadSome&& readSome) {
  std::size_t filled = 0;
  while (filled < into.size()) {
    ssize_t const got = readSome(into.subspan(filled), filled);
    if (got == 0) break;
    if (got > 0)
      filled += static_cast<std::size_t>(got);
    else if (errno != EINTR)
      throwFileError("The file cannot be read", path);
  }
  return filled;
}

}  // namespace

// Each begins as the whole, empty object, so that a refusal inside `open` closes the descriptor as every other end
// does.
SafeFile::SafeFile(std::filesystem::path const& path, Links links) : SafeFile() { open(AT_FDCWD, path, links); }

SafeFile::SafeFile(int folder, std::string const& name, Links links) : SafeFile() { open(folder, name, links); }

void SafeFile::open(int folder, std::filesystem::path const& path, Links links) {
  path_ = path;
  descriptor_ = openForReading(folder, path, links);
  opened_ = fileStatus(descriptor_, path_);
  if (!opened_.regular) refuseIrregular(path_);
}

SafeFile::~SafeFile() {
  if (descriptor_ >= 0) LockedFiles::close(descriptor_);
}

SafeFile::SafeFile(SafeFile&& other) noexcept
    : descriptor_(std::exchange(other.descriptor_, -1)), path_(std::move(other.path_)), opened_(other.opened_) {}

SafeFile& SafeFile::operator=(SafeFile&& other) noexcept {
  std::swap(descriptor_, other.descriptor_);
  std::swap(path_, other.path_);
  std::swap(opened_, other.opened_);
  return *this;
}

FileStatus SafeFile::status() const { return fileStatus(descriptor_, path_); }

std::size_t SafeFile::read(std::span<std::uint8_t> into) {
  return fill(into, path_, [&](auto rest, std::size_t) { return ::read(descriptor_, rest.data(), rest.size()); });
}

std::size_t SafeFile::readAt(std::span<std::uint8_t> into, std::uint64_t offset) const {
  return fill(into, path_, [&](auto rest, std::size_t filled) {
    return ::pread(descriptor_, rest.data(), rest.size(), static_cast<off_t>(offset + filled));
  });
}

Bytes SafeFile::readUpTo(std::size_t limit) {
  constexpr std::size_t step = 65'536;  // the size told at the opening may be wrong by now, so memory follows the bytes
  Bytes bytes;
  while (bytes.size() < limit) {
    std::size_t const had = bytes.size();
    std::size_t const asked = std::min(step, limit - had);
    bytes.resize(had + asked);
    std::size_t const got = read(std::span(bytes).subspan(had));
    bytes.resize(had + got);
    if (got < asked) break;
  }
  return bytes;
}

}  // namespace tolva
