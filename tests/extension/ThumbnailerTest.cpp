// SPDX-License-Identifier: Apache-2.0
#include <cairo.h>
#include <gtest/gtest.h>
#include <sys/stat.h>

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
  EXPECT_EQ(run("256", "t.db", "out.png").status, 0);
  std::string const earlier = folder.read("out.png");
  EXPECT_EQ(run("128", "none.db", "out.png").status, 1);
  EXPECT_EQ(folder.read("out.png"), earlier);
}

TEST_F(Thumbnailer, ReplacesWhatAFileManagerPreparedAndAnEarlierPicture) {
  folder.write("out.png", "");
  EXPECT_EQ(run("256", "t.db", "out.png").status, 0);
  EXPECT_EQ(header(16), 256);
  EXPECT_EQ(run("128", "t.db", "out.png").status, 0);
  EXPECT_EQ(header(16), 128);
}

TEST_F(Thumbnailer, ReplacesALinkAndNotWhatItLeadsTo) {
  std::filesystem::create_symlink("t.db", folder / "out.png");
  std::string const before = folder.read("t.db");
  EXPECT_EQ(run("256", "t.db", "out.png").status, 0);
  EXPECT_EQ(header(16), 256);
  EXPECT_EQ(folder.read("t.db"), before);
}

TEST_F(Thumbnailer, NeverReplacesAFileThatIsNoPicture) {
  folder.write("notes.txt", "a person's file");
  std::filesystem::create_hard_link(folder / "t.db", folder / "second-name.db");
  std::filesystem::create_directory(folder / "folder");
  ASSERT_EQ(mkfifo((folder / "pipe").c_str(), 0600), 0);
  std::string const before = folder.read("t.db");
  for (char const* const output : {"t.db", "second-name.db", "notes.txt", "folder", "pipe"}) {
    SCOPED_TRACE(output);
    CommandResult const result = run("256", "t.db", output);
    EXPECT_EQ(result.status, 1);
    EXPECT_NE(result.errors.find("The output is there already and no picture"), std::string::npos) << result.errors;
  }
  EXPECT_EQ(folder.read("t.db"), before);
  EXPECT_EQ(folder.read("notes.txt"), "a person's file");
  EXPECT_TRUE(std::filesystem::is_fifo(folder / "pipe"));
}

TEST_F(Thumbnailer, DrawsDarkTextOnWhiteWithinTheMargin) {
  ASSERT_EQ(run("650", "t.db", "out.png").status, 0);
  cairo_surface_t* const picture = cairo_image_surface_create_from_png((folder / "out.png").c_str());
  ASSERT_EQ(cairo_surface_status(picture), CAIRO_STATUS_SUCCESS);
  int inside = 0;
  int outside = 0;
  for (int y = 0; y < 460; ++y) {
    unsigned char const* const line =
        cairo_image_surface_get_data(picture) + y * cairo_image_surface_get_stride(picture);
    for (int x = 0; x < 650; ++x) {
      bool const margin = x < 16 || x >= 634 || y < 16 || y >= 444;
      if (line[4 * x] < 128) ++(margin ? outside : inside);
    }
  }
  cairo_surface_destroy(picture);
  EXPECT_GT(inside, 500);
  EXPECT_EQ(outside, 0);
}

TEST_F(Thumbnailer, FailsWhereNoFontShowsTheText) {
  folder.write("fonts.conf", "<?xml version='1.0'?><fontconfig><dir>/nonexistent</dir></fontconfig>");
  CommandResult const result =
      runCommand({TOLVA_THUMBNAILER, "256", (folder / "t.db").string(), (folder / "out.png").string()},
                 {.environment = {"FONTCONFIG_FILE=" + (folder / "fonts.conf").string()}});
  EXPECT_EQ(result.status, 1);
  EXPECT_NE(result.errors.find("no font shows the text"), std::string::npos) << result.errors;
  EXPECT_FALSE(std::filesystem::exists(folder / "out.png"));
}

TEST_F(Thumbnailer, AnswersHelpAndVersionAndFailsWhenTheyCannotBeWritten) {
  CommandResult const version = runCommand({TOLVA_THUMBNAILER, "--version"});
  EXPECT_EQ(version.status, 0);
  EXPECT_EQ(version.output, "tolva-quicklook-thumbnailer " TOLVA_VERSION "\n");
  EXPECT_EQ(runCommand({TOLVA_THUMBNAILER, "--help"}).output, "Usage: tolva-quicklook-thumbnailer SIZE INPUT OUTPUT\n");
  EXPECT_EQ(runCommand({TOLVA_THUMBNAILER, "--version"}, {.output = "/dev/full"}).status, 1);
  EXPECT_EQ(runCommand({TOLVA_THUMBNAILER}).status, 1);
  EXPECT_EQ(runCommand({TOLVA_THUMBNAILER, "256", "a", "b", "c"}).status, 1);
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
