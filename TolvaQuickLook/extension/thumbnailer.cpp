// SPDX-License-Identifier: Apache-2.0
#include <cstdint>
#include <cstdio>
#include <exception>
#include <optional>
#include <span>
#include <string>
#include <string_view>

#include "extension/ErrorText.hpp"
#include "extension/PictureFile.hpp"
#include "extension/PreviewProvider.hpp"
#include "extension/ReplyPicture.hpp"
#include "platform/DoubleText.hpp"

namespace tolva {
namespace {

constexpr char const* usage = "Usage: tolva-quicklook-thumbnailer SIZE INPUT OUTPUT";

/// The whole picture is made before any file is.
void makeThumbnail(int size, char const* input, char const* output) {
  requireReplaceable(output);
  PreviewProvider provider;
  writePicture(output, drawReply(provider.providePreview({.fileURL = input}, std::stop_token()), size));
}

int print(char const* text) {
  bool const arrived = std::puts(text) >= 0 && std::fflush(stdout) == 0;
  return arrived ? 0 : 1;
}

std::optional<int> pixelSize(std::string_view text) {
  std::optional<std::int64_t> const size = integerFromText(text);
  if (!size || *size < 1 || *size > INT32_MAX) return std::nullopt;
  return static_cast<int>(*size);
}

int run(std::span<char* const> arguments) {
  std::string_view const only = arguments.size() == 2 ? arguments[1] : "";
  if (only == "--help") return print(usage);
  if (only == "--version") return print("tolva-quicklook-thumbnailer " TOLVA_VERSION);
  std::optional<int> const size = arguments.size() == 4 ? pixelSize(arguments[1]) : std::nullopt;
  if (!size) {
    std::fprintf(stderr, "%s\n", usage);
    return 1;
  }
  try {
    makeThumbnail(*size, arguments[2], arguments[3]);
    return 0;
  } catch (...) {
    std::string const text = errorText(std::current_exception());
    std::fprintf(stderr, "tolva-quicklook-thumbnailer: %s: %s\n", arguments[2], text.c_str());
    return 1;
  }
}

}  // namespace
}  // namespace tolva

int main(int count, char** arguments) { return tolva::run(std::span(arguments, static_cast<std::size_t>(count))); }
