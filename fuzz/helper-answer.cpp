// SPDX-License-Identifier: Apache-2.0
// Any bytes as the answer of a helper that is in the hands of its input: what the host takes agrees with itself.

#include <algorithm>
#include <cmath>

#include "fuzz/Expect.hpp"
#include "preview/helpers/HelperAnswer.hpp"

extern "C" int LLVMFuzzerTestOneInput(std::uint8_t const* data, std::size_t size) {
  using tolva::expect;
  std::span const bytes(data, size);
  if (auto const picture = tolva::HelperAnswer::thumbnailSize(bytes)) {
    expect(picture->width >= 1 && picture->width <= 1024 && picture->height >= 1 && picture->height <= 1024, "it fits");
    expect(std::equal(bytes.end() - 8, bytes.end() - 4, "IEND"), "nothing is behind its end");
  }
  if (auto const page = tolva::HelperAnswer::decode(bytes)) {
    expect(page->pageCount >= 0, "there are no fewer pages than none");
    expect(!page->locked || page->pageCount == 0, "nothing is known of a locked document");
    expect(!page->png || (page->width > 0 && page->width <= 16'384 && page->height > 0 && page->height <= 16'384),
           "only pages within the limits are drawn");
    tolva::Bytes const again = tolva::HelperAnswer::encode(*page);
    // All numbers but zero have one form.
    bool const zero = page->width == 0 || page->height == 0;
    expect(zero || std::ranges::equal(again, bytes), "an answer that is taken is written in one way");
  }
  return 0;
}
