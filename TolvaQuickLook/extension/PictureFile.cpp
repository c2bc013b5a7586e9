// SPDX-License-Identifier: Apache-2.0
#include "extension/PictureFile.hpp"

#include <algorithm>
#include <array>
#include <cerrno>

#include "platform/AtomicFile.hpp"
#include "platform/SafeFile.hpp"
#include "platform/SystemError.hpp"

namespace tolva {
namespace {

constexpr std::array<std::uint8_t, 8> pngSignature{0x89, 'P', 'N', 'G', '\r', '\n', 0x1A, '\n'};

bool isEmptyOrPicture(std::filesystem::path const& path) {
  Bytes const begin = SafeFile(path, Links::refuse).readUpTo(pngSignature.size());
  return begin.empty() || std::ranges::equal(begin, pngSignature);
}

}  // namespace

void requireReplaceable(std::filesystem::path const& picture) {
  std::filesystem::file_status const there = std::filesystem::symlink_status(picture);
  if (!std::filesystem::exists(there) || std::filesystem::is_symlink(there)) return;
  if (std::filesystem::is_regular_file(there) && isEmptyOrPicture(picture)) return;
  errno = EEXIST;
  throwFileError("The output is there already and no picture", picture);
}

void writePicture(std::filesystem::path const& picture, Bytes const& png) {
  requireReplaceable(picture);
  AtomicFile file(picture);
  file.write(png);
  file.publish(Publication::replace);
}

}  // namespace tolva
