// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <bit>
#include <cstdint>
#include <span>
#include <vector>

#include "platform/Bytes.hpp"

namespace tolva {

/// One page of grey, whose upper and lower half may differ. A pixel's samples are its grey, once or as three colours,
/// and zeros behind it.
struct TIFFPage {
  unsigned width = 0;
  unsigned height = 0;
  std::uint8_t above = 0;
  std::uint8_t below = 0;
  unsigned orientation = 1;
  bool floating = false;  // samples of 32 bits
  bool colours = false;
  unsigned zeros = 0;
};

/// The pages as a TIFF file, not compressed.
inline Bytes tiffOf(std::span<TIFFPage const> pages) {
  Bytes file = {'I', 'I', 42, 0};
  auto const put = [&](std::uint32_t number, int bytes) {
    for (int byte = 0; byte < bytes; ++byte) file.push_back(static_cast<std::uint8_t>(number >> 8 * byte));
  };
  for (TIFFPage const& page : pages) {
    std::uint32_t const sample = page.floating ? 4 : 1;
    std::uint32_t const greys = page.colours ? 3 : 1;
    std::uint32_t const samples = greys + page.zeros;
    std::uint32_t const size = page.width * page.height * samples * sample;
    auto const strip = static_cast<std::uint32_t>(file.size() + 4);
    put(strip + size, 4);  // where the directory is, behind the pixels
    for (unsigned row = 0; row < page.height; ++row) {
      std::uint8_t const grey = row < page.height / 2 ? page.above : page.below;
      std::uint32_t const value = page.floating ? std::bit_cast<std::uint32_t>(static_cast<float>(grey)) : grey;
      for (unsigned at = 0; at < page.width * samples; ++at) {
        put(at % samples < greys ? value : 0, static_cast<int>(sample));
      }
    }
    std::uint32_t const entries[][2] = {{256, page.width},
                                        {257, page.height},
                                        {258, 8 * sample},
                                        {259, 1},
                                        {262, page.colours ? 2u : 1u},
                                        {273, strip},
                                        {274, page.orientation},
                                        {277, samples},
                                        {278, page.height},
                                        {279, size},
                                        {339, page.floating ? 3u : 1u}};
    put(std::size(entries), 2);
    for (auto const& [tag, value] : entries) {
      put(tag, 2);
      put(4, 2);  // a number of 32 bits, and one of them
      put(1, 4);
      put(value, 4);
    }
  }
  put(0, 4);
  return file;
}

}  // namespace tolva
