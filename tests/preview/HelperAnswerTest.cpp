// SPDX-License-Identifier: Apache-2.0
#include "preview/helpers/HelperAnswer.hpp"

#include <gtest/gtest.h>

#include <limits>
#include <string>

#include "preview/TestPNG.hpp"

namespace tolva {
namespace {

Bytes joined(std::initializer_list<Bytes> parts) {
  Bytes all;
  for (Bytes const& part : parts) all.insert(all.end(), part.begin(), part.end());
  return all;
}

Bytes const signature = {0x89, 'P', 'N', 'G', '\r', '\n', 0x1a, '\n'};

/// A chunk whose checksum is anything: nobody here looks at it.
Bytes chunk(std::string const& type, Bytes const& data) {
  auto const size = data.size();
  Bytes bytes = {static_cast<std::uint8_t>(size >> 24), static_cast<std::uint8_t>(size >> 16),
                 static_cast<std::uint8_t>(size >> 8), static_cast<std::uint8_t>(size)};
  bytes.insert(bytes.end(), type.begin(), type.end());
  return joined({bytes, data, {1, 2, 3, 4}});
}

Bytes header(unsigned width, unsigned height, Bytes const& form = {8, 2, 0, 0, 0}) {
  auto const big = [](unsigned n) {
    return Bytes{static_cast<std::uint8_t>(n >> 24), static_cast<std::uint8_t>(n >> 16),
                 static_cast<std::uint8_t>(n >> 8), static_cast<std::uint8_t>(n)};
  };
  return chunk("IHDR", joined({big(width), big(height), form}));
}

Bytes const pixels = chunk("IDAT", {1, 2, 3});
Bytes const end = chunk("IEND", {});

TEST(HelperAnswer, TakesAPNGOfOurEncodersAndNoOther) {
  Bytes const good = joined({signature, header(1024, 7), pixels, end});
  auto const ofSize = [](std::size_t size) {
    std::size_t const around = joined({signature, header(7, 7), chunk("IDAT", {}), end}).size();
    return joined({signature, header(7, 7), chunk("IDAT", Bytes(size - around)), end});
  };
  struct {
    char const* says;
    Bytes png;
    std::optional<PixelSize> size;
  } const cases[] = {
      {"the least", good, PixelSize{1024, 7}},
      {"one pixel, grey", joined({signature, header(1, 1, {8, 0, 0, 0, 0}), pixels, end}), PixelSize{1, 1}},
      {"with alpha", joined({signature, header(2, 3, {8, 6, 0, 0, 0}), pixels, end}), PixelSize{2, 3}},
      {"in pieces, with its gamma", joined({signature, header(2, 3), chunk("gAMA", {0, 0, 1, 2}), pixels, pixels, end}),
       PixelSize{2, 3}},
      {"too wide", joined({signature, header(1025, 7), pixels, end}), {}},
      {"too high", joined({signature, header(7, 1025), pixels, end}), {}},
      {"much too wide", joined({signature, header(0xffffffff, 7), pixels, end}), {}},
      {"no width", joined({signature, header(0, 7), pixels, end}), {}},
      {"a palette", joined({signature, header(7, 7, {8, 3, 0, 0, 0}), pixels, end}), {}},
      {"sixteen bits", joined({signature, header(7, 7, {16, 2, 0, 0, 0}), pixels, end}), {}},
      {"interlaced", joined({signature, header(7, 7, {8, 2, 0, 0, 1}), pixels, end}), {}},
      {"no header", joined({signature, pixels, end}), {}},
      {"two headers", joined({signature, header(7, 7), header(7, 7), pixels, end}), {}},
      {"a header with more in it", joined({signature, chunk("IHDR", Bytes(14, 1)), pixels, end}), {}},
      {"no pixels", joined({signature, header(7, 7), end}), {}},
      {"no end", joined({signature, header(7, 7), pixels}), {}},
      {"something behind the end", joined({good, {0}}), {}},
      {"an end with something in it", joined({signature, header(7, 7), pixels, chunk("IEND", {0})}), {}},
      {"a chunk that decoders have stumbled over",
       joined({signature, header(7, 7), chunk("iCCP", {1}), pixels, end}),
       {}},
      {"a length beyond the end", joined({signature, header(7, 7), {0xff, 0xff, 0xff, 0xff}, pixels, end}), {}},
      {"another signature", joined({{0x89, 'M', 'N', 'G', '\r', '\n', 0x1a, '\n'}, header(7, 7), pixels, end}), {}},
      {"nothing", {}, {}},
      {"as much as a thumbnail may take", ofSize(PreviewLimits::mostPNG), PixelSize{7, 7}},
      {"a byte more", ofSize(PreviewLimits::mostPNG + 1), {}},
  };
  for (auto const& one : cases) {
    SCOPED_TRACE(one.says);
    EXPECT_EQ(HelperAnswer::thumbnailSize(one.png), one.size);
  }
  for (std::size_t size = 0; size < good.size(); ++size) {
    SCOPED_TRACE(size);
    EXPECT_EQ(HelperAnswer::thumbnailSize(std::span(good).first(size)), std::nullopt) << "cut short";
  }
}

TEST(HelperAnswer, BringsAPageOverAsItIs) {
  PDFFirstPage const pages[] = {
      {.locked = true},
      {.pageCount = 0},
      {.pageCount = 30, .width = 612, .height = 792, .png = greyPNG(612, 792)},
      {.pageCount = std::numeric_limits<std::int32_t>::max(), .width = 16'384, .height = 0.25, .png = greyPNG(1024, 1)},
      {.pageCount = 1, .width = 16'384.5, .height = 100},
      {.pageCount = 1, .width = std::numeric_limits<double>::infinity(), .height = 100},
  };
  for (PDFFirstPage const& page : pages) {
    SCOPED_TRACE(page.width);
    EXPECT_EQ(HelperAnswer::decode(HelperAnswer::encode(page)), page);
  }
}

TEST(HelperAnswer, RefusesAPageThatContradictsItself) {
  Bytes const png = greyPNG(612, 792);
  struct {
    char const* says;
    PDFFirstPage page;
  } const cases[] = {
      {"locked, with pages", {.locked = true, .pageCount = 1}},
      {"locked, with a size", {.locked = true, .width = 1}},
      {"locked, with a picture", {.locked = true, .png = png}},
      {"no pages, with a picture", {.png = png}},
      {"no pages, with a size", {.height = 1}},
      {"fewer pages than none", {.pageCount = -1, .width = 612, .height = 792, .png = png}},
      {"more pages than a document can have", {.pageCount = 1LL << 31, .width = 612, .height = 792, .png = png}},
      {"a page without its picture", {.pageCount = 1, .width = 612, .height = 792}},
      {"a picture of another size", {.pageCount = 1, .width = 612, .height = 793, .png = png}},
      {"a picture of a page that is not drawn", {.pageCount = 1, .width = 20'000, .height = 792, .png = png}},
      {"no number", {.pageCount = 1, .width = std::numeric_limits<double>::quiet_NaN(), .height = 792, .png = png}},
      {"no picture", {.pageCount = 1, .width = 612, .height = 792, .png = Bytes(100)}},
  };
  for (auto const& one : cases) {
    SCOPED_TRACE(one.says);
    EXPECT_EQ(HelperAnswer::decode(HelperAnswer::encode(one.page)), std::nullopt);
  }
}

TEST(HelperAnswer, RefusesAnythingElse) {
  Bytes const locked = HelperAnswer::encode({.locked = true});
  EXPECT_EQ(locked.size(), HelperAnswer::pageHeader);
  for (std::size_t size = 0; size < locked.size(); ++size) {
    EXPECT_EQ(HelperAnswer::decode(std::span(locked).first(size)), std::nullopt) << size;
  }
  for (std::size_t place = 0; place <= 8; ++place) {
    Bytes other = locked;
    other[place] = static_cast<std::uint8_t>(other[place] + 1);
    EXPECT_EQ(HelperAnswer::decode(other), std::nullopt) << place;
  }
}

TEST(PreviewLimits, KeepAPageWithinTheThumbnail) {
  struct {
    double width, height;
    PixelSize size;
  } const cases[] = {{612, 792, {612, 792}},         {1024, 1024, {1024, 1024}}, {2048, 1024, {1024, 512}},
                     {16'384, 16'384, {1024, 1024}}, {0.5, 1.5, {1, 1}},         {16'384, 1, {1024, 1}},
                     {612.9, 792.9, {612, 792}}};
  for (auto const& one : cases) {
    SCOPED_TRACE(one.width);
    EXPECT_TRUE(PreviewLimits::draws(one.width, one.height));
    EXPECT_EQ(PreviewLimits::pageSize(one.width, one.height), one.size);
  }
  EXPECT_FALSE(PreviewLimits::draws(16'384.01, 1));
  EXPECT_FALSE(PreviewLimits::draws(1, 0));
  EXPECT_FALSE(PreviewLimits::draws(-1, 1));
  EXPECT_FALSE(PreviewLimits::draws(1, std::numeric_limits<double>::quiet_NaN()));
}

TEST(PreviewLimits, JudgeAPictureByTheSizeItAnnounces) {
  EXPECT_TRUE(PreviewLimits::decodes(1, 1));
  EXPECT_TRUE(PreviewLimits::decodes(16'384, 2441));
  EXPECT_TRUE(PreviewLimits::decodes(8000, 5000)) << "40,000,000";
  EXPECT_FALSE(PreviewLimits::decodes(8001, 5000));
  EXPECT_FALSE(PreviewLimits::decodes(16'385, 1));
  EXPECT_FALSE(PreviewLimits::decodes(1, 16'385));
  EXPECT_FALSE(PreviewLimits::decodes(20'000, 100));
  EXPECT_FALSE(PreviewLimits::decodes(0, 1));
}

}  // namespace
}  // namespace tolva
