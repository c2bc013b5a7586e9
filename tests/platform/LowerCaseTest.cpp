// SPDX-License-Identifier: Apache-2.0
#include "platform/LowerCase.hpp"

#include <gtest/gtest.h>

namespace tolva {
namespace {

using namespace std::string_view_literals;

struct LowerCase {
  char const* says;
  std::string_view text;
  std::string_view lower;
};

LowerCase const cases[] = {
    {"nothing", "", ""},
    {"ASCII", "Customer ID_7", "customer id_7"},
    {"letters of two bytes", "ÄÖÜ Ñ", "äöü ñ"},
    {"another script", "ПРИВЕТ ΑΒΓ", "привет αβγ"},
    {"beyond the first plane", "\U00010400", "\U00010428"},
    {"a letter that becomes longer", "\u0130", "i\u0307"},
    {"a letter that becomes shorter", "\u212A", "k"},
    {"the I of English, not of Turkish", "I", "i"},
    {"what has no case", "漢字 ß 7", "漢字 ß 7"},
    {"a NUL", "A\0B"sv, "a\0b"sv},
};

TEST(LowerCase, MapsEveryLetter) {
  for (LowerCase const& each : cases) {
    SCOPED_TRACE(each.says);
    EXPECT_EQ(lowerUnicode(each.text), each.lower);
  }
}

TEST(LowerCase, TakesALongText) {
  std::string const upper(std::size_t{16} << 20, 'A');
  EXPECT_EQ(lowerUnicode(upper), std::string(upper.size(), 'a'));
}

}  // namespace
}  // namespace tolva
