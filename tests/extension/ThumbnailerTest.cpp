// SPDX-License-Identifier: Apache-2.0
#include <gtest/gtest.h>

#include <string>

#include "support/Command.hpp"
#include "support/TemporaryDatabase.hpp"
#include "support/TemporaryFolder.hpp"

// The thumbnailer as a file manager calls it.

namespace tolva {
namespace {

class Thumbnailer : public testing::Test {
 protected:
  CommandResult run(std::string const& size, std::string const& input, std::string const& output) const {
    return runCommand({TOLVA_THUMBNAILER, size, (folder / input).string(), (folder / output).string()});
  }

  /// A big-endian number of the picture's header (https://www.w3.org/TR/png-3/#11IHDR).
  std::uint32_t header(std::size_t offset) const {
    std::string const png = folder.read("out.png");
    std::uint32_t number = 0;
    for (std::size_t byte = 0; byte < 4; ++byte)
      number = number << 8 | static_cast<std::uint8_t>(png.at(offset + byte));
    return number;
  }

  TemporaryFolder const folder;
  TemporaryDatabase const database{folder, "t.db", "CREATE TABLE a(b)"};
};

TEST_F(Thumbnailer, DrawsAPictureOfAtMostTheSizeAsked) {
  struct SizeCase {
    char const* size;
    std::uint32_t width;
    std::uint32_t height;
  };
  SizeCase const sizes[] = {{"1", 1, 1},          {"128", 128, 91},          {"256", 256, 181},
                            {"650", 650, 460},    {"1024", 1024, 725},       {"4096", 4096, 2899},
                            {"4097", 4096, 2899}, {"2147483647", 4096, 2899}};
  for (SizeCase const& each : sizes) {
    SCOPED_TRACE(each.size);
    CommandResult const result = run(each.size, "t.db", "out.png");
    EXPECT_EQ(result.status, 0) << result.errors;
    EXPECT_TRUE(folder.read("out.png").starts_with("\x89PNG\r\n\x1a\n"));
    EXPECT_EQ(header(16), each.width);
    EXPECT_EQ(header(20), each.height);
  }
}

TEST_F(Thumbnailer, WritesNothingWhenItFails) {
  folder.write("noise.db", std::string(5000, 'x'));
  CommandResult const result = run("256", "noise.db", "out.png");
  EXPECT_EQ(result.status, 1);
  EXPECT_EQ(result.output, "");
  EXPECT_NE(result.errors.find("SQLite cannot recognize this file."), std::string::npos) << result.errors;
  EXPECT_EQ(folder.names(), (std::vector<std::string>{"noise.db", "t.db"}));
}

TEST_F(Thumbnailer, LeavesAnEarlierPictureWhenItFails) {
  folder.write("out.png", "earlier");
  EXPECT_EQ(run("256", "none.db", "out.png").status, 1);
  EXPECT_EQ(folder.read("out.png"), "earlier");
}

TEST_F(Thumbnailer, ReplacesThePictureThatTheFileManagerPrepared) {
  folder.write("out.png", "prepared");
  EXPECT_EQ(run("256", "t.db", "out.png").status, 0);
  EXPECT_TRUE(folder.read("out.png").starts_with("\x89PNG"));
}

TEST_F(Thumbnailer, RefusesASizeThatIsNone) {
  for (char const* const size : {"0", "-1", "", "12x", "2147483648", "1.5"}) {
    SCOPED_TRACE(size);
    CommandResult const result = run(size, "t.db", "out.png");
    EXPECT_EQ(result.status, 1);
    EXPECT_EQ(result.errors, "Usage: tolva-quicklook-thumbnailer SIZE INPUT OUTPUT\n");
  }
  EXPECT_EQ(folder.names(), (std::vector<std::string>{"t.db"}));
}

TEST_F(Thumbnailer, DrawsNamesThatNoFaceCanShow) {
  std::string name = "a";
  for (int mark = 0; mark < 30'000; ++mark) name += "\u0301";
  database.run("CREATE TABLE \"" + name +
               "\"(x); CREATE TABLE \"tab\tline\nfeed\x1b[31m\x7f\"(x);"
               "CREATE TABLE \"\xff\xfe\"(x); CREATE TABLE \"" +
               std::string(60'000, 'W') + "\"(x)");
  CommandResult const result = run("256", "t.db", "out.png");
  EXPECT_EQ(result.status, 0);
  EXPECT_EQ(result.errors, "");
  EXPECT_EQ(header(16), 256);
}

}  // namespace
}  // namespace tolva
