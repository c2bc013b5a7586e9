// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <png.h>

#include <cstdlib>
#include <stdexcept>
#include <vector>

#include "platform/Bytes.hpp"

namespace tolva {

/// A grey picture of any size, as a PNG.
inline Bytes greyPNG(unsigned width, unsigned height) {
  std::vector<std::uint8_t> const pixels(std::size_t{width} * height, 0x80);
  png_image header{};
  header.version = PNG_IMAGE_VERSION;
  header.width = width;
  header.height = height;
  header.format = PNG_FORMAT_GRAY;
  png_alloc_size_t size = PNG_IMAGE_PNG_SIZE_MAX(header);
  Bytes png(size);
  if (png_image_write_to_memory(&header, png.data(), &size, 0, pixels.data(), 0, nullptr) == 0) std::abort();
  png.resize(size);
  return png;
}

/// The pixels of a PNG, whatever its own form is.
struct TestPicture {
  unsigned width = 0;
  unsigned height = 0;
  std::vector<std::uint8_t> pixels;  // red, green, blue

  explicit TestPicture(Bytes const& png) {
    png_image header{};
    header.version = PNG_IMAGE_VERSION;
    if (png_image_begin_read_from_memory(&header, png.data(), png.size()) == 0)
      throw std::runtime_error(header.message);
    header.format = PNG_FORMAT_RGB;
    width = header.width;
    height = header.height;
    pixels.resize(PNG_IMAGE_SIZE(header));
    png_color const white{255, 255, 255};
    if (png_image_finish_read(&header, &white, pixels.data(), 0, nullptr) == 0)
      throw std::runtime_error(header.message);
  }

  /// 0xRRGGBB at a place counted from the upper left corner.
  unsigned at(unsigned x, unsigned y) const {
    auto const* const pixel = &pixels.at(3 * (std::size_t{y} * width + x));
    return static_cast<unsigned>(pixel[0] << 16 | pixel[1] << 8 | pixel[2]);
  }
};

}  // namespace tolva
