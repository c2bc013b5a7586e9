// SPDX-License-Identifier: Apache-2.0
#include "platform/Base64.hpp"

#include <gtest/gtest.h>

#include <random>

namespace tolva {
namespace {

Bytes bytesOf(std::string_view text) { return {text.begin(), text.end()}; }

struct Vector {
  std::string_view plain;
  std::string_view coded;
};

// RFC 4648, section 10.
Vector const vectors[] = {
    {"", ""},
    {"f", "Zg=="},
    {"fo", "Zm8="},
    {"foo", "Zm9v"},
    {"foob", "Zm9vYg=="},
    {"fooba", "Zm9vYmE="},
    {"foobar", "Zm9vYmFy"},
};

TEST(Base64, WritesAndReadsTheVectorsOfTheRFC) {
  for (Vector const& vector : vectors) {
    SCOPED_TRACE(vector.plain);
    EXPECT_EQ(base64(bytesOf(vector.plain)), vector.coded);
    EXPECT_EQ(bytesFromBase64(vector.coded), bytesOf(vector.plain));
  }
}

TEST(Base64, UsesTheStandardAlphabet) {
  EXPECT_EQ(base64(Bytes{0xFB, 0xEF, 0xBE, 0xFF, 0xFF, 0xFF}), "++++////");
  EXPECT_EQ(bytesFromBase64("++++////"), (Bytes{0xFB, 0xEF, 0xBE, 0xFF, 0xFF, 0xFF}));
}

struct Refused {
  std::string_view says;
  std::string_view coded;
};

Refused const refused[] = {
    {"padding is missing", "Zg"},
    {"padding is short", "Zg="},
    {"padding is too long", "Zg==="},
    {"padding follows a full group", "Zm9v===="},
    {"padding stands alone", "===="},
    {"one character is left", "Zm9vY"},
    {"unused bits of two characters are set", "Zh=="},
    {"unused bits of three characters are set", "Zm9="},
    {"text follows the padding", "Zg==Zg=="},
    {"a blank stands before", " Zm9v"},
    {"a blank stands behind", "Zm9v "},
    {"a line feed stands within", "Zm9v\nYmFy"},
    {"the alphabet is that for file names", "----____"},
    {"a character is foreign", "Zm9*"},
    {"a NUL follows", std::string_view("Zm9v\0", 5)},
};

TEST(Base64, RefusesWhatItWouldNotWrite) {
  for (Refused const& one : refused) {
    SCOPED_TRACE(one.says);
    EXPECT_EQ(bytesFromBase64(one.coded), std::nullopt);
  }
}

TEST(Base64, ReadsBackBytesOfEveryLength) {
  std::mt19937 random(1);
  for (std::size_t length = 0; length < 300; ++length) {
    Bytes bytes(length);
    for (auto& byte : bytes) byte = static_cast<std::uint8_t>(random());
    EXPECT_EQ(bytesFromBase64(base64(bytes)), bytes) << length;
  }
}

}  // namespace
}  // namespace tolva
