// SPDX-License-Identifier: Apache-2.0
// tolva-image-helper [heif]: the picture on standard input as a small PNG on standard output. With "heif" it decodes
// pictures of that family as well. See HelperAnswer.hpp.

#include <unistd.h>

#include <string_view>

#include "preview/helpers/Confinement.hpp"
#include "preview/helpers/PictureDecoder.hpp"
#include "preview/helpers/PreviewLimits.hpp"
#include "preview/helpers/StandardStreams.hpp"

int main(int count, char** arguments) {
  using namespace tolva;
  bool const heif = count > 1 && arguments[1] == std::string_view("heif");
  if (!PictureDecoder::prepare(heif) || !confine({.threads = true})) _exit(70);
  auto const picture = readRequest(PreviewLimits::mostPicture);
  auto const png = picture ? PictureDecoder::thumbnail(*picture) : std::nullopt;
  // Nothing is put in order: the process is over, and what it did to the libraries' state is anyone's guess.
  _exit(png && writeAnswer(*png) ? 0 : 1);
}
