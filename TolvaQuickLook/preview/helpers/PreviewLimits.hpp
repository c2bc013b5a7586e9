// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <cstdint>

namespace tolva {

/// A size in pixels.
struct PixelSize {
  std::uint32_t width = 0;
  std::uint32_t height = 0;
  bool operator==(PixelSize const&) const = default;
};

/// The bounds that the host and its helpers agree on. Each side holds the other to them.
struct PreviewLimits {
  PreviewLimits() = delete;

  static constexpr std::size_t mostPicture = 16 << 20;    // bytes of a picture that is looked at
  static constexpr std::size_t mostDocument = 256 << 10;  // and of a document
  static constexpr std::size_t mostPNG = 5 << 20;         // the largest thumbnail, not compressed at all, takes less
  static constexpr std::uint32_t thumbnailSide = 1024;    // pixels

  /// Whether a picture of this size is decoded at all, judged from what its header claims.
  static constexpr bool decodes(std::int64_t width, std::int64_t height) {
    return width >= 1 && height >= 1 && width <= 16'384 && height <= 16'384 && width * height <= 40'000'000;
  }

  /// Whether a page of this size, in points, is drawn.
  static bool draws(double width, double height) {
    return std::isfinite(width) && std::isfinite(height) && width > 0 && height > 0 && width <= 16'384 &&
           height <= 16'384;
  }

  /// How much a page that is drawn is made smaller; it is never enlarged.
  static double pageScale(double width, double height) {
    return std::min(1.0, thumbnailSide / std::max(width, height));
  }

  /// The size of the drawing.
  static PixelSize pageSize(double width, double height) {
    double const scale = pageScale(width, height);
    auto const whole = [&](double side) { return static_cast<std::uint32_t>(std::max(1.0, side * scale)); };
    return {whole(width), whole(height)};
  }
};

}  // namespace tolva
