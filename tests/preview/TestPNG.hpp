// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <png.h>

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <optional>
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

/// How the pixels of a PNG are stored (https://www.w3.org/TR/png-3/#6Colour-values). Made with 16 x 8 of them.
struct PNGForm {
  int depth = 8;  // bits of a sample
  int type = PNG_COLOR_TYPE_RGB;
  int interlace = PNG_INTERLACE_NONE;
  std::vector<png_color> palette{};
  std::vector<png_byte> alphas{};           // of the palette's colours
  std::optional<png_color_16> invisible{};  // this very colour
};

/// A PNG of that form whose rows are all `row`.
inline Bytes pngOf(PNGForm const& form, Bytes row) {
  Bytes png;
  png_struct* writer = png_create_write_struct(PNG_LIBPNG_VER_STRING, nullptr, nullptr, nullptr);
  png_info* info = png_create_info_struct(writer);
  auto const append = [](png_struct* to, png_byte* bytes, std::size_t size) {
    static_cast<Bytes*>(png_get_io_ptr(to))
        ->insert(static_cast<Bytes*>(png_get_io_ptr(to))->end(), bytes, bytes + size);
  };
  png_set_write_fn(writer, &png, append, nullptr);
  png_set_IHDR(writer, info, 16, 8, form.depth, form.type, form.interlace, PNG_COMPRESSION_TYPE_DEFAULT,
               PNG_FILTER_TYPE_DEFAULT);
  if (!form.palette.empty()) png_set_PLTE(writer, info, form.palette.data(), static_cast<int>(form.palette.size()));
  if (!form.alphas.empty() || form.invisible) {
    png_set_tRNS(writer, info, form.alphas.empty() ? nullptr : form.alphas.data(), static_cast<int>(form.alphas.size()),
                 form.invisible ? &*form.invisible : nullptr);
  }
  png_write_info(writer, info);
  if (row.size() != png_get_rowbytes(writer, info)) std::abort();
  std::vector<png_byte*> rows(8, row.data());
  png_write_image(writer, rows.data());
  png_write_end(writer, nullptr);
  png_destroy_write_struct(&writer, &info);
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
