// SPDX-License-Identifier: Apache-2.0
#include "preview/HexDump.hpp"

#include <gtest/gtest.h>

#include "platform/Bytes.hpp"

namespace tolva {
namespace {

struct DumpCase {
  char const* says;
  Bytes bytes;
  char const* text;
};

DumpCase const dumps[] = {
    {"no bytes", {}, ""},
    {"one", {0x0A}, "00000000  0A"},
    {"one row",
     {0, 1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13, 14, 15},
     "00000000  00 01 02 03 04 05 06 07 08 09 0A 0B 0C 0D 0E 0F"},
    {"one row and a byte",
     {255, 254, 253, 252, 251, 250, 249, 248, 247, 246, 245, 244, 243, 242, 241, 240, 'z'},
     "00000000  FF FE FD FC FB FA F9 F8 F7 F6 F5 F4 F3 F2 F1 F0\n00000010  7A"},
};

TEST(HexDump, ShowsRowsOfSixteen) {
  for (DumpCase const& dump : dumps) {
    SCOPED_TRACE(dump.says);
    EXPECT_EQ(hexDump(dump.bytes), dump.text);
  }
}

TEST(HexDump, SaysThatItEndsBeforeTheBytesDo) {
  std::string const whole = hexDump(Bytes(4096, 0xAB));
  EXPECT_TRUE(whole.ends_with("\n00000FF0  AB AB AB AB AB AB AB AB AB AB AB AB AB AB AB AB")) << whole.substr(12'000);
  EXPECT_EQ(hexDump(Bytes(4097, 0xAB)), whole + "\nHex display limited to first 4096 bytes.");
}

}  // namespace
}  // namespace tolva
