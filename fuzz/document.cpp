// SPDX-License-Identifier: Apache-2.0
// Any bytes as a PDF document, decoded in this process: what comes out is what the host takes.

#include "fuzz/Expect.hpp"
#include "preview/helpers/DocumentDecoder.hpp"
#include "preview/helpers/HelperAnswer.hpp"

extern "C" int LLVMFuzzerTestOneInput(std::uint8_t const* data, std::size_t size) {
  auto const page = tolva::DocumentDecoder::firstPage({data, size});
  if (page) tolva::expect(tolva::HelperAnswer::decode(tolva::HelperAnswer::encode(*page)) == page, "the host takes it");
  return 0;
}
