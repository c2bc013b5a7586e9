// SPDX-License-Identifier: Apache-2.0
#include "preview/helpers/PictureFormat.hpp"

#include <algorithm>
#include <string_view>

namespace tolva {
namespace {

using namespace std::string_view_literals;

struct Magic {
  std::size_t offset;
  std::string_view bytes;
  PictureFormat format;
};

constexpr Magic magics[] = {
    {0, "\x89PNG\r\n\x1a\n"sv, PictureFormat::png},
    {0, "\xff\xd8\xff"sv, PictureFormat::jpeg},
    {0, "GIF87a"sv, PictureFormat::gif},
    {0, "GIF89a"sv, PictureFormat::gif},
    {0, "II*\0"sv, PictureFormat::tiff},
    {0, "MM\0*"sv, PictureFormat::tiff},
    {8, "WEBP"sv, PictureFormat::webp},  // behind "RIFF" and a length
    // The brands of ISO/IEC 23008-12 and of AVIF, behind the length of the box and "ftyp": pictures, then sequences. No
    // "avis", a sequence of AVIF, which libvips does not take for its own.
    {8, "heic"sv, PictureFormat::heif},
    {8, "heix"sv, PictureFormat::heif},
    {8, "mif1"sv, PictureFormat::heif},
    {8, "avif"sv, PictureFormat::heif},
    {8, "heim"sv, PictureFormat::heif},
    {8, "heis"sv, PictureFormat::heif},
    {8, "hevc"sv, PictureFormat::heif},
    {8, "hevm"sv, PictureFormat::heif},
    {8, "hevs"sv, PictureFormat::heif},
    {8, "msf1"sv, PictureFormat::heif},
};

bool holds(std::span<std::uint8_t const> bytes, std::size_t offset, std::string_view wanted) {
  return bytes.size() >= offset + wanted.size() &&
         std::ranges::equal(bytes.subspan(offset, wanted.size()), wanted,
                            [](std::uint8_t byte, char c) { return byte == static_cast<std::uint8_t>(c); });
}

bool hasContainer(std::span<std::uint8_t const> bytes, PictureFormat format) {
  if (format == PictureFormat::webp) return holds(bytes, 0, "RIFF");
  if (format == PictureFormat::heif) return holds(bytes, 4, "ftyp");
  return true;
}

}  // namespace

std::optional<PictureFormat> pictureFormat(std::span<std::uint8_t const> bytes) {
  for (Magic const& magic : magics) {
    if (holds(bytes, magic.offset, magic.bytes) && hasContainer(bytes, magic.format)) return magic.format;
  }
  return {};
}

}  // namespace tolva
