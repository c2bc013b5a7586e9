// SPDX-License-Identifier: Apache-2.0
#include "platform/UUID.hpp"

#include <gtest/gtest.h>

#include <set>

namespace tolva {
namespace {

constexpr UUID::Octets octets{0x01, 0x23, 0x45, 0x67, 0x89, 0xAB, 0xCD, 0xEF,
                              0xFE, 0xDC, 0xBA, 0x98, 0x76, 0x54, 0x32, 0x10};

TEST(UUID, WritesUpperCase) {
  EXPECT_EQ(UUID(octets).text(), "01234567-89AB-CDEF-FEDC-BA9876543210");
  EXPECT_EQ(UUID().text(), "00000000-0000-0000-0000-000000000000");
}

TEST(UUID, ReadsEitherCase) {
  for (std::string_view const text : {"01234567-89AB-CDEF-FEDC-BA9876543210", "01234567-89ab-cdef-fedc-ba9876543210",
                                      "01234567-89aB-CDef-fedc-BA9876543210"}) {
    SCOPED_TRACE(text);
    EXPECT_EQ(UUID::parse(text), UUID(octets));
  }
}

struct Refused {
  std::string_view says;
  std::string_view text;
};

Refused const refused[] = {
    {"nothing", ""},
    {"one digit is missing", "01234567-89AB-CDEF-FEDC-BA987654321"},
    {"one digit is too many", "01234567-89AB-CDEF-FEDC-BA98765432100"},
    {"no hyphens", "0123456789ABCDEFFEDCBA9876543210"},
    {"no hyphens, but 36 digits", "0123456789ABCDEFFEDCBA98765432100000"},
    {"a hyphen too early", "0123456-789AB-CDEF-FEDC-BA9876543210"},
    {"hyphens where digits belong", "01234567-89AB-CDEF-FEDC-BA98765432--"},
    {"braces", "{01234567-89AB-CDEF-FEDC-BA9876543210}"},
    {"braces within 36 characters", "{1234567-89AB-CDEF-FEDC-BA987654321}"},
    {"a blank before", " 01234567-89AB-CDEF-FEDC-BA9876543210"},
    {"a foreign letter", "0123456G-89AB-CDEF-FEDC-BA9876543210"},
    {"the character before 0", "0123456/-89AB-CDEF-FEDC-BA9876543210"},
    {"the character behind 9", "0123456:-89AB-CDEF-FEDC-BA9876543210"},
    {"a NUL behind", std::string_view("01234567-89AB-CDEF-FEDC-BA9876543210\0", 37)},
};

TEST(UUID, RefusesEveryOtherForm) {
  for (Refused const& one : refused) {
    SCOPED_TRACE(one.says);
    EXPECT_EQ(UUID::parse(one.text), std::nullopt);
  }
}

TEST(UUID, MakesRandomOnesOfVersionFour) {
  std::set<UUID> made;
  for (int i = 0; i < 1000; ++i) {
    auto const uuid = UUID::make();
    EXPECT_EQ(uuid.octets()[6] & 0xF0, 0x40);
    EXPECT_EQ(uuid.octets()[8] & 0xC0, 0x80);
    EXPECT_EQ(UUID::parse(uuid.text()), uuid);
    made.insert(uuid);
  }
  EXPECT_EQ(made.size(), 1000u);
}

TEST(UUID, IsOrderedByItsBytes) {
  EXPECT_LT(UUID(), UUID(octets));
  EXPECT_EQ(UUID(octets), UUID(octets));
}

}  // namespace
}  // namespace tolva
