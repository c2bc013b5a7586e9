// SPDX-License-Identifier: Apache-2.0
// tolva-pdf-helper: facts and a drawing of the first page of the document on standard input. See HelperAnswer.hpp.

#include <unistd.h>

#include "preview/helpers/Confinement.hpp"
#include "preview/helpers/DocumentDecoder.hpp"
#include "preview/helpers/HelperAnswer.hpp"
#include "preview/helpers/PreviewLimits.hpp"
#include "preview/helpers/StandardStreams.hpp"

int main() {
  using namespace tolva;
  constexpr char const* readable[] = {"/etc/fonts",
                                      "/usr/share/fonts",
                                      "/usr/local/share/fonts",
                                      "/usr/share/fontconfig",
                                      "/var/cache/fontconfig",
                                      "/usr/share/poppler",
                                      "/usr/share/color"};
  if (!confine({.readable = readable})) _exit(70);
  auto const document = readRequest(PreviewLimits::mostDocument);
  auto const page = document ? DocumentDecoder::firstPage(*document) : std::nullopt;
  // Nothing is put in order: the process is over, and what it did to the libraries' state is anyone's guess.
  _exit(page && writeAnswer(HelperAnswer::encode(*page)) ? 0 : 1);
}
