// SPDX-License-Identifier: Apache-2.0
#include "preview/PropertyListGrammar.hpp"

#include <gtest/gtest.h>

#include <string>

#include "preview/XMLOutline.hpp"
#include "support/NoTask.hpp"

namespace tolva {
namespace {

bool isList(std::string const& elements) {
  XMLOutline outline(noTask);
  EXPECT_TRUE(outline.parse(elements)) << "no XML";
  return outline.isPropertyList();
}

struct ValueCase {
  std::string element;  // the only one of its list
  bool sound;
};

ValueCase const values[] = {
    {"<true/>", true},
    {"<false></false>", true},
    {"<true> </true>", true},
    {"<true>x</true>", false},
    {"<true><false/></true>", false},
    {"<null/>", false},
    {"<True/>", false},
    {"<plist><true/></plist>", false},
    {"<string/>", true},
    {"<string> any &lt;text&gt; </string>", true},
    {"<string><true/></string>", false},
    {"<key>k</key>", false},
    {"<integer>0</integer>", true},
    {"<integer>-42</integer>", true},
    {"<integer>+42</integer>", true},
    {"<integer>\n 42 </integer>", true},
    {"<integer>0x7fFF</integer>", true},
    {"<integer>-9223372036854775808</integer>", true},
    {"<integer>-9223372036854775809</integer>", false},
    {"<integer>18446744073709551615</integer>", true},
    {"<integer>18446744073709551616</integer>", false},
    {"<integer>42xy</integer>", false},
    {"<integer>4 2</integer>", false},
    {"<integer>1.5</integer>", false},
    {"<integer>--1</integer>", false},
    {"<integer>0x</integer>", false},
    {"<integer>-</integer>", false},
    {"<integer/>", false},
    {"<integer>010</integer>", false},
    {"<integer>09</integer>", false},
    {"<integer>-010</integer>", false},
    {"<integer>+010</integer>", false},
    {"<integer>00</integer>", false},
    {"<integer>-0</integer>", true},
    {"<integer>0x010</integer>", true},
    {"<real>1.5e-3</real>", true},
    {"<real> -1 </real>", true},
    {"<real>nan</real>", true},
    {"<real>-infinity</real>", true},
    {"<real>1e308</real>", true},
    {"<real>1e309</real>", false},
    {"<real>-1e400</real>", false},
    {"<real>INF</real>", true},
    {"<real>1e-300</real>", true},
    {"<real>1e-400</real>", false},
    {"<real>-0.000e-400</real>", true},
    {"<real>1,5</real>", false},
    {"<real/>", false},
    {"<integer>\u00A042</integer>", false},
    {"<integer>42\u2003</integer>", false},
    {"<integer>\u008542</integer>", false},
    {"<real>\u00A01.5</real>", false},
    {"<real>1.5\u00A0</real>", false},
    {"<real>\t\r\n 1.5\t\r\n </real>", true},
    {"<true>\u00A0</true>", false},
    {"<array>\u00A0<true/></array>", false},
    {"<dict>\u00A0<key>k</key><true/></dict>", false},
    {"<date>2024-02-29T23:59:59Z</date>", true},
    {"<date>0000-12-30T00:00:00Z</date>", true},
    {"<date>2024-02-30T00:00:00Z</date>", false},
    {"<date>2024-02-29T24:00:00Z</date>", false},
    {"<date>2024-02-29T23:60:00Z</date>", false},
    {"<date>2024-02-29T23:59:60Z</date>", false},
    {"<date>2024-02-29T23:59:59</date>", false},
    {"<date>2024-02-29</date>", false},
    {"<date> 2024-02-29T23:59:59Z</date>", false},
    {"<date/>", false},
    {"<data/>", true},
    {"<data>\n\tAAEC\n\tAw==\n</data>", true},
    {"<data>AAE</data>", false},
    {"<data>AA-_</data>", false},
    {"<data>@@@</data>", false},
    {"<array/>", true},
    {"<array> <true/> <dict/> <array/> </array>", true},
    {"<array>x</array>", false},
    {"<array><key>k</key></array>", false},
    {"<array><integer>x</integer><true/></array>", false},
    {"<dict/>", true},
    {"<dict><key/><true/><key>k</key><dict><key>k</key><array/></dict></dict>", true},
    {"<dict><key>k</key></dict>", false},
    {"<dict><true/></dict>", false},
    {"<dict><true/><key>k</key></dict>", false},
    {"<dict><key>k</key><key>k</key></dict>", false},
    {"<dict><key>k</key><true/><key>k</key><false/></dict>", false},
    {"<dict><key>k</key><true/><key>&#107;</key><true/></dict>", false},
    {"<dict><key/><true/><key></key><true/></dict>", false},
    {"<dict><key>k</key><true/><key>K</key><true/><key> k</key><true/></dict>", true},
    {"<dict><key>k</key><dict><key>k</key><true/></dict><key>l</key><dict><key>k</key><true/></dict></dict>", true},
    {"<dict>x<key>k</key><true/></dict>", false},
};

TEST(PropertyListGrammar, LeavesTheReaderNothingToGuess) {
  for (ValueCase const& value : values) {
    SCOPED_TRACE(value.element);
    EXPECT_EQ(isList("<plist>" + value.element + "</plist>"), value.sound);
  }
}

TEST(PropertyListGrammar, WantsOneValueInAList) {
  EXPECT_TRUE(isList("<plist version='1.0'>\n<true/>\n</plist>"));
  EXPECT_FALSE(isList("<plist/>"));
  EXPECT_FALSE(isList("<plist><true/><true/></plist>"));
  EXPECT_FALSE(isList("<plist>x<true/></plist>"));
  EXPECT_FALSE(isList("<array><plist><true/></plist></array>"));
  EXPECT_FALSE(isList("<true/>"));
}

}  // namespace
}  // namespace tolva
