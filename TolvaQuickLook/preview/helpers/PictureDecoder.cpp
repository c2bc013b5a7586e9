// SPDX-License-Identifier: Apache-2.0
#include "preview/helpers/PictureDecoder.hpp"

#include <gmodule.h>
#include <vips/vips.h>

#include <memory>

#include "preview/helpers/PictureFormat.hpp"
#include "preview/helpers/PreviewLimits.hpp"

namespace tolva {
namespace {

struct Unreference {
  void operator()(VipsImage* image) const { g_object_unref(image); }
};
using Image = std::unique_ptr<VipsImage, Unreference>;

/// Judged from the header: no pixel is decoded.
bool announcesDecodableSize(std::span<std::uint8_t const> picture) {
  Image const header(
      vips_image_new_from_buffer(picture.data(), picture.size(), "", "access", VIPS_ACCESS_SEQUENTIAL, nullptr));
  return header && PreviewLimits::decodes(vips_image_get_width(header.get()), vips_image_get_height(header.get()));
}

Image shrunk(std::span<std::uint8_t const> picture) {
  int const side = PreviewLimits::thumbnailSide;
  VipsImage* small = nullptr;
  // It takes the bytes as writable and only reads them.
  if (vips_thumbnail_buffer(const_cast<std::uint8_t*>(picture.data()), picture.size(), &small, side, "height", side,
                            "size", VIPS_SIZE_DOWN, "fail_on", VIPS_FAIL_ON_ERROR, nullptr) != 0) {
    return {};
  }
  return Image(small);
}

/// Eight bits a sample, whatever the picture had.
Image eightBits(Image image) {
  if (vips_image_get_format(image.get()) == VIPS_FORMAT_UCHAR) return image;
  VipsImage* converted = nullptr;
  VipsInterpretation const space =
      vips_image_get_bands(image.get()) < 3 ? VIPS_INTERPRETATION_B_W : VIPS_INTERPRETATION_sRGB;
  if (vips_colourspace(image.get(), &converted, space, nullptr) != 0) return {};
  return Image(converted);
}

}  // namespace

bool PictureDecoder::prepare(bool heif) {
  g_setenv("VIPSHOME", "/nonexistent", TRUE);   // where it looks for plugins
  g_setenv("VIPS_DISC_THRESHOLD", "1g", TRUE);  // beyond it pictures go to a file
  g_setenv("VIPS_NOVECTOR", "1", TRUE);         // it would write machine code for each picture
  // Where a warning is to go is asked with calls that end this process.
  g_log_set_writer_func([](GLogLevelFlags, GLogField const*, gsize, gpointer) { return G_LOG_WRITER_HANDLED; }, nullptr,
                        nullptr);
  if (vips_init("tolva-image-helper") != 0) return false;
  vips_block_untrusted_set(TRUE);
  vips_cache_set_max(0);
  vips_concurrency_set(2);
  if (!heif) return true;
  return g_module_open(TOLVA_VIPS_MODULES "/vips-heif.so", G_MODULE_BIND_LOCAL) != nullptr;
}

std::optional<Bytes> PictureDecoder::thumbnail(std::span<std::uint8_t const> picture) {
  if (!pictureFormat(picture) || !announcesDecodableSize(picture)) return {};
  Image small = shrunk(picture);
  if (small) small = eightBits(std::move(small));
  void* png = nullptr;
  std::size_t size = 0;
  if (!small || vips_pngsave_buffer(small.get(), &png, &size, "strip", TRUE, nullptr) != 0) return {};
  std::unique_ptr<void, void (*)(void*)> const owned(png, g_free);
  auto const* const bytes = static_cast<std::uint8_t const*>(png);
  return Bytes(bytes, bytes + size);
}

}  // namespace tolva
