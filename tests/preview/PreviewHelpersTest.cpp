// SPDX-License-Identifier: Apache-2.0
#include "preview/PreviewHelpers.hpp"

#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdlib>
#include <fstream>
#include <sstream>
#include <string>
#include <thread>

#include "platform/ChildExchange.hpp"
#include "platform/TaskCancellation.hpp"
#include "platform/Uptime.hpp"
#include "preview/TestPNG.hpp"
#include "preview/helpers/HelperAnswer.hpp"
#include "support/Corpora.hpp"
#include "support/Descriptors.hpp"
#include "support/NoTask.hpp"
#include "support/Patience.hpp"
#include "support/TemporaryFolder.hpp"
#include "support/Unprivileged.hpp"

namespace tolva {
namespace {

using namespace std::chrono_literals;

PreviewHelpers const helpers{std::filesystem::path(TOLVA_HELPERS)};

Bytes bytesOf(std::string_view text) { return Bytes(text.begin(), text.end()); }

std::optional<Bytes> thumbnail(Bytes const& picture) {
  return patiently([&] { return helpers.thumbnail(picture, noTask); });
}

/// A document of one page: its entries, and what is drawn.
std::string documentOf(std::string const& page, std::string const& drawing) {
  return "%PDF-1.7\n1 0 obj<</Type/Catalog/Pages 2 0 R>>endobj\n2 0 obj<</Type/Pages/Kids[3 0 R]/Count 1>>endobj\n"
         "3 0 obj<</Type/Page/Parent 2 0 R/Contents 4 0 R" +
         page + ">>endobj\n4 0 obj<</Length " + std::to_string(drawing.size()) + ">>stream\n" + drawing +
         "\nendstream endobj\ntrailer<</Root 1 0 R>>\n";
}

std::optional<PDFFirstPage> firstPage(std::string const& document) {
  return patiently([&] { return helpers.firstPage(bytesOf(document), noTask); });
}

constexpr unsigned red = 0xff0000;
constexpr unsigned white = 0xffffff;

// Pictures ----------------------------------------------------------------------------------------

TEST(PreviewHelpers, MakeAPictureSmallerAndNeverLarger) {
  struct {
    unsigned width, height, thenWide, thenHigh;
  } const cases[] = {
      {1, 1, 1, 1}, {1024, 1024, 1024, 1024}, {1025, 10, 1024, 10}, {4000, 2000, 1024, 512}, {10, 16'384, 1, 1024}};
  for (auto const& one : cases) {
    SCOPED_TRACE(one.width);
    auto const png = thumbnail(greyPNG(one.width, one.height));
    ASSERT_TRUE(png);
    EXPECT_EQ(HelperAnswer::thumbnailSize(*png), (PixelSize{one.thenWide, one.thenHigh}));
    EXPECT_EQ(TestPicture(*png).at(0, 0), 0x808080u);
  }
}

TEST(PreviewHelpers, RefuseAPictureByTheSizeItAnnounces) {
  EXPECT_TRUE(thumbnail(greyPNG(16'384, 100)));
  EXPECT_FALSE(thumbnail(greyPNG(16'385, 100)));
  EXPECT_FALSE(thumbnail(greyPNG(20'000, 100)));
  EXPECT_FALSE(thumbnail(greyPNG(100, 16'385)));
  EXPECT_TRUE(thumbnail(greyPNG(8000, 5000))) << "40,000,000 pixels";
  EXPECT_FALSE(thumbnail(greyPNG(8001, 5000)));
}

TEST(PreviewHelpers, MakeNothingOfWhatIsNoPicture) {
  for (char const* text : {"", "a", "<svg xmlns='http://www.w3.org/2000/svg' width='9' height='9'/>", "%PDF-1.7",
                           "P3 1 1 255 1 2 3", "\x89PNG\r\n\x1a\n", "GIF89a", "\xff\xd8\xff\xd9"}) {
    SCOPED_TRACE(text);
    EXPECT_FALSE(thumbnail(bytesOf(text)));
  }
}

TEST(PreviewHelpers, ShowAPictureWhoseDecoderIsAPlugin) {
  // An AVIF of 64 x 32 pixels, all of them red.
  std::string_view const digits =
      "0000001c667479706176696600000000617669666d6966316d6961660000012b6d657461000000000000002168646c720000000000000000"
      "70696374000000000000000000000000000000000e7069746d00000000000100000034696c6f630000000044400002000100000000014f00"
      "010000000000000020000200000000016f000100000000000000be0000003869696e6600000000000200000015696e666502000000000100"
      "00617630310000000015696e6665020000010002000045786966000000006a697072700000004b6970636f00000013636f6c726e636c7800"
      "0200020006800000000c6176314381000c000000001469737065000000000000004000000020000000107069786900000000030808080000"
      "001769706d610000000000000001000104818203840000001a69726566000000000000000e63647363000200010001000000e66d64617412"
      "000a0918153fff2408081a1032111800000040000b3cfe7a5c01598026bd200000000645786966000049492a000800000006001201030001"
      "000000010000001a01050001000000560000001b010500010000005e00000028010300010000000200000013020300010000000100000069"
      "87040001000000660000000000000038630000e803000038630000e803000006000090070004000000303231300191070004000000010203"
      "0000a00700040000003031303001a0030001000000ffff000002a00400010000004000000003a00400010000002000000000000000";
  Bytes avif;
  for (std::size_t at = 0; at < digits.size(); at += 2) {
    avif.push_back(static_cast<std::uint8_t>(std::stoi(std::string(digits.substr(at, 2)), nullptr, 16)));
  }
  auto const png = thumbnail(avif);
  ASSERT_TRUE(png);
  TestPicture const picture(*png);
  EXPECT_EQ((PixelSize{picture.width, picture.height}), (PixelSize{64, 32}));
  EXPECT_GT(picture.at(32, 16), 0xf00000u);
  EXPECT_FALSE(thumbnail(Bytes(avif.begin(), avif.end() - 200))) << "cut short";
}

TEST(PreviewHelpers, ShowThePicturesOfEveryFormatTheyKnow) {
  TOLVA_NEEDS_CORPORA();
  for (char const* suffix : {".gif", ".jpg", ".webp", ".tiff", ".tif"}) {
    for (auto const& file : corpusFiles("image-good", suffix)) {
      SCOPED_TRACE(file);
      EXPECT_TRUE(thumbnail(bytesOf(contents(file))));
    }
  }
}

TEST(PreviewHelpers, ShowEveryGoodPNGAndNoCorruptOne) {
  TOLVA_NEEDS_CORPORA();
  int corrupt = 0;
  for (auto const& file : corpusFiles("png-suite", ".png")) {
    SCOPED_TRACE(file);
    bool const good = !file.filename().string().starts_with("x");
    corrupt += good ? 0 : 1;
    EXPECT_EQ(thumbnail(bytesOf(contents(file))).has_value(), good);
  }
  EXPECT_EQ(corrupt, 14);
}

/// A grey JPEG picture of any size, made of the codes of its blocks of 8 x 8 pixels. Codes of differences to the block
/// before: "0" for none, "10" for one of seven bits. Of the rest: "0" for the block's end.
Bytes jpegOf(unsigned width, unsigned height, std::uint8_t orientation, std::string bits) {
  Bytes jpeg = {0xff, 0xd8};
  auto const segment = [&](std::uint8_t marker, Bytes const& data) {
    std::size_t const length = data.size() + 2;
    jpeg.insert(jpeg.end(), {0xff, marker, static_cast<std::uint8_t>(length >> 8), static_cast<std::uint8_t>(length)});
    jpeg.insert(jpeg.end(), data.begin(), data.end());
  };
  segment(0xe1, {'E',  'x',  'i', 'f', 0, 0, 'M', 'M', 0, 42,          0, 0, 0, 8, 0, 1,
                 0x01, 0x12, 0,   3,   0, 0, 0,   1,   0, orientation, 0, 0, 0, 0, 0, 0});
  Bytes steps(65, 8);  // a step of 8, so that a block's mean is its number and 128
  steps[0] = 0;
  segment(0xdb, steps);
  segment(0xc0, {8, static_cast<std::uint8_t>(height >> 8), static_cast<std::uint8_t>(height),
                 static_cast<std::uint8_t>(width >> 8), static_cast<std::uint8_t>(width), 1, 1, 0x11, 0});
  segment(0xc4, {0x00, 1, 1, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 7});
  segment(0xc4, {0x10, 1, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0});
  segment(0xda, {1, 1, 0x00, 0, 63, 0});
  while (bits.size() % 8 != 0) bits += '1';
  for (std::size_t at = 0; at < bits.size(); at += 8) {
    jpeg.push_back(static_cast<std::uint8_t>(std::stoi(bits.substr(at, 8), nullptr, 2)));
  }
  jpeg.insert(jpeg.end(), {0xff, 0xd9});
  return jpeg;
}

/// All of it 0x808080.
Bytes greyJPEG(unsigned width, unsigned height) {
  std::size_t const blocks = std::size_t{(width + 7) / 8} * ((height + 7) / 8);
  return jpegOf(width, height, 1, std::string(2 * blocks, '0'));
}

/// The upper half is 0x808080 and the lower half 0xe4e4e4, both sides multiples of 16.
Bytes twoHalvesJPEG(unsigned width, unsigned height, std::uint8_t orientation) {
  std::size_t const half = std::size_t{width} / 8 * (height / 8) / 2;
  std::string bits(2 * half, '0');
  bits += "1011001000" + std::string(2 * (half - 1), '0');  // 100 more, and all blocks after it alike
  return jpegOf(width, height, orientation, std::move(bits));
}

TEST(PreviewHelpers, DecodeALargeJPEGSmallerAndUpright) {
  struct {
    unsigned width, height;
    std::uint8_t orientation;
    PixelSize size;
    bool lighterBelow, lighterOnTheLeft;
  } const cases[] = {{512, 256, 1, {512, 256}, true, false},     {2048, 1024, 1, {1024, 512}, true, false},
                     {4096, 1024, 1, {1024, 256}, true, false},  {8192, 4096, 3, {1024, 512}, false, false},
                     {2048, 1024, 6, {512, 1024}, false, true},  {4000, 3008, 6, {770, 1024}, false, true},
                     {8192, 4096, 8, {512, 1024}, false, false}, {16'384, 2048, 6, {128, 1024}, false, true}};
  for (auto const& one : cases) {
    SCOPED_TRACE(one.width * 10 + one.orientation);
    auto const png = thumbnail(twoHalvesJPEG(one.width, one.height, one.orientation));
    ASSERT_TRUE(png);
    TestPicture const picture(*png);
    EXPECT_EQ((PixelSize{picture.width, picture.height}), one.size);
    bool const upright = one.orientation < 5;
    unsigned const dark = 0x808080, light = 0xe4e4e4;
    bool const lighterFirst = upright ? !one.lighterBelow : one.lighterOnTheLeft;
    EXPECT_EQ(picture.at(2, 2), lighterFirst ? light : dark);
    EXPECT_EQ(picture.at(picture.width - 3, picture.height - 3), lighterFirst ? dark : light);
  }
  EXPECT_FALSE(thumbnail(twoHalvesJPEG(16'400, 16, 1)));
  EXPECT_FALSE(thumbnail(twoHalvesJPEG(20'000, 112, 6)));
}

/// As cameras write them: the decoder complains, and reads on.
TEST(PreviewHelpers, ShowAJPEGThatIsNotQuiteByTheRules) {
  Bytes const good = greyJPEG(64, 64);
  auto const find = [&](Bytes const& bytes) {
    return std::search(good.begin(), good.end(), bytes.begin(), bytes.end()) - good.begin();
  };
  Bytes stray = good;
  stray.insert(stray.begin() + find({0xff, 0xdb}), {0, 0});
  Bytes endsEarly = good;
  endsEarly.at(static_cast<std::size_t>(find({0xff, 0xda, 0, 8, 1, 1, 0})) + 8) =
      62;  // the last coefficient, in place of 63
  for (Bytes const& picture : {good, stray, endsEarly}) EXPECT_TRUE(thumbnail(picture));
}

TEST(PreviewHelpers, ShowAJPEGHoweverThinItIs) {
  for (unsigned const length : {2'048u, 4'096u, 8'192u, 16'384u}) {  // from here on, a factor of 2, 4 and 8
    for (unsigned const breadth : {1u, 3u, 7u, 8u, 15u}) {
      SCOPED_TRACE(std::to_string(length) + " x " + std::to_string(breadth));
      auto const wide = thumbnail(greyJPEG(length, breadth));
      auto const high = thumbnail(greyJPEG(breadth, length));
      ASSERT_TRUE(wide && high);
      auto const size = HelperAnswer::thumbnailSize(*wide);
      ASSERT_TRUE(size);
      EXPECT_EQ(size->width, 1'024u);
      EXPECT_EQ(HelperAnswer::thumbnailSize(*high), (PixelSize{size->height, 1'024}));
      EXPECT_NEAR(size->height, breadth * 1'024.0 / length, 1) << "no more than a pixel is lost";
      EXPECT_EQ(TestPicture(*wide).at(1'023, size->height - 1), 0x808080u);
      EXPECT_EQ(TestPicture(*high).at(size->height - 1, 1'023), 0x808080u);
    }
  }
}

TEST(PreviewHelpers, TurnPicturesUpright) {
  TOLVA_NEEDS_CORPORA();
  std::optional<TestPicture> first;
  for (int orientation = 1; orientation <= 8; ++orientation) {
    SCOPED_TRACE(orientation);
    auto const png =
        thumbnail(bytesOf(contents(corpusFile("image-exif/Portrait_" + std::to_string(orientation) + ".jpg"))));
    ASSERT_TRUE(png);
    TestPicture const picture(*png);
    if (!first) first = picture;
    ASSERT_EQ(picture.width, first->width);
    ASSERT_EQ(picture.height, first->height);
    EXPECT_LT(picture.width, picture.height);
    // Each of the eight was compressed for itself, so they are alike, not equal; turned, they differ ten times as much.
    long apart = 0;
    for (std::size_t i = 0; i < picture.pixels.size(); ++i) apart += std::abs(picture.pixels[i] - first->pixels[i]);
    EXPECT_LT(static_cast<double>(apart) / static_cast<double>(picture.pixels.size()), 4);
  }
}

// Documents ---------------------------------------------------------------------------------------

TEST(PreviewHelpers, TellWhatADocumentIsAndDrawItsFirstPage) {
  auto const page = firstPage(documentOf("/MediaBox[0 0 2048 1024]", "1 0 0 rg 0 0 1024 512 re f"));
  ASSERT_TRUE(page);
  EXPECT_FALSE(page->locked);
  EXPECT_EQ(page->pageCount, 1);
  EXPECT_EQ(page->width, 2048);
  EXPECT_EQ(page->height, 1024);
  TestPicture const picture(page->png.value());
  EXPECT_EQ(picture.width, 1024u);
  EXPECT_EQ(picture.height, 512u);
  EXPECT_EQ(picture.at(10, 500), red) << "the origin is the lower left corner";
  EXPECT_EQ(picture.at(10, 10), white);
  EXPECT_EQ(picture.at(1000, 500), white);
}

TEST(PreviewHelpers, DrawTheMediaBoxHoweverThePageIsCroppedAndTurned) {
  struct Spot {
    unsigned x, y, colour;
  };
  std::string const leftLower = "1 0 0 rg 0 0 50 50 re f";
  struct {
    char const* says;
    std::string page;
    std::string drawing;
    std::vector<Spot> spots;
  } const cases[] = {
      {"plain", "", leftLower, {{25, 75, red}, {25, 25, white}, {75, 75, white}}},
      {"cropped",
       "/CropBox[50 0 200 100]",
       "1 0 0 rg 0 0 200 100 re f",
       {{25, 50, white}, {45, 50, white}, {55, 50, red}, {195, 95, red}}},
      {"cropped above",
       "/CropBox[0 0 200 60]",
       "1 0 0 rg 0 0 200 100 re f",
       {{100, 35, white}, {100, 45, red}, {100, 95, red}}},
      {"turned, so that it is drawn half as large",
       "/Rotate 90",
       leftLower,
       {{80, 10, red}, {80, 60, white}, {120, 10, white}, {40, 10, white}}},
      {"upside down", "/Rotate 180", leftLower, {{175, 25, red}, {25, 75, white}}},
      {"turned the other way", "/Rotate 270", leftLower, {{120, 90, red}, {80, 90, white}, {120, 40, white}}},
      {"turned and cropped",
       "/Rotate 90/CropBox[0 50 200 100]",
       "1 0 0 rg 0 0 200 100 re f",
       {{80, 50, white}, {120, 50, red}, {120, 5, red}, {120, 95, red}}},
  };
  for (auto const& one : cases) {
    SCOPED_TRACE(one.says);
    auto const page = firstPage(documentOf("/MediaBox[0 0 200 100]" + one.page, one.drawing));
    ASSERT_TRUE(page && page->png);
    TestPicture const picture(*page->png);
    ASSERT_EQ(picture.width, 200u);
    ASSERT_EQ(picture.height, 100u);
    for (Spot const& spot : one.spots) EXPECT_EQ(picture.at(spot.x, spot.y), spot.colour) << spot.x << ", " << spot.y;
  }
  auto const elsewhere = firstPage(documentOf("/MediaBox[100 100 300 200]", "1 0 0 rg 100 100 50 50 re f"));
  ASSERT_TRUE(elsewhere && elsewhere->png);
  EXPECT_EQ(TestPicture(*elsewhere->png).at(25, 75), red) << "a box that does not begin at the origin";
}

TEST(PreviewHelpers, DrawAPageOfAnyBoxThatCanBeOne) {
  struct {
    char const* page;
    double width, height;
    PixelSize size;
    unsigned middle = red;
  } const cases[] = {
      {"/MediaBox[0 0 0.5 0.25]", 0.5, 0.25, {1, 1}},
      {"/MediaBox[0 0 3 2000]", 3, 2000, {1, 1024}},
      {"/MediaBox[0 0 0.1 16384]", 0.1, 16'384, {1, 1024}},
      {"/MediaBox[0 0 16384 16384]", 16'384, 16'384, {1024, 1024}},
      {"/MediaBox[200 100 0 0]", 200, 100, {200, 100}},
      {"/MediaBox[-100 -50 100 50]", 200, 100, {200, 100}},
      {"", 612, 792, {612, 792}},
      {"/MediaBox[0 0 0 0]", 612, 792, {612, 792}},
      {"/MediaBox(none)", 612, 792, {612, 792}},
      {"/MediaBox[0 0 1]", 612, 792, {612, 792}},
      {"/MediaBox[0 0 1e3 1]", 612, 792, {612, 792}},  // no number of such documents has an exponent
      {"/MediaBox[0 0 200 100]/CropBox[-50 -50 400 400]", 200, 100, {200, 100}},
      {"/MediaBox[0 0 200 100]/CropBox[300 300 400 400]", 200, 100, {200, 100}, white},
      {"/MediaBox[0 0 200 100]/CropBox[7 7 7 7]", 200, 100, {200, 100}, white},
      {"/MediaBox[0 0 200 100]/Rotate 45", 200, 100, {200, 100}},
      {"/MediaBox[0 0 200 100]/Rotate -90", 200, 100, {200, 100}},
      {"/MediaBox[0 0 200 100]/Rotate 450", 200, 100, {200, 100}},
  };
  for (auto const& one : cases) {
    SCOPED_TRACE(one.page);
    auto const page = firstPage(documentOf(one.page, "1 0 0 rg -9999 -9999 29999 29999 re f"));
    ASSERT_TRUE(page && page->png);
    EXPECT_NEAR(page->width, one.width, 1e-6);
    EXPECT_NEAR(page->height, one.height, 1e-6);
    TestPicture const picture(*page->png);
    EXPECT_EQ((PixelSize{picture.width, picture.height}), one.size);
    EXPECT_EQ(picture.at(picture.width / 2, picture.height / 2), one.middle);
  }
}

TEST(PreviewHelpers, DrawText) {
  auto const page = firstPage(
      documentOf("/MediaBox[0 0 200 100]/Resources<</Font<</F<</Type/Font/Subtype/Type1/BaseFont/Helvetica>>>>>>",
                 "BT /F 80 Tf 10 20 Td (MMM) Tj ET"));
  ASSERT_TRUE(page && page->png);
  TestPicture const picture(*page->png);
  long dark = 0;
  for (std::uint8_t const sample : picture.pixels) dark += sample < 64 ? 1 : 0;
  EXPECT_GT(dark, 1000) << "the fonts of the system can be read";
}

TEST(PreviewHelpers, DrawNoPageBeyondTheLimits) {
  auto const largest = firstPage(documentOf("/MediaBox[0 0 16384 1]", ""));
  ASSERT_TRUE(largest);
  EXPECT_TRUE(largest->png);
  auto const larger = firstPage(documentOf("/MediaBox[0 0 16385 100]", ""));
  ASSERT_TRUE(larger);
  EXPECT_EQ(larger->width, 16385);
  EXPECT_EQ(larger->height, 100);
  EXPECT_EQ(larger->pageCount, 1);
  EXPECT_FALSE(larger->png);
  for (char const* const empty : {"5 5 5 5", "0 5 100 5", "5 0 5 100"}) {
    auto const page = firstPage(documentOf("/MediaBox[" + std::string(empty) + "]", ""));
    ASSERT_TRUE(page) << empty;
    EXPECT_TRUE(page->width == 0 || page->height == 0) << empty;
    EXPECT_FALSE(page->png) << empty;
  }
  for (std::size_t const digits : {6u, 300u, 400u}) {  // 400 are more than a double has
    auto const page = firstPage(documentOf("/MediaBox[0 0 " + std::string(digits, '9') + " 1]", ""));
    ASSERT_TRUE(page) << digits;
    EXPECT_GT(page->width, 999'990) << digits;
    EXPECT_FALSE(page->png) << digits;
  }
}

TEST(PreviewHelpers, MakeNothingOfWhatIsNoDocument) {
  for (char const* text : {"", "%PDF-", "%PDF-1.7\ntrailer<<>>\n", "text"}) {
    SCOPED_TRACE(text);
    EXPECT_FALSE(firstPage(text));
  }
  EXPECT_FALSE(firstPage(documentOf("/MediaBox[0 0 9 9]", std::string(PreviewLimits::mostDocument, ' '))))
      << "too large";
}

TEST(PreviewHelpers, TellOfRealDocumentsWhatAnotherProgramTells) {
  TOLVA_NEEDS_CORPORA();
  std::istringstream manifest(contents(corpusFile("pdf-qpdf/MANIFEST.tsv")));
  std::string line;
  std::getline(manifest, line);
  int documents = 0;
  while (std::getline(manifest, line)) {
    SCOPED_TRACE(line);
    std::istringstream fields(line);
    std::string file, size, begins, encryption, pages;
    for (std::string* field : {&file, &size, &begins, &encryption, &pages}) std::getline(fields, *field, '\t');
    auto const page = firstPage(contents(corpusFile("pdf-qpdf/" + file)));
    ++documents;
    if (encryption == "encrypted, password needed") {
      EXPECT_EQ(page, PDFFirstPage{.locked = true});
    } else if (pages == "error" || pages == "0") {
      EXPECT_TRUE(!page || page->pageCount == 0 || page->png) << "repaired, and then drawn";
    } else {
      ASSERT_TRUE(page);
      EXPECT_FALSE(page->locked);
      EXPECT_EQ(page->pageCount, std::stoll(pages));
      EXPECT_TRUE(page->png);
    }
  }
  EXPECT_GT(documents, 50);
}

TEST(PreviewHelpers, EndADocumentThatWouldTakeMinutes) {
  std::string fills = "/G gs\n";
  while (fills.size() < 200'000) fills += "0 0 9999 9999 re f\n";
  Bytes const document =
      bytesOf(documentOf("/MediaBox[0 0 1024 1024]/Resources<</ExtGState<</G<</ca .5/BM/Luminosity>>>>>>", fills));
  auto const begun = uptime();
  EXPECT_FALSE(helpers.firstPage(document, noTask));
  EXPECT_GT(uptime() - begun, 2500ms) << "it was no trouble after all";
  EXPECT_LT(uptime() - begun, 30s);
}

// Helpers that are not there, and bad ones ----------------------------------------------------------

TEST(PreviewHelpers, WorkForAnyUser) {
  TemporaryFolder folder;
  for (char const* name : {"tolva-image-helper", "tolva-pdf-helper"}) {
    std::filesystem::copy_file(std::filesystem::path(TOLVA_HELPERS) / name, folder / name);
  }
  folder.openToEverybody();
  EXPECT_EQ(asUnprivileged([&] {
              PreviewHelpers const open(folder.path());
              bool const picture = patiently([&] { return open.thumbnail(greyPNG(9, 9), noTask); }).has_value();
              auto const page =
                  patiently([&] { return open.firstPage(bytesOf(documentOf("/MediaBox[0 0 9 9]", "")), noTask); });
              return std::string(picture ? "picture " : "") + (page && page->png ? "page" : "");
            }),
            "picture page");
}

/// The test's working folder again when it goes.
struct WorkingFolderKept {
  std::filesystem::path const folder = std::filesystem::current_path();
  ~WorkingFolderKept() {
    std::error_code ignored;
    std::filesystem::current_path(folder, ignored);
  }
};

TEST(PreviewHelpers, StayWhereTheyWereWhenTheirFolderWasNamed) {
  WorkingFolderKept const kept;
  std::filesystem::path const folder = TOLVA_HELPERS;
  std::filesystem::current_path(folder.parent_path());
  PreviewHelpers const named(folder.filename());
  auto const gone = std::filesystem::temp_directory_path() / ("tolva-gone-" + std::to_string(::getpid()));
  std::filesystem::create_directory(gone);
  std::filesystem::current_path(gone);
  EXPECT_TRUE(patiently([&] { return named.thumbnail(greyPNG(9, 9), noTask); }));
  std::filesystem::remove(gone);
  EXPECT_FALSE(PreviewHelpers("helpers").thumbnail(greyPNG(9, 9), noTask)) << "no folder to look from, and no failure";
}

/// A folder with a script under both helpers' names.
class BadHelpers : public testing::Test {
 protected:
  PreviewHelpers running(std::string const& script) const {
    for (char const* name : {"tolva-image-helper", "tolva-pdf-helper"}) {
      ::chmod(folder_.write(name, "#!/bin/sh\n" + script + "\n").c_str(), 0755);
    }
    return PreviewHelpers(folder_.path());
  }

  TemporaryFolder const folder_;
  Bytes const picture_ = greyPNG(9, 9);
  Bytes const document_ = bytesOf(documentOf("/MediaBox[0 0 9 9]", ""));
};

TEST_F(BadHelpers, AnswerWhenTheyDoAsTheyShould) {
  std::ofstream(folder_ / "png", std::ios::binary)
      .write(reinterpret_cast<char const*>(picture_.data()), static_cast<long>(picture_.size()));
  auto const answering = running("cat >/dev/null; exec cat '" + (folder_ / "png").string() + "'");
  EXPECT_EQ(patiently([&] { return answering.thumbnail(picture_, noTask); }), picture_);
}

TEST_F(BadHelpers, AreNoAnswer) {
  folder_.write("locked", [] {
    Bytes const answer = HelperAnswer::encode({.locked = true});
    return std::string(answer.begin(), answer.end());
  }());
  std::string const good = "cat '" + (folder_ / "locked").string() + "'";
  ASSERT_TRUE(patiently([&] { return running(good).firstPage(document_, noTask); }))
      << "or the cases below prove nothing";
  std::string const scripts[] = {
      "exit 0",
      "exit 1",
      "kill -SEGV $$",
      "echo garbage",
      "exec cat /dev/urandom",
      "cat; echo more",
      good + "; exit 1",
      good + "; kill -KILL $$",
      good + "; " + good,
      "exec <&-; exit 0",
      good + "; exec <&- >&-; exec sleep 60",
      "exec sleep 60",
  };
  long const descriptors = openDescriptors();
  for (std::string const& script : scripts) {
    SCOPED_TRACE(script);
    auto const begun = uptime();
    EXPECT_FALSE(running(script).thumbnail(picture_, noTask));
    EXPECT_FALSE(running(script).firstPage(document_, noTask));
    EXPECT_LT(uptime() - begun, 30s);
    EXPECT_EQ(openDescriptors(), descriptors);
  }
}

TEST_F(BadHelpers, AreNoAnswerWhenTheyAreMissing) {
  for (PreviewHelpers const& absent : {PreviewHelpers(folder_ / "nowhere"), PreviewHelpers(std::filesystem::path())}) {
    EXPECT_FALSE(absent.thumbnail(picture_, noTask));
    EXPECT_FALSE(absent.firstPage(document_, noTask));
  }
}

TEST_F(BadHelpers, EndWithTheTask) {
  std::stop_source source;
  auto const hanging = running("exec sleep 60");
  std::jthread const canceller([&] {
    std::this_thread::sleep_for(100ms);
    source.request_stop();
  });
  EXPECT_THROW(hanging.thumbnail(picture_, source.get_token()), TaskCancelled);
  EXPECT_THROW(hanging.firstPage(document_, source.get_token()), TaskCancelled);
  EXPECT_THROW(hanging.thumbnail({}, source.get_token()), TaskCancelled);
}

TEST(PreviewHelpers, HoldTheHostToTheBoundsInBytes) {
  auto const answered = [](char const* program, Bytes const& request) {
    return ChildExchange{
        .program = std::filesystem::path(TOLVA_HELPERS) / program, .time = 60s, .mostAnswer = HelperAnswer::mostBytes}
        .ask(request, noTask)
        .has_value();
  };
  Bytes picture = greyPNG(9, 9);
  picture.resize(PreviewLimits::mostPicture);  // nothing of it is looked at behind the picture's end
  EXPECT_TRUE(answered("tolva-image-helper", picture));
  EXPECT_TRUE(thumbnail(picture));
  picture.push_back(0);
  EXPECT_FALSE(answered("tolva-image-helper", picture));
  EXPECT_FALSE(thumbnail(picture));

  std::size_t const rest = documentOf("/MediaBox[0 0 9 9]", "").size() + 5;  // its length takes six digits and not one
  Bytes document = bytesOf(documentOf("/MediaBox[0 0 9 9]", std::string(PreviewLimits::mostDocument - rest, ' ')));
  ASSERT_EQ(document.size(), PreviewLimits::mostDocument);
  EXPECT_TRUE(answered("tolva-pdf-helper", document));
  EXPECT_TRUE(patiently([&] { return helpers.firstPage(document, noTask); }));
  document.push_back(' ');
  EXPECT_FALSE(answered("tolva-pdf-helper", document));
  EXPECT_FALSE(helpers.firstPage(document, noTask));
}

TEST_F(BadHelpers, AreNotStartedForWhatNoHelperDecodes) {
  auto const telling = running("touch '" + (folder_ / "started").string() + "'");
  EXPECT_FALSE(telling.thumbnail(bytesOf("plain text"), noTask));
  EXPECT_FALSE(telling.firstPage(Bytes(PreviewLimits::mostDocument + 1), noTask));
  EXPECT_EQ(folder_.read("started"), "(no started)");
  EXPECT_FALSE(patiently([&] { return telling.thumbnail(picture_, noTask); }));
  EXPECT_EQ(folder_.read("started"), "");
}

}  // namespace
}  // namespace tolva
