// SPDX-License-Identifier: Apache-2.0
#include "preview/helpers/HelperAnswer.hpp"

#include <algorithm>
#include <bit>
#include <limits>
#include <string_view>

namespace tolva {
namespace {

using std::string_view_literals::operator""sv;

constexpr std::string_view pageMagic = "tolvapdf";

bool startsWith(std::span<std::uint8_t const> bytes, std::string_view text) {
  return bytes.size() >= text.size() &&
         std::ranges::equal(bytes.first(text.size()), text,
                            [](std::uint8_t byte, char c) { return byte == static_cast<std::uint8_t>(c); });
}

// PNG: https://www.w3.org/TR/png-3/ -----------------------------------------------------------------

std::uint32_t bigEndian(std::span<std::uint8_t const> bytes) {
  std::uint32_t number = 0;
  for (std::uint8_t const byte : bytes.first(4)) number = number << 8 | byte;
  return number;
}

constexpr std::size_t aroundData = 12;  // length, type and checksum of a chunk

/// What an IHDR says, where that is a picture that may be shown.
std::optional<PixelSize> headerSize(std::span<std::uint8_t const> data) {
  constexpr std::string_view eightBitsOfGreyOrColour[] = {"\x08\x00\0\0\0"sv, "\x08\x02\0\0\0"sv, "\x08\x04\0\0\0"sv,
                                                          "\x08\x06\0\0\0"sv};
  if (data.size() != 13) return {};
  PixelSize const size{bigEndian(data), bigEndian(data.subspan(4))};
  bool const fits = size.width >= 1 && size.height >= 1 && size.width <= PreviewLimits::thumbnailSide &&
                    size.height <= PreviewLimits::thumbnailSide;
  bool const plain = std::ranges::any_of(eightBitsOfGreyOrColour,
                                         [&](std::string_view form) { return startsWith(data.subspan(8), form); });
  return fits && plain ? std::optional(size) : std::nullopt;
}

// Numbers -----------------------------------------------------------------------------------------

void append(Bytes& bytes, std::uint64_t number) {
  for (int shift = 0; shift < 64; shift += 8) bytes.push_back(static_cast<std::uint8_t>(number >> shift));
}

std::uint64_t littleEndian(std::span<std::uint8_t const> bytes) {
  std::uint64_t number = 0;
  for (std::size_t i = 8; i-- > 0;) number = number << 8 | bytes[i];
  return number;
}

/// Of a document without a page to show there is one way to say it.
bool isBare(PDFFirstPage const& page) { return page.pageCount == 0 && page.width == 0 && page.height == 0; }

}  // namespace

std::optional<PixelSize> HelperAnswer::thumbnailSize(std::span<std::uint8_t const> png) {
  constexpr std::string_view signature = "\x89PNG\r\n\x1a\n";
  constexpr std::string_view known[] = {"IDAT", "cHRM", "gAMA", "pHYs", "sRGB"};
  if (png.size() > PreviewLimits::mostPNG || !startsWith(png, signature)) return {};
  png = png.subspan(signature.size());

  std::optional<PixelSize> size;
  bool hasPixels = false;
  while (png.size() >= aroundData) {
    std::size_t const length = bigEndian(png);
    if (length > png.size() - aroundData) return {};
    auto const type = png.subspan(4, 4);
    auto const data = png.subspan(8, length);
    png = png.subspan(aroundData + length);
    if (!size) {
      if (!startsWith(type, "IHDR") || !(size = headerSize(data))) return {};
    } else if (startsWith(type, "IEND")) {
      return length == 0 && png.empty() && hasPixels ? size : std::nullopt;
    } else if (std::ranges::none_of(known, [&](std::string_view name) { return startsWith(type, name); })) {
      return {};
    }
    hasPixels = hasPixels || startsWith(type, "IDAT");
  }
  return {};
}

Bytes HelperAnswer::encode(PDFFirstPage const& page) {
  Bytes answer(pageMagic.begin(), pageMagic.end());
  answer.push_back(page.locked ? 1 : 0);
  append(answer, static_cast<std::uint64_t>(page.pageCount));
  append(answer, std::bit_cast<std::uint64_t>(page.width));
  append(answer, std::bit_cast<std::uint64_t>(page.height));
  if (page.png) answer.insert(answer.end(), page.png->begin(), page.png->end());
  return answer;
}

std::optional<PDFFirstPage> HelperAnswer::decode(std::span<std::uint8_t const> answer) {
  if (answer.size() < pageHeader || !startsWith(answer, pageMagic) || answer[8] > 1) return {};
  std::uint64_t const pages = littleEndian(answer.subspan(9));
  if (pages > std::numeric_limits<std::int32_t>::max()) return {};
  PDFFirstPage page{.locked = answer[8] == 1,
                    .pageCount = static_cast<std::int64_t>(pages),
                    .width = std::bit_cast<double>(littleEndian(answer.subspan(17))),
                    .height = std::bit_cast<double>(littleEndian(answer.subspan(25)))};
  auto const png = answer.subspan(pageHeader);
  auto const only = [&](bool right) { return right ? std::optional(page) : std::nullopt; };
  if (page.locked || page.pageCount == 0) return only(isBare(page) && png.empty());
  if (!PreviewLimits::draws(page.width, page.height)) return only(png.empty());
  if (thumbnailSize(png) != PreviewLimits::pageSize(page.width, page.height)) return {};
  page.png.emplace(png.begin(), png.end());
  return page;
}

}  // namespace tolva
