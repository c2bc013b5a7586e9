// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>

#include "platform/Bytes.hpp"
#include "preview/PDFFirstPage.hpp"
#include "preview/helpers/PreviewLimits.hpp"

namespace tolva {

/// What the helpers write to standard output, once, before they end with status 0.
///
/// Each gets the bytes of the value on standard input, up to its end. `tolva-image-helper` answers with a PNG and
/// nothing else. `tolva-pdf-helper` answers with these fields, numbers in little-endian order:
///
///     8 bytes   "tolvapdf"
///     1 byte    0, or 1 for a locked document; then all that follows is 0
///     8 bytes   the number of pages, 0 to 2,147,483,647; for 0 all that follows is 0
///     16 bytes  width and height of the first page's media box in points, each an IEEE 754 double
///     the rest  the PNG of that page, of the size `PreviewLimits::pageSize`; nothing for a page that is not drawn
///
/// Every other end, and every other answer, means that the bytes could not be decoded. A helper may be in the hands of
/// the bytes that it decoded, so the host believes nothing that it has not checked.
struct HelperAnswer {
  HelperAnswer() = delete;

  static constexpr std::size_t pageHeader = 33;
  static constexpr std::size_t mostBytes = pageHeader + PreviewLimits::mostPNG;

  /// The size of a PNG that may be shown: whole chunks of the kinds that our encoders write and no others, 8 bits a
  /// sample, at most 1024 pixels a side, nothing behind its end. None for all else. The pixels are not decoded.
  static std::optional<PixelSize> thumbnailSize(std::span<std::uint8_t const> png);

  static Bytes encode(PDFFirstPage const& page);
  static std::optional<PDFFirstPage> decode(std::span<std::uint8_t const> answer);
};

}  // namespace tolva
