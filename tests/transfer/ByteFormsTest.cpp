// SPDX-License-Identifier: Apache-2.0
#include "transfer/ByteForms.hpp"

#include <gtest/gtest.h>

#include <cstdio>
#include <random>
#include <string>
#include <vector>

namespace tolva {
namespace {

/// A form written byte by byte.
using Literal = std::string (*)(char byte);

std::string printedEscape(char byte) {
  char text[8];
  std::snprintf(text, sizeof text, "\\u%04x", static_cast<unsigned>(static_cast<unsigned char>(byte)));
  return text;
}

std::string printedHex(char byte) {
  char text[4];
  std::snprintf(text, sizeof text, "%02X", static_cast<unsigned>(static_cast<unsigned char>(byte)));
  return text;
}

struct FormCase {
  char const* says;
  ByteForm form;
  Literal literal;
};

FormCase const forms[] = {
    {"doubled quotes", doubledQuotes, [](char byte) { return std::string(byte == '"' ? 2 : 1, byte); }},
    {"escaped", escapedBytes,
     [](char byte) {
       if (byte == '"' || byte == '\\') return std::string("\\") + byte;
       return static_cast<unsigned char>(byte) < 32 ? printedEscape(byte) : std::string(1, byte);
     }},
    {"hexadecimal digits", hexDigits, printedHex},
};

/// In a block of exactly the promised size, where a sanitizer sees each byte that is written too far.
std::string written(ByteForm const& form, std::string const& bytes) {
  std::vector<char> const in(bytes.begin(), bytes.end());
  std::vector<char> out(bytes.size() * form.mostGrowth);
  char const* const end = form.write(out.data(), {in.data(), in.size()});
  return std::string(out.data(), static_cast<std::size_t>(end - out.data()));
}

std::string transcribed(FormCase const& each, std::string const& bytes) {
  std::string text;
  for (char const byte : bytes) text += each.literal(byte);
  return text;
}

TEST(ByteForm, WritesEachByteAtEachPlaceOfAWord) {
  for (FormCase const& each : forms) {
    SCOPED_TRACE(each.says);
    for (int byte = 0; byte < 256; ++byte) {
      for (std::size_t size = 1; size <= 17; ++size) {
        for (std::size_t place = 0; place < size; ++place) {
          std::string bytes(size, '\xC3');
          bytes[place] = static_cast<char>(byte);
          ASSERT_EQ(written(each.form, bytes), transcribed(each, bytes)) << byte << " at " << place << " of " << size;
        }
      }
    }
  }
}

TEST(ByteForm, WritesAnyBytes) {
  std::mt19937 random(7);
  std::string const few = "\"\\\n\x1F !\x7F\x80\xFF";
  for (FormCase const& each : forms) {
    SCOPED_TRACE(each.says);
    EXPECT_EQ(written(each.form, ""), "");
    for (int round = 0; round < 2'000; ++round) {
      std::string bytes(random() % 40, '\0');
      for (char& byte : bytes) byte = random() % 2 ? few[random() % few.size()] : static_cast<char>(random());
      ASSERT_EQ(written(each.form, bytes), transcribed(each, bytes));
    }
  }
}

}  // namespace
}  // namespace tolva
