// SPDX-License-Identifier: Apache-2.0
#include "preview/XMLOutline.hpp"

#include <gtest/gtest.h>

#include <optional>
#include <string>
#include <string_view>

#include "support/NoTask.hpp"
#include "support/Repeated.hpp"

namespace tolva {
namespace {

using namespace std::string_literals;

std::optional<std::string> outlineOf(std::string_view xml) {
  XMLOutline outline(noTask);
  if (!outline.parse(xml)) return {};
  return outline.text();
}

std::string nested(std::size_t levels) { return repeated("<a>", levels) + repeated("</a>", levels); }

struct OutlineCase {
  char const* says;
  std::string xml;
  std::optional<std::string> outline;
};

OutlineCase const outlines[] = {
    {"an empty element has both tags", "<a/>", "<a>\n</a>"},
    {"levels are indented", "<a><b><c/></b><d/></a>", "<a>\n  <b>\n    <c>\n    </c>\n  </b>\n  <d>\n  </d>\n</a>"},
    {"text is a level deeper than its element", "<a>x<b>y</b>z</a>", "<a>\n  x\n  <b>\n    y\n  </b>\n  z\n</a>"},
    {"text is trimmed", "<a>\n\t x y \u00A0\u2003\n</a>", "<a>\n  x y\n</a>"},
    {"white space alone has no line", "<a> \n <b/> \u2003 </a>", "<a>\n  <b>\n  </b>\n</a>"},
    {"line ends within a text stay", "<a>x\r\ny</a>", "<a>\n  x\ny\n</a>"},
    {"references are resolved", "<a>&lt;&amp;&#x41;&#233;</a>", "<a>\n  <&Aé\n</a>"},
    {"CDATA joins the text around it", "<a>x<![CDATA[<y>&amp;]]>z</a>", "<a>\n  x<y>&amp;z\n</a>"},
    {"a comment does not part a text", "<a>x<!-- c -->y<?p i?>z</a>", "<a>\n  xyz\n</a>"},
    {"attributes are sorted by name", R"(<a b="2" a="1" B="3"/>)", "<a B=\"3\" a=\"1\" b=\"2\">\n</a>"},
    {"attributes are escaped", R"(<a b='"\' c="&#9;&#10;&#13;" d="x&#x7F;é"/>)",
     R"(<a b="\"\\" c="\t\n\r" d="x)"s + "\x7F" + "é\">\n</a>"},
    {"line ends in attributes are blanks", "<a b=\"1\n2\"/>", "<a b=\"1 2\">\n</a>"},
    {"prefixes stay as they are", "<p:a xmlns:p='u'><q:b/></p:a>", "<p:a xmlns:p=\"u\">\n  <q:b>\n  </q:b>\n</p:a>"},
    {"a declaration, comments and instructions around the root", "<?xml version='1.0'?><!-- x --><?y z?><a/><!-- x -->",
     "<a>\n</a>"},
    {"another encoding's name", "<?xml version='1.0' encoding='UTF-16'?><a>é</a>", "<a>\n  é\n</a>"},
    {"an unknown encoding's name", "<?xml version='1.0' encoding='x-none'?><a/>", "<a>\n</a>"},
    {"nothing", "", {}},
    {"no element", "<!-- x -->", {}},
    {"an open element", "<a>", {}},
    {"an element that was not open", "</a>", {}},
    {"crossed elements", "<a><b></a></b>", {}},
    {"two roots", "<a/><b/>", {}},
    {"text behind the root", "<a/>x", {}},
    {"an attribute twice", "<a b='1' b='2'/>", {}},
    {"an unknown entity", "<a>&nbsp;</a>", {}},
    {"an unknown entity in an attribute", "<a b='&nbsp;'/>", {}},
    {"a control character", "<a>\x01</a>", {}},
    {"a reference to NUL", "<a>&#0;</a>", {}},
    {"a NUL", "<a>\0</a>"s, {}},
    {"UTF-16 with its low bytes first", "<\0a\0/\0>\0"s, {}},
    {"UTF-16 with its high bytes first", "\0<\0a\0/\0>"s, {}},
    {"bytes that are not UTF-8", "<a>\xFF</a>", {}},
    {"an open CDATA section", "<a><![CDATA[x</a>", {}},
    {"white space before the declaration", " <?xml version='1.0'?><a/>", {}},
    {"a document type", "<!DOCTYPE a><a/>", {}},
    {"a document type with an entity", "<!DOCTYPE a [<!ENTITY e 'x'>]><a>&e;</a>", {}},
    {"a document type from elsewhere", "<!DOCTYPE a SYSTEM 'file:///etc/passwd'><a/>", {}},
};

TEST(XMLOutline, ShowsEveryTagAndTextOnItsOwnLine) {
  for (OutlineCase const& one : outlines) {
    SCOPED_TRACE(one.says);
    EXPECT_EQ(outlineOf(one.xml), one.outline);
  }
}

TEST(XMLOutline, GoesDown32Levels) {
  EXPECT_TRUE(outlineOf(nested(32)));
  EXPECT_FALSE(outlineOf(nested(33)));
  EXPECT_FALSE(outlineOf(nested(1'000'000)));
}

TEST(XMLOutline, Shows2048Elements) {
  EXPECT_TRUE(outlineOf("<r>" + repeated("<a/>", 2'047) + "</r>"));
  EXPECT_FALSE(outlineOf("<r>" + repeated("<a/>", 2'048) + "</r>"));
}

TEST(XMLOutline, Writes65536BytesOfLines) {
  // The two tags are seven bytes, the two blanks before the text two.
  EXPECT_EQ(outlineOf("<a>" + std::string(65'536 - 9, 'x') + "</a>")->size(), 65'536 + 2);  // and two line feeds
  EXPECT_FALSE(outlineOf("<a>" + std::string(65'536 - 8, 'x') + "</a>"));
  EXPECT_FALSE(outlineOf("<a b='" + std::string(65'536, 'x') + "'/>"));
  EXPECT_FALSE(outlineOf("<a" + repeated("b", 65'536) + "/>"));
}

TEST(XMLOutline, CountsTheBlanksOfItsLines) {
  // 32 levels of indentation around each of 1,100 empty elements.
  EXPECT_FALSE(outlineOf(repeated("<a>", 31) + repeated("<b/>", 1'100) + repeated("</a>", 31)));
  EXPECT_TRUE(outlineOf("<a>" + repeated("<b/>", 1'100) + "</a>"));
}

TEST(XMLOutline, Holds65536BytesOfTextBetweenTwoTags) {
  // White space has no line, so only the text that waits for one is counted.
  EXPECT_TRUE(outlineOf("<a>" + std::string(65'536, ' ') + "</a>"));
  EXPECT_FALSE(outlineOf("<a>" + std::string(65'537, ' ') + "</a>"));
  EXPECT_TRUE(outlineOf("<a>" + std::string(65'536, ' ') + "<b/>" + std::string(65'536, ' ') + "</a>"));
}

TEST(XMLOutline, EndsWithItsTask) {
  std::stop_source source;
  source.request_stop();
  XMLOutline outline(source.get_token());
  EXPECT_FALSE(outline.parse("<a/>"));
}

TEST(XMLOutline, WritesAPropertyListInItsPlainestForm) {
  XMLOutline outline(noTask);
  ASSERT_TRUE(
      outline.parse(R"(<?xml version="1.0"?><?a "?><!-- " ?> <array> --><plist version="1.0"><dict b='"'>)"
                    R"( <key>&lt;a&amp;b<!-- x -->]]&gt;</key><string>x<![CDATA[y]]> é</string></dict></plist>)"));
  EXPECT_EQ(outline.root(), "plist");
  EXPECT_EQ(outline.plain(),
            "<plist><dict> <key><![CDATA[<a&b]]]]><![CDATA[>]]></key><string>xy é</string></dict></plist>");
}

TEST(XMLOutline, KeepsNoPlainFormOfOtherDocuments) {
  XMLOutline outline(noTask);
  ASSERT_TRUE(outline.parse("<a><plist/></a>"));
  EXPECT_EQ(outline.root(), "a");
  EXPECT_EQ(outline.plain(), "");
}

}  // namespace
}  // namespace tolva
