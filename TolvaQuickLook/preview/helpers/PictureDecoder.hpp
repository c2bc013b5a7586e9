// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdint>
#include <optional>
#include <span>

#include "platform/Bytes.hpp"

namespace tolva {

/// libvips, without the loaders that its authors call untrusted and without its plugins, whose formats it then lacks.
struct PictureDecoder {
  PictureDecoder() = delete;

  /// Loads all code that decoding takes: none is loaded later. Once in a process, before anything else here; `heif` is
  /// for pictures of `PictureFormat::heif`, which take a plugin. False when the library does not come up.
  static bool prepare(bool heif);

  /// The first picture in the bytes, upright and at most 1024 pixels a side, as a PNG. None for what is of no format of
  /// `PictureFormat`, is damaged, or announces a size that `PreviewLimits` does not decode.
  static std::optional<Bytes> thumbnail(std::span<std::uint8_t const> picture);
};

}  // namespace tolva
