// SPDX-License-Identifier: Apache-2.0
// The JSON part of a cell's preview: everything is made that a person is shown, and the pretty text is written.
#include <cstdio>
#include <fstream>
#include <iterator>

#include "preview/JSONPreview.hpp"

int main(int argc, char** argv) {
  if (argc != 2) return 2;
  std::ifstream file(argv[1], std::ios::binary);
  std::string const json{std::istreambuf_iterator<char>(file), {}};
  auto const preview = tolva::jsonPreview(json);
  if (!preview || preview->nodes.empty() || preview->paths.empty()) return 1;
  std::puts(preview->pretty.c_str());
}
