// SPDX-License-Identifier: Apache-2.0
// Somebody else's program: writes the thumbnail of the picture FILE to standard output, or leaves with 1 for want of
// one.
#include <fstream>
#include <iostream>
#include <iterator>
#include <tolva/preview/PreviewHelpers.hpp>

int main(int count, char** arguments) {
  if (count != 2) return 2;
  std::ifstream file(arguments[1], std::ios::binary);
  tolva::Bytes const picture{std::istreambuf_iterator<char>(file), {}};
  auto const png = tolva::PreviewHelpers().thumbnail(picture, std::stop_token());
  if (!png) return 1;
  std::cout.write(reinterpret_cast<char const*>(png->data()), static_cast<std::streamsize>(png->size()));
}
