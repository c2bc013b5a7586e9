// SPDX-License-Identifier: Apache-2.0
#include "preview/helpers/PictureFormat.hpp"

#include <gtest/gtest.h>

#include <string_view>

#include "platform/Bytes.hpp"
#include "support/Corpora.hpp"

namespace tolva {
namespace {

using std::string_view_literals::operator""sv;

std::optional<PictureFormat> formatOf(std::string_view text) { return pictureFormat(Bytes(text.begin(), text.end())); }

TEST(PictureFormat, IsToldByTheFirstBytes) {
  struct {
    char const* says;
    std::string_view bytes;
    std::optional<PictureFormat> format;
  } const cases[] = {
      {"PNG", "\x89PNG\r\n\x1a\n"sv, PictureFormat::png},
      {"PNG whose line ends were changed", "\x89PNG\n\x1a\n"sv, {}},
      {"JPEG", "\xff\xd8\xff\xe0"sv, PictureFormat::jpeg},
      {"two bytes of JPEG", "\xff\xd8"sv, {}},
      {"GIF, both versions", "GIF87a"sv, PictureFormat::gif},
      {"GIF, both versions", "GIF89a;"sv, PictureFormat::gif},
      {"no version of GIF", "GIF88a"sv, {}},
      {"WebP", "RIFF\0\0\0\0WEBPVP8 "sv, PictureFormat::webp},
      {"RIFF of another kind", "RIFF\0\0\0\0WAVEfmt "sv, {}},
      {"its name without RIFF", "XXXX\0\0\0\0WEBP"sv, {}},
      {"TIFF, both byte orders", "II*\0\x08"sv, PictureFormat::tiff},
      {"TIFF, both byte orders", "MM\0*\0"sv, PictureFormat::tiff},
      {"TIFF of mixed orders", "II\0*"sv, {}},
      {"HEIF",
       "\0\0\0\x18"
       "ftypheic"sv,
       PictureFormat::heif},
      {"HEIF",
       "\0\0\0\x18"
       "ftypheix"sv,
       PictureFormat::heif},
      {"HEIF",
       "\0\0\0\x18"
       "ftypmif1"sv,
       PictureFormat::heif},
      {"AVIF",
       "\0\0\0\x18"
       "ftypavif"sv,
       PictureFormat::heif},
      {"a sequence of HEIF",
       "\0\0\0\x18"
       "ftypmsf1"sv,
       PictureFormat::heif},
      {"a sequence of AVIF",
       "\0\0\0\x18"
       "ftypavis"sv,
       {}},
      {"a film",
       "\0\0\0\x18"
       "ftypisom"sv,
       {}},
      {"formats that are not decoded", "<svg xmlns='http://www.w3.org/2000/svg'/>"sv, {}},
      {"formats that are not decoded", "BM\x36\0\0\0"sv, {}},
      {"formats that are not decoded", "%PDF-1.7"sv, {}},
      {"formats that are not decoded", "P6 1 1 255 abc"sv, {}},
      {"nothing", ""sv, {}},
  };
  for (auto const& one : cases) {
    SCOPED_TRACE(one.says);
    EXPECT_EQ(formatOf(one.bytes), one.format);
    EXPECT_EQ(formatOf(one.bytes.substr(0, 2)), std::nullopt);
  }
}

TEST(PictureFormat, IsToldOfRealFilesBySuffix) {
  TOLVA_NEEDS_CORPORA();
  struct {
    char const* suffix;
    std::optional<PictureFormat> format;
  } const kinds[] = {{".gif", PictureFormat::gif},   {".jpg", PictureFormat::jpeg}, {".webp", PictureFormat::webp},
                     {".tiff", PictureFormat::tiff}, {".bmp", std::nullopt},        {".ico", std::nullopt}};
  for (auto const& kind : kinds) {
    for (auto const& file : corpusFiles("image-good", kind.suffix)) {
      SCOPED_TRACE(file);
      EXPECT_EQ(formatOf(contents(file)), kind.format);
    }
  }
}

}  // namespace
}  // namespace tolva
