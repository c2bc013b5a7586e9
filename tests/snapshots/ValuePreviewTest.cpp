// SPDX-License-Identifier: Apache-2.0
#include "snapshots/ValuePreview.hpp"

#include <gtest/gtest.h>

#include <string>

#include "core/SQLiteConnection.hpp"
#include "core/SQLiteStatement.hpp"

namespace tolva {
namespace {

std::string previewOf(std::string const& expression, char const* encoding = "UTF-8") {
  auto const connection = SQLiteConnection::open({}, {.readOnly = false, .inMemory = true});
  connection->execute("PRAGMA encoding='" + std::string(encoding) + "'");
  SQLiteStatement row = connection->prepare("SELECT " + expression);
  EXPECT_TRUE(row.step());
  return valuePreview(row, 0);
}

struct PreviewCase {
  char const* expression;
  std::string preview;
};

TEST(ValuePreview, ShowsTheStorageClassAndTheValue) {
  PreviewCase const cases[] = {
      {"NULL", "NULL"},
      {"5", "INTEGER 5"},
      {"-9223372036854775808", "INTEGER -9223372036854775808"},
      {"1.0", "REAL 1.0"},
      {"0.1", "REAL 0.1"},
      {"9e999", "REAL inf"},
      {"''", "TEXT \"\""},
      {"'a'", "TEXT \"a\""},
      {"x''", "BLOB (0 bytes)"},
      {"zeroblob(2)", "BLOB hex 0000 [2 bytes]"},
      {"x'00FF'", "BLOB hex 00ff [2 bytes]"},
      {"CAST(x'FF61' AS TEXT)", "TEXT UTF-8 hex ff61 [2 bytes]"},
  };
  for (PreviewCase const& each : cases) EXPECT_EQ(previewOf(each.expression), each.preview) << each.expression;
}

TEST(ValuePreview, EscapesWhatWouldBreakOrReorderALine) {
  PreviewCase const cases[] = {
      {R"('say "a\b"')", R"(TEXT "say \"a\\b\"")"},
      {"char(10, 13, 9)", R"(TEXT "\n\r\t")"},
      {"char(0, 49, 0)", R"(TEXT "\u{0}1\u{0}")"},
      {"char(27, 127, 133)", R"(TEXT "\u{1b}\u{7f}\u{85}")"},
      {"char(0x2028, 0x2029)", R"(TEXT "\u{2028}\u{2029}")"},
      {"char(0x202e, 0x2066, 0x200f, 0x61c, 0xfeff)", R"(TEXT "\u{202e}\u{2066}\u{200f}\u{61c}\u{feff}")"},
      {"char(0x200b, 0x200c, 0x200d, 0x180e)", R"(TEXT "\u{200b}\u{200c}\u{200d}\u{180e}")"},
      {"char(0x2060, 0x2064, 0xe0001, 0xe007f)", R"(TEXT "\u{2060}\u{2064}\u{e0001}\u{e007f}")"},
      {"char(0x200a, 0x2010, 0x205f, 0x206a, 0xe0100)", "TEXT \"\u200a\u2010\u205f\u206a\U000e0100\""},
      {"char(0xe4, 0x4e2d, 0x1f600, 0xa0)", "TEXT \"\u00e4\u4e2d\U0001F600\u00a0\""},
  };
  for (PreviewCase const& each : cases) EXPECT_EQ(previewOf(each.expression), each.preview) << each.expression;
}

TEST(ValuePreview, CutsATextBehind1024BytesAndABlobBehind64) {
  std::string const longest(1024, 'a');
  std::string const hex(128, 'a');
  EXPECT_EQ(previewOf("'" + longest + "'"), "TEXT \"" + longest + "\"");
  EXPECT_EQ(previewOf("'" + longest + "b'"), "TEXT \"" + longest + "\"\u2026 [1025 bytes]");
  EXPECT_EQ(previewOf("x'" + hex + "'"), "BLOB hex " + hex + " [64 bytes]");
  EXPECT_EQ(previewOf("x'" + hex + "bb'"), "BLOB hex " + hex + "\u2026 [65 bytes]");
}

TEST(ValuePreview, ShowsATextWhoseCharacterIsSplitInHexadecimal) {
  std::string const before(1023, 'a');
  std::string hex;
  for (int byte = 0; byte < 1023; ++byte) hex += "61";
  EXPECT_EQ(previewOf("'" + before + "\u00e4'"), "TEXT UTF-8 hex " + hex + "c3\u2026 [1025 bytes]");
  EXPECT_EQ(previewOf("'" + before.substr(1) + "\u00e4'"), "TEXT \"" + before.substr(1) + "\u00e4\"");
}

TEST(ValuePreview, StaysSmallHoweverLargeTheValue) {
  EXPECT_EQ(previewOf("zeroblob(900000)"), "BLOB hex " + std::string(128, '0') + "\u2026 [900000 bytes]");
  EXPECT_LT(previewOf("replace(hex(zeroblob(400000)), '0', char(1))").size(), 8000U);
}

TEST(ValuePreview, CountsTheBytesOfUTF8WhateverIsStored) {
  for (char const* encoding : {"UTF-8", "UTF-16le", "UTF-16be"}) {
    EXPECT_EQ(previewOf("'\u00e4\U0001F600'", encoding), "TEXT \"\u00e4\U0001F600\"") << encoding;
    EXPECT_TRUE(previewOf("hex(zeroblob(600)) || '\u00e4'", encoding).ends_with("\u2026 [1202 bytes]")) << encoding;
    EXPECT_EQ(previewOf("''", encoding), "TEXT \"\"") << encoding;
  }
}

}  // namespace
}  // namespace tolva
