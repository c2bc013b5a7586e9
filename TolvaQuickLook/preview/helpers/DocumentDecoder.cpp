// SPDX-License-Identifier: Apache-2.0
#include "preview/helpers/DocumentDecoder.hpp"

#include <png.h>
#include <poppler-document.h>
#include <poppler-global.h>
#include <poppler-image.h>
#include <poppler-page-renderer.h>
#include <poppler-page.h>

#include <algorithm>
#include <cmath>
#include <memory>
#include <string>
#include <utility>

#include "preview/helpers/PreviewLimits.hpp"

namespace tolva {
namespace {

// Where the page lies -----------------------------------------------------------------------------
//
// The drawing shows the media box. poppler draws the crop box, turned as the page says, so that is laid where it
// belongs on a white canvas of the media box's size; a turned page is made small enough to fit there.

struct Placement {
  double scale = 0;  // pixels a point
  long x = 0;        // of the drawn crop box on the canvas
  long y = 0;
};

Placement placement(poppler::page const& page, PixelSize canvas) {
  poppler::rectf const media = page.page_rect(poppler::media_box);
  poppler::rectf const crop = page.page_rect(poppler::crop_box);
  // What the crop box leaves of the media box. The axis points upwards, so that `bottom` is the upper edge.
  double const left = crop.x() - media.x();
  double const right = media.right() - crop.right();
  double const above = media.bottom() - crop.bottom();
  double const below = crop.y() - media.y();

  double width = media.width();
  double height = media.height();
  double x = left;
  double y = above;
  switch (page.orientation()) {
    case poppler::page::portrait:
      break;
    case poppler::page::landscape:  // turned clockwise
      std::swap(width, height);
      x = below;
      y = left;
      break;
    case poppler::page::upside_down:
      x = right;
      y = below;
      break;
    case poppler::page::seascape:
      std::swap(width, height);
      x = above;
      y = right;
      break;
  }
  double const scale =
      std::min({canvas.width / width, canvas.height / height, PreviewLimits::pageScale(width, height)});
  return {scale, std::lround((canvas.width - width * scale) / 2 + x * scale),
          std::lround((canvas.height - height * scale) / 2 + y * scale)};
}

// Drawing -----------------------------------------------------------------------------------------

struct Canvas {
  PixelSize size;
  Bytes pixels;  // red, green, blue; rows from above

  explicit Canvas(PixelSize size) : size(size), pixels(std::size_t{3} * size.width * size.height, 0xff) {}

  /// Lays `image` with its upper left corner at (x, y); what falls beside the canvas is lost.
  void lay(poppler::image const& image, long x, long y) {
    long const from = std::max(0L, -x);
    long const to = std::min<long>(image.width(), static_cast<long>(size.width) - x);
    if (from >= to) return;
    for (long row = std::max(0L, -y); row < std::min<long>(image.height(), static_cast<long>(size.height) - y); ++row) {
      char const* const source = image.const_data() + row * image.bytes_per_row();
      std::copy(source + 3 * from, source + 3 * to,
                pixels.begin() + 3 * ((y + row) * static_cast<long>(size.width) + x + from));
    }
  }

  std::optional<Bytes> png() const {
    png_image header{};
    header.version = PNG_IMAGE_VERSION;
    header.width = size.width;
    header.height = size.height;
    header.format = PNG_FORMAT_RGB;
    png_alloc_size_t most = PNG_IMAGE_PNG_SIZE_MAX(header);
    Bytes encoded(most);
    if (png_image_write_to_memory(&header, encoded.data(), &most, 0, pixels.data(), 0, nullptr) == 0) return {};
    encoded.resize(most);
    return encoded;
  }
};

std::optional<Bytes> drawn(poppler::page const& page, PixelSize size) {
  Placement const place = placement(page, size);
  poppler::page_renderer renderer;
  renderer.set_paper_color(0xffffffff);
  renderer.set_render_hint(poppler::page_renderer::antialiasing);
  renderer.set_render_hint(poppler::page_renderer::text_antialiasing);
  renderer.set_image_format(poppler::image::format_rgb24);
  poppler::image const image = renderer.render_page(&page, 72 * place.scale, 72 * place.scale);
  if (!image.is_valid() || image.format() != poppler::image::format_rgb24) return {};
  Canvas canvas(size);
  canvas.lay(image, place.x, place.y);
  return canvas.png();
}

}  // namespace

std::optional<PDFFirstPage> DocumentDecoder::firstPage(std::span<std::uint8_t const> bytes) {
  if (bytes.size() > PreviewLimits::mostDocument) return {};
  poppler::set_debug_error_function([](std::string const&, void*) {}, nullptr);
  std::unique_ptr<poppler::document> const document(poppler::document::load_from_raw_data(
      reinterpret_cast<char const*>(bytes.data()), static_cast<int>(bytes.size())));
  if (!document) return {};
  if (document->is_locked()) return PDFFirstPage{.locked = true};  // first: anything else crashes on such a document
  PDFFirstPage facts{.pageCount = std::max(document->pages(), 0)};
  if (facts.pageCount == 0) return facts;
  std::unique_ptr<poppler::page> const page(document->create_page(0));
  if (!page) return {};
  poppler::rectf const media = page->page_rect(poppler::media_box);
  facts.width = media.width();
  facts.height = media.height();
  if (!PreviewLimits::draws(facts.width, facts.height)) return facts;
  facts.png = drawn(*page, PreviewLimits::pageSize(facts.width, facts.height));
  if (!facts.png) return {};
  return facts;
}

}  // namespace tolva
