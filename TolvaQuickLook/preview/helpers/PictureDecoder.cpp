// SPDX-License-Identifier: Apache-2.0
#include "preview/helpers/PictureDecoder.hpp"

#include <gmodule.h>
#include <vips/vips.h>

#include <algorithm>
#include <memory>
#include <utility>

#include "preview/helpers/PictureFormat.hpp"
#include "preview/helpers/PreviewLimits.hpp"

namespace tolva {
namespace {

struct Unreference {
  void operator()(VipsImage* image) const { g_object_unref(image); }
};
using Image = std::unique_ptr<VipsImage, Unreference>;

/// The first picture, and never a smaller one that the file has beside it. The header alone is read now: pixels are
/// decoded when they are asked for, and the first that cannot be ends it.
Image opened(std::span<std::uint8_t const> picture) {
  return Image(vips_image_new_from_buffer(picture.data(), picture.size(), "", "access", VIPS_ACCESS_SEQUENTIAL,
                                          "fail_on", VIPS_FAIL_ON_ERROR, nullptr));
}

constexpr int side = PreviewLimits::thumbnailSide;

/// A JPEG picture can be decoded at a half, a quarter or an eighth of its size, for that much less work. libvips by
/// itself leaves more to be shrunk than the eye can tell. It drops what is left of a side that the factor does not
/// divide, which is less than a pixel of the thumbnail, and ends the process where nothing else is left.
int factorAtDecoding(VipsImage* header) {
  auto const [shorter, longer] = std::minmax({vips_image_get_width(header), vips_image_get_height(header)});
  int factor = 1;
  while (factor < 8 && longer >= 2 * factor * side && shorter >= 2 * factor) factor *= 2;
  return factor;
}

Image decodedJPEG(void* bytes, std::size_t size, int factor) {
  VipsImage* decoded = nullptr;
  bool const made = vips_jpegload_buffer(bytes, size, &decoded, "shrink", factor, "access", VIPS_ACCESS_SEQUENTIAL,
                                         "fail_on", VIPS_FAIL_ON_ERROR, nullptr) == 0;
  return Image(made ? decoded : nullptr);
}

int coloursOf(VipsImage* picture) {
  switch (vips_image_get_interpretation(picture)) {
    case VIPS_INTERPRETATION_B_W:
    case VIPS_INTERPRETATION_GREY16:
      return 1;
    case VIPS_INTERPRETATION_CMYK:
      return 4;
    default:
      return 3;
  }
}

/// A TIFF may have any number of samples behind its colours. A single one is transparency; of several libvips would
/// take one for that, whatever they are, and does not tell.
Image withoutStrangeSamples(Image picture) {
  int const colours = coloursOf(picture.get());
  if (vips_image_get_bands(picture.get()) <= colours + 1) return picture;
  VipsImage* coloured = nullptr;
  bool const made = vips_extract_band(picture.get(), &coloured, 0, "n", colours, nullptr) == 0;
  return Image(made ? coloured : nullptr);
}

Image shrunk(Image const& picture) {
  VipsImage* small = nullptr;
  bool const made = picture && vips_thumbnail_image(picture.get(), &small, side, "height", side, "size", VIPS_SIZE_DOWN,
                                                    nullptr) == 0;
  return Image(made ? small : nullptr);
}

/// For formats that are scaled as they are decoded. Of TIFF and HEIF this would take another picture of the file: a
/// later page of half the size, or the thumbnail that came with it.
Image shrunkAtDecoding(void* bytes, std::size_t size) {
  VipsImage* small = nullptr;
  bool const made = vips_thumbnail_buffer(bytes, size, &small, side, "height", side, "size", VIPS_SIZE_DOWN, "fail_on",
                                          VIPS_FAIL_ON_ERROR, nullptr) == 0;
  return Image(made ? small : nullptr);
}

Image shrunk(std::span<std::uint8_t const> bytes, PictureFormat format, Image picture) {
  void* const start = const_cast<std::uint8_t*>(bytes.data());  // libvips only reads them
  switch (format) {
    case PictureFormat::jpeg:
      return shrunk(decodedJPEG(start, bytes.size(), factorAtDecoding(picture.get())));
    case PictureFormat::webp:
      return shrunkAtDecoding(start, bytes.size());
    default:
      return shrunk(withoutStrangeSamples(std::move(picture)));
  }
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
  vips_concurrency_set(1);  // several finish now and then a picture of which one could not decode a part
  if (!heif) return true;
  constexpr char const* plugin = TOLVA_VIPS_MODULES "/vips-heif.so";
  if (!g_file_test(plugin, G_FILE_TEST_EXISTS)) return true;  // built into libvips, or not there at all
  return g_module_open(plugin, G_MODULE_BIND_LOCAL) != nullptr;
}

std::optional<Bytes> PictureDecoder::thumbnail(std::span<std::uint8_t const> picture) {
  auto const format = pictureFormat(picture);
  if (!format) return {};
  Image whole = opened(picture);
  if (!whole || !PreviewLimits::decodes(vips_image_get_width(whole.get()), vips_image_get_height(whole.get()))) {
    return {};
  }
  Image small = shrunk(picture, *format, std::move(whole));
  if (small) small = eightBits(std::move(small));
  void* png = nullptr;
  std::size_t size = 0;
  if (!small || vips_pngsave_buffer(small.get(), &png, &size, "strip", TRUE, nullptr) != 0) return {};
  std::unique_ptr<void, void (*)(void*)> const owned(png, g_free);
  auto const* const bytes = static_cast<std::uint8_t const*>(png);
  return Bytes(bytes, bytes + size);
}

}  // namespace tolva
