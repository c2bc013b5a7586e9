// SPDX-License-Identifier: Apache-2.0
#include "extension/ReplyPicture.hpp"

#include <cairo.h>
#include <pango/pangocairo.h>

#include <algorithm>
#include <cmath>
#include <memory>
#include <stdexcept>
#include <string>
#include <string_view>

#include "platform/Graphemes.hpp"
#include "platform/UTF8.hpp"

namespace tolva {
namespace {

constexpr int mostPixels = 4096;
constexpr double margin = 16;  // points
constexpr char const* face = "Monospace 10";

// More than fits, so that a text of megabytes costs no more than one that fills the picture.
constexpr std::size_t mostLines = 60;
constexpr std::size_t mostCharacters = 150;  // of a line
constexpr std::size_t mostBytes = 4096;      // of a line, since one character can have any number of marks

template <class Object, void (*release)(Object*)>
struct Release {
  void operator()(Object* object) const { release(object); }
};

using Surface = std::unique_ptr<cairo_surface_t, Release<cairo_surface_t, cairo_surface_destroy>>;
using Context = std::unique_ptr<cairo_t, Release<cairo_t, cairo_destroy>>;
using Font = std::unique_ptr<PangoFontDescription, Release<PangoFontDescription, pango_font_description_free>>;

struct Unreference {
  void operator()(PangoLayout* layout) const { g_object_unref(layout); }
};
using Layout = std::unique_ptr<PangoLayout, Unreference>;

void check(cairo_status_t status) {
  if (status != CAIRO_STATUS_SUCCESS) throw std::runtime_error(cairo_status_to_string(status));
}

/// One line as it can be drawn: no longer than is seen, control characters shown as replaced.
std::string drawable(std::string_view line) {
  std::string shown;
  for (char const c : repairUTF8(firstGraphemes(line.substr(0, mostBytes), mostCharacters))) {
    bool const isControl = static_cast<unsigned char>(c) < 0x20 || c == 0x7F;
    shown += isControl ? std::string("\uFFFD") : std::string(1, c);
  }
  return shown;
}

std::string drawableText(QLPreviewReply const& reply) {
  Bytes const bytes = reply.dataCreationBlock();
  std::string_view rest(reinterpret_cast<char const*>(bytes.data()), bytes.size());
  std::string text;
  for (std::size_t line = 0; line < mostLines && !rest.empty(); ++line) {
    std::size_t const end = std::min(rest.find('\n'), rest.size());
    text += drawable(rest.substr(0, end)) + "\n";
    rest.remove_prefix(std::min(end + 1, rest.size()));
  }
  return text;
}

/// A picture of nothing but boxes tells nobody anything; file managers would keep it.
void requireGlyphs(PangoLayout* layout, std::string const& text) {
  auto const visible = std::ranges::count_if(text, [](char c) { return c != ' ' && c != '\n' && (c & 0xC0) != 0x80; });
  if (pango_layout_get_unknown_glyphs_count(layout) >= visible) throw std::runtime_error("no font shows the text");
}

/// Draws in points; the context scales them to pixels.
void drawText(cairo_t* context, ContentSize size, std::string const& text) {
  cairo_set_source_rgb(context, 1, 1, 1);
  cairo_paint(context);
  cairo_rectangle(context, margin, margin, size.width - 2 * margin, size.height - 2 * margin);
  cairo_clip(context);
  Layout const layout(pango_cairo_create_layout(context));
  pango_cairo_context_set_resolution(pango_layout_get_context(layout.get()), 72);
  pango_layout_set_font_description(layout.get(), Font(pango_font_description_from_string(face)).get());
  pango_layout_set_text(layout.get(), text.data(), static_cast<int>(text.size()));
  requireGlyphs(layout.get(), text);
  cairo_set_source_rgb(context, 0, 0, 0);
  cairo_move_to(context, margin, margin);
  pango_cairo_show_layout(context, layout.get());
}

cairo_status_t append(void* png, unsigned char const* data, unsigned int length) {
  auto& bytes = *static_cast<Bytes*>(png);
  bytes.insert(bytes.end(), data, data + length);
  return CAIRO_STATUS_SUCCESS;
}

}  // namespace

Bytes drawReply(QLPreviewReply const& reply, int size) {
  ContentSize const points = reply.contentSize;
  double const scale = std::min(size, mostPixels) / std::max(points.width, points.height);
  auto const pixels = [&](double length) { return std::max(1, static_cast<int>(std::lround(length * scale))); };
  Surface const surface(cairo_image_surface_create(CAIRO_FORMAT_RGB24, pixels(points.width), pixels(points.height)));
  Context const context(cairo_create(surface.get()));
  cairo_scale(context.get(), scale, scale);
  drawText(context.get(), points, drawableText(reply));
  check(cairo_status(context.get()));
  Bytes png;
  check(cairo_surface_write_to_png_stream(surface.get(), append, &png));
  return png;
}

}  // namespace tolva
