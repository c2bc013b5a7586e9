// SPDX-License-Identifier: Apache-2.0
// `thumbnail HELPERS FILE`: the thumbnail of a picture, as a program with an interface gets it. Prints its size.
#include <cstdio>
#include <fstream>
#include <iterator>

#include "preview/PreviewHelpers.hpp"
#include "preview/helpers/HelperAnswer.hpp"

int main(int count, char** arguments) {
  if (count != 3) return 2;
  std::ifstream file(arguments[2], std::ios::binary);
  tolva::Bytes const picture{std::istreambuf_iterator<char>(file), {}};
  auto const png = tolva::PreviewHelpers(arguments[1]).thumbnail(picture, std::stop_token());
  if (!png) return 1;
  auto const size = tolva::HelperAnswer::thumbnailSize(*png);
  std::printf("%u x %u\n", size->width, size->height);
}
