// SPDX-License-Identifier: Apache-2.0
// The decoder runs in the helper alone, so it is asked by way of the host.

#include "preview/helpers/PictureDecoder.hpp"

#include <gtest/gtest.h>

#include <algorithm>
#include <string>

#include "preview/PreviewHelpers.hpp"
#include "preview/TestPNG.hpp"
#include "preview/TestTIFF.hpp"
#include "preview/helpers/PreviewLimits.hpp"
#include "support/NoTask.hpp"
#include "support/Patience.hpp"

namespace tolva {
namespace {

Bytes ofDigits(std::string_view digits) {
  Bytes bytes;
  for (std::size_t at = 0; at < digits.size(); at += 2) {
    bytes.push_back(static_cast<std::uint8_t>(std::stoi(std::string(digits.substr(at, 2)), nullptr, 16)));
  }
  return bytes;
}

std::optional<TestPicture> shown(Bytes const& picture) {
  PreviewHelpers const helpers{std::filesystem::path(TOLVA_HELPERS)};
  auto const png = patiently([&] { return helpers.thumbnail(picture, noTask); });
  return png ? std::optional(TestPicture(*png)) : std::nullopt;
}

std::optional<TestPicture> shown(std::initializer_list<TIFFPage> pages) { return shown(tiffOf(pages)); }

PixelSize sizeOf(TestPicture const& picture) { return {picture.width, picture.height}; }

// The first picture, and no other -------------------------------------------------------------------

TEST(PictureDecoder, ShowsTheFirstPageOfSeveral) {
  struct {
    char const* says;
    TIFFPage second;
  } const cases[] = {{"a page of the same size", {2048, 1024, 0xff, 0xff}},
                     {"a page of half the size, which may well be another picture", {1024, 512, 0xff, 0xff}},
                     {"a page that is too large by itself", {20'000, 1, 0xff, 0xff}}};
  for (auto const& one : cases) {
    SCOPED_TRACE(one.says);
    auto const picture = shown({{2048, 1024, 0x40, 0x40}, one.second});
    ASSERT_TRUE(picture);
    EXPECT_EQ(sizeOf(*picture), (PixelSize{1024, 512}));
    EXPECT_EQ(picture->at(500, 250), 0x404040u);
  }
}

/// An AVIF of 2048 x 1024 red pixels, with a green thumbnail of 1024 x 512.
Bytes const& avifWithThumbnail() {
  static Bytes const avif = ofDigits(
      "00000028667479706176696600000000617669666d6966316d696166617669666d6966316d696166000001756d6574610000000000000021"
      "68646c72000000000000000070696374000000000000000000000000000000000e7069746d00000000000100000034696c6f630000000044"
      "40000200010000000001a50001000000000000005800020000000001fd0001000000000000005b0000003869696e66000000000002000000"
      "15696e66650200000000010000617630310000000015696e666502000000000200006176303100000000b4697072700000008e6970636f00"
      "000013636f6c726e636c78000200020006800000000c6176314381080c000000001469737065000000000000080000000400000000107069"
      "7869000000000308080800000013636f6c726e636c78000200020006800000000c6176314381040c00000000146973706500000000000004"
      "0000000200000000107069786900000000030808080000001e69706d61000000000000000200010481820384000204858607880000001a69"
      "726566000000000000000e74686d62000200010001000000bb6d64617412000a0a1a2a7fffffc10202068432481200028a28a100f658aac8"
      "cba6f3494f51dd70416c86e251b09d704f21fa3a4c73a656ec8d8f43e7669933a1c69d1cc2caee98e4626b29aebbd6da81a1382cb9586087"
      "ca703881e612000a0a19263fffff0408081a10324b1200028a28a100f686d5fc85058a1a13ccf33b683f9a21a94742107a1b26a409b1c82c"
      "677332b93d4a16c77f469830ae4163109455d47b5971dc2cea688cc9ca51f9ab718208ce6a368348");
  return avif;
}

TEST(PictureDecoder, ShowsThePictureAndNotTheThumbnailInItsFile) {
  auto const picture = shown(avifWithThumbnail());
  ASSERT_TRUE(picture);
  EXPECT_EQ(sizeOf(*picture), (PixelSize{1024, 512}));
  unsigned const colour = picture->at(500, 250);
  EXPECT_GT(colour >> 16, 0xf0u);
  EXPECT_LT(colour >> 8 & 0xff, 0x10u);
}

TEST(PictureDecoder, ShowsThePicturesOfEveryBrand) {
  for (std::string_view const brand :
       {"heic", "heix", "mif1", "avif", "heim", "heis", "hevc", "hevm", "hevs", "msf1"}) {
    SCOPED_TRACE(brand);
    Bytes file = avifWithThumbnail();
    std::ranges::copy(brand, file.begin() + 8);
    EXPECT_TRUE(shown(file));
  }
}

TEST(PictureDecoder, ShowsTheFirstFrameOfAnAnimation) {
  // 1 x 1 pixel, red and then white.
  auto const picture =
      shown(ofDigits("474946383961"
                     "01000100800000ff0000ffffff"
                     "2c0000000001000100000202440100"
                     "2c00000000010001000002024c01003b"));
  ASSERT_TRUE(picture);
  EXPECT_EQ(sizeOf(*picture), (PixelSize{1, 1}));
  EXPECT_EQ(picture->at(0, 0), 0xff0000u);
}

// Whatever its form ---------------------------------------------------------------------------------

TEST(PictureDecoder, TurnsATIFFUpright) {
  struct {
    unsigned orientation;
    PixelSize size;
    unsigned first, last;
  } const cases[] = {{1, {1024, 512}, 0x404040, 0xc0c0c0},
                     {3, {1024, 512}, 0xc0c0c0, 0x404040},
                     {4, {1024, 512}, 0xc0c0c0, 0x404040},
                     {6, {512, 1024}, 0xc0c0c0, 0x404040},
                     {8, {512, 1024}, 0x404040, 0xc0c0c0}};
  for (auto const& one : cases) {
    SCOPED_TRACE(one.orientation);
    auto const picture = shown({{2048, 1024, 0x40, 0xc0, one.orientation}});
    ASSERT_TRUE(picture);
    EXPECT_EQ(sizeOf(*picture), one.size);
    EXPECT_EQ(picture->at(2, 2), one.first);
    EXPECT_EQ(picture->at(picture->width - 3, picture->height - 3), one.last);
  }
}

/// `left` as often as fits into half a row, then `right`.
Bytes halves(Bytes const& left, Bytes const& right, std::size_t times) {
  Bytes row;
  for (Bytes const* const half : {&left, &right}) {
    for (std::size_t time = 0; time < times; ++time) row.insert(row.end(), half->begin(), half->end());
  }
  return row;
}

struct FormCase {
  char const* says;
  PNGForm form;
  Bytes row;
  unsigned left, right;  // what is seen before white
};

std::vector<png_color> const redAndBlue = {{255, 0, 0}, {0, 0, 255}};
constexpr unsigned red = 0xff0000, blue = 0x0000ff, white = 0xffffff;

FormCase const forms[] = {
    {"black and white", {1, PNG_COLOR_TYPE_GRAY}, halves({0xff}, {0}, 1), white, 0},
    {"four greys", {2, PNG_COLOR_TYPE_GRAY}, halves({0x55}, {0xaa}, 2), 0x555555, 0xaaaaaa},
    {"sixteen greys", {4, PNG_COLOR_TYPE_GRAY}, halves({0x33}, {0xcc}, 4), 0x333333, 0xcccccc},
    {"greys of 16 bits", {16, PNG_COLOR_TYPE_GRAY}, halves({0x40, 0x40}, {0xc0, 0xc0}, 8), 0x404040, 0xc0c0c0},
    {"a grey that is invisible",
     {.type = PNG_COLOR_TYPE_GRAY, .invisible = png_color_16{.gray = 0x40}},
     halves({0x40}, {0xc0}, 8),
     white,
     0xc0c0c0},
    {"greys with alpha", {8, PNG_COLOR_TYPE_GRAY_ALPHA}, halves({0x40, 0xff}, {0xc0, 0}, 8), 0x404040, white},
    {"greys of 16 bits with alpha",
     {16, PNG_COLOR_TYPE_GRAY_ALPHA},
     halves({0x40, 0x40, 0xff, 0xff}, {0xc0, 0xc0, 0, 0}, 8),
     0x404040,
     white},
    {"colours", {8, PNG_COLOR_TYPE_RGB}, halves({0xff, 0, 0}, {0, 0, 0xff}, 8), red, blue},
    {"colours of 16 bits",
     {16, PNG_COLOR_TYPE_RGB},
     halves({0xff, 0xff, 0, 0, 0, 0}, {0, 0, 0, 0, 0xff, 0xff}, 8),
     red,
     blue},
    {"colours with alpha", {8, PNG_COLOR_TYPE_RGB_ALPHA}, halves({0xff, 0, 0, 0xff}, {0, 0, 0xff, 0}, 8), red, white},
    {"colours of 16 bits with alpha",
     {16, PNG_COLOR_TYPE_RGB_ALPHA},
     halves({0xff, 0xff, 0, 0, 0, 0, 0xff, 0xff}, {0, 0, 0, 0, 0xff, 0xff, 0, 0}, 8),
     red,
     white},
    {"a palette", {.type = PNG_COLOR_TYPE_PALETTE, .palette = redAndBlue}, halves({0}, {1}, 8), red, blue},
    {"a palette of one bit",
     {.depth = 1, .type = PNG_COLOR_TYPE_PALETTE, .palette = redAndBlue},
     halves({0}, {0xff}, 1),
     red,
     blue},
    {"a palette with an invisible colour",
     {.type = PNG_COLOR_TYPE_PALETTE, .palette = redAndBlue, .alphas = {0xff, 0}},
     halves({0}, {1}, 8),
     red,
     white},
    {"interlaced", {8, PNG_COLOR_TYPE_RGB, PNG_INTERLACE_ADAM7}, halves({0xff, 0, 0}, {0, 0, 0xff}, 8), red, blue},
};

TEST(PictureDecoder, ShowsEveryFormOfPNG) {
  for (FormCase const& one : forms) {
    SCOPED_TRACE(one.says);
    auto const picture = shown(pngOf(one.form, one.row));
    ASSERT_TRUE(picture);
    EXPECT_EQ(sizeOf(*picture), (PixelSize{16, 8}));
    EXPECT_EQ(picture->at(3, 4), one.left);
    EXPECT_EQ(picture->at(12, 4), one.right);
  }
}

TEST(PictureDecoder, ShowsSamplesThatAreNoBytes) {
  auto const picture = shown({{.width = 40, .height = 20, .above = 0x40, .below = 0xc0, .floating = true}});
  ASSERT_TRUE(picture);
  EXPECT_EQ(picture->at(20, 5), 0x404040u);
  EXPECT_EQ(picture->at(20, 15), 0xc0c0c0u);
}

TEST(PictureDecoder, ShowsAWebPMadeSmallerWhileItIsDecoded) {
  // 2048 x 64 red pixels.
  auto const picture =
      shown(ofDigits("524946462600000057454250"
                     "5650384c1a0000002fffc70f000710fd8ffe070014e9ff7f8ae87fea7ffffbdf7f00"));
  ASSERT_TRUE(picture);
  EXPECT_EQ(sizeOf(*picture), (PixelSize{1024, 32}));
  EXPECT_EQ(picture->at(500, 16), 0xff0000u);
}

TEST(PictureDecoder, ShowsTheColoursOfPrinters) {
  // A JPEG of 16 x 16 pixels, all yellow and magenta and no cyan: a red of whatever profile.
  auto const picture = shown(ofDigits(
      "ffd8ffee000e41646f626500640000000000ffdb004300080606070605080707070909080a0c140d0c0b0b0c1912130f141d1a1f1e1d1a1c"
      "1c20242e2720222c231c1c2837292c30313434341f27393d38323c2e333432ffc000140800100010044311004d11005911004b1100ffc400"
      "1f0000010501010101010100000000000000000102030405060708090a0bffc400b5100002010303020403050504040000017d0102030004"
      "1105122131410613516107227114328191a1082342b1c11552d1f02433627282090a161718191a25262728292a3435363738393a43444546"
      "4748494a535455565758595a636465666768696a737475767778797a838485868788898a92939495969798999aa2a3a4a5a6a7a8a9aab2b3"
      "b4b5b6b7b8b9bac2c3c4c5c6c7c8c9cad2d3d4d5d6d7d8d9dae1e2e3e4e5e6e7e8e9eaf1f2f3f4f5f6f7f8f9faffda000e0443004d005900"
      "4b00003f00f7faf9febe7faf7fa28a28a28a28a28a28afffd9"));
  ASSERT_TRUE(picture);
  EXPECT_EQ(sizeOf(*picture), (PixelSize{16, 16}));
  unsigned const colour = picture->at(8, 8);
  EXPECT_GT(colour >> 16, 0xd0u);
  EXPECT_LT(colour >> 8 & 0xff, 0x40u);
  EXPECT_LT(colour & 0xff, 0x40u);
}

TEST(PictureDecoder, ShowsNothingOfADamagedPicture) {
  Bytes tiff = tiffOf(std::initializer_list<TIFFPage>{{64, 64, 0x40, 0xc0}});
  ASSERT_TRUE(shown(tiff));
  tiff.resize(tiff.size() - 20);
  EXPECT_FALSE(shown(tiff)) << "its directory is cut short";
  Bytes png = greyPNG(2000, 2000);
  png.resize(png.size() - png.size() / 4);
  EXPECT_FALSE(shown(png));
}

/// What is damaged is found by one thread while another may have finished already.
TEST(PictureDecoder, NeverShowsAPictureWhosePixelsHaveAWrongChecksum) {
  Bytes png = greyPNG(32, 32);
  std::size_t const end = 12;  // the chunk behind the pixels, before which their checksum stands
  png.at(png.size() - end - 1) ^= 1;
  for (int time = 0; time < 40; ++time) ASSERT_FALSE(shown(png)) << time;
}

}  // namespace
}  // namespace tolva
