// SPDX-License-Identifier: Apache-2.0
// Any bytes as a picture, decoded in this process: what comes out is what the host takes.

#include "fuzz/Expect.hpp"
#include "preview/helpers/HelperAnswer.hpp"
#include "preview/helpers/PictureDecoder.hpp"
#include "preview/helpers/PictureFormat.hpp"

extern "C" int LLVMFuzzerTestOneInput(std::uint8_t const* data, std::size_t size) {
  static bool const prepared = tolva::PictureDecoder::prepare(false);
  tolva::expect(prepared, "libvips comes up");
  std::span const bytes(data, size);
  auto const png = tolva::PictureDecoder::thumbnail(bytes);
  if (!png) return 0;
  tolva::expect(tolva::pictureFormat(bytes).has_value(), "only known formats are decoded");
  tolva::expect(tolva::HelperAnswer::thumbnailSize(*png).has_value(), "the host takes the thumbnail");
  return 0;
}
