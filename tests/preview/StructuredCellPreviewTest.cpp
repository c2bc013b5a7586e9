// SPDX-License-Identifier: Apache-2.0
#include "preview/StructuredCellPreview.hpp"

#include <gtest/gtest.h>
#include <locale.h>

#include <bit>
#include <cstdint>
#include <filesystem>
#include <limits>
#include <optional>
#include <sstream>
#include <string>
#include <string_view>

#include "platform/TaskCancellation.hpp"
#include "platform/UTF8.hpp"
#include "preview/PreviewHelpers.hpp"
#include "preview/TestPNG.hpp"
#include "preview/helpers/HelperAnswer.hpp"
#include "support/Corpora.hpp"
#include "support/GermanLocale.hpp"
#include "support/NoTask.hpp"
#include "support/Patience.hpp"
#include "support/Repeated.hpp"
#include "support/TemporaryFolder.hpp"

namespace tolva {
namespace {

using namespace std::string_literals;
using Text = StructuredCellPreview::Text;

std::optional<Text> preview(std::string_view bytes) {
  return StructuredCellPreview::text(Bytes(bytes.begin(), bytes.end()), noTask);
}

/// "Property List", "XML Outline" or "nothing".
std::string formatOf(std::string_view bytes) {
  auto const shown = preview(bytes);
  return shown ? shown->format : "nothing";
}

#define DECLARATION \
  R"(<!DOCTYPE plist PUBLIC "-//Apple//DTD PLIST 1.0//EN" "http://www.apple.com/DTDs/PropertyList-1.0.dtd">)"

std::string listXML(std::string const& lines) {
  return "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n" DECLARATION "\n<plist version=\"1.0\">\n" + lines +
         "</plist>\n";
}

struct FormatCase {
  char const* says;
  std::string bytes;
  std::string format;
};

FormatCase const formats[] = {
    {"nothing", "", "nothing"},
    {"a text", "hello", "nothing"},
    {"a text with an element", "a <b/>", "nothing"},
    {"an element", "<a/>", "XML Outline"},
    {"white space around it", " \n\u00A0\u2028<a/>\u3000\n", "XML Outline"},
    {"a byte order mark before it", "\uFEFF<a/>", "nothing"},
    {"white space before an XML declaration", "\n <?xml version='1.0'?><a/>", "XML Outline"},
    {"an entity in UTF-16", "<\0!\0E\0N\0T\0I\0T\0Y\0>\0"s, "nothing"},
    {"UTF-16", "<\0a\0/\0>\0"s, "nothing"},
    {"bytes that are not UTF-8", "<a>\xFF</a>", "nothing"},
    {"a surrogate in UTF-8", "<a>\xED\xA0\x80</a>", "nothing"},
    {"HTML that is not XML", "<p>one<p>two", "nothing"},
    {"an entity's declaration", "<!DOCTYPE a [<!ENTITY e \"x\">]><a>&e;</a>", "nothing"},
    {"a document type", "<!DOCTYPE a><a/>", "nothing"},
    {"a document type in lower case", "<!doctype a><a/>", "nothing"},
    {"a document type in a comment", "<a><!-- <!DOCTYPE --></a>", "nothing"},
    {"an entity in a comment, in mixed case", "<a><!-- <!eNtItY --></a>", "nothing"},
    {"an entity in CDATA", "<a><![CDATA[<!ENTITY]]></a>", "nothing"},
    {"an entity with a dotless i, which upper case makes an I", "<a><!-- <!entıty --></a>", "nothing"},
    {"an entity with a Y that has a ring, which upper case parts", "<a><!-- <!entitẙ --></a>", "nothing"},
    {"one with both", "<a><!-- <!EntıtẙX --></a>", "nothing"},
    {"both words without their marks", "<a>DOCTYPE ENTITY</a>", "XML Outline"},
    {"the published declaration", DECLARATION "<a/>", "XML Outline"},
    {"it in its place", "<?xml version=\"1.0\"?>\n" DECLARATION "\n<plist><true/></plist>", "Property List"},
    {"it before the XML declaration, which then has a line end before it", DECLARATION "\n<?xml version=\"1.0\"?><a/>",
     "nothing"},
    {"it within the document", "<a>" DECLARATION "</a>", "XML Outline"},
    {"it twice", DECLARATION DECLARATION "<a/>", "nothing"},
    {"it once and an entity", DECLARATION "<a><!-- <!ENTITY --></a>", "nothing"},
    {"it within another one", "<!DOC" DECLARATION "TYPE a><a/>", "nothing"},
    {"it in lower case",
     "<!doctype plist PUBLIC \"-//Apple//DTD PLIST 1.0//EN\" "
     "\"http://www.apple.com/DTDs/PropertyList-1.0.dtd\"><plist><true/></plist>",
     "nothing"},
    {"it with two blanks",
     "<!DOCTYPE  plist PUBLIC \"-//Apple//DTD PLIST 1.0//EN\" "
     "\"http://www.apple.com/DTDs/PropertyList-1.0.dtd\"><plist><true/></plist>",
     "nothing"},
    {"the declaration of an older list",
     "<!DOCTYPE plist PUBLIC \"-//Apple Computer//DTD PLIST 1.0//EN\" "
     "\"http://www.apple.com/DTDs/PropertyList-1.0.dtd\"><plist><true/></plist>",
     "nothing"},
    {"a list without any", "<plist><true/></plist>", "Property List"},
    {"a root that only looks like a list", "<Plist><true/></Plist>", "XML Outline"},
    {"an empty list", "<plist></plist>", "XML Outline"},
    {"a list with an unknown element", "<plist><nothing/></plist>", "XML Outline"},
    {"a list with a damaged number", "<plist><integer>42xy</integer></plist>", "XML Outline"},
    {"a list with a zero before a number", "<plist><integer>010</integer></plist>", "XML Outline"},
    {"a list with a foreign blank before a number", "<plist><integer>\u00A042</integer></plist>", "XML Outline"},
    {"a list of 32 levels", "<plist>" + repeated("<array>", 31) + repeated("</array>", 31) + "</plist>",
     "Property List"},
    {"an outline of 32 levels", repeated("<a>", 32) + repeated("</a>", 32), "XML Outline"},
    {"an outline of 33 levels", repeated("<a>", 33) + repeated("</a>", 33), "nothing"},
    {"a list of 2,048 elements", "<plist><array>" + repeated("<true/>", 2'046) + "</array></plist>", "Property List"},
    {"a list of 2,049 elements", "<plist><array>" + repeated("<true/>", 2'047) + "</array></plist>", "nothing"},
    {"a list of 33 levels", "<plist>" + repeated("<array>", 32) + repeated("</array>", 32) + "</plist>", "nothing"},
    {"the name of a binary list alone", "bplist00", "nothing"},
    {"a binary list of another version", "bplist01" + std::string(64, '\0'), "nothing"},
    {"65,536 bytes", "<a>" + std::string(65'536 - 7, ' ') + "</a>", "XML Outline"},
    {"65,537 bytes", "<a>" + std::string(65'537 - 7, ' ') + "</a>", "nothing"},
};

TEST(StructuredCellPreview, RecognisesTheFormatOfAText) {
  for (FormatCase const& one : formats) {
    SCOPED_TRACE(one.says);
    EXPECT_EQ(formatOf(one.bytes), one.format);
  }
}

TEST(StructuredCellPreview, ShowsAnOutline) {
  EXPECT_EQ(preview("<a b='1'>x</a>"), (Text{"XML Outline", "<a b=\"1\">\n  x\n</a>"}));
}

TEST(StructuredCellPreview, ShowsAPropertyListAsXML) {
  EXPECT_EQ(preview("<plist version='1.0'><dict><key>k</key><array><integer>-1</integer><real>1.5</real><true/>"
                    "<data>AAEC</data><date>2024-02-29T12:00:00Z</date><string>é</string></array></dict></plist>"),
            (Text{"Property List",
                  listXML("<dict>\n\t<key>k</key>\n\t<array>\n\t\t<integer>-1</integer>\n\t\t<real>1.5</real>\n"
                          "\t\t<true/>\n\t\t<data>\n\t\tAAEC\n\t\t</data>\n\t\t<date>2024-02-29T12:00:00Z</date>\n"
                          "\t\t<string>é</string>\n\t</array>\n</dict>\n")}));
}

/// A binary list whose bytes from 8 on are `objects`, with the offset of each.
std::string binaryList(std::string_view objects, std::initializer_list<int> offsets) {
  std::string list = "bplist00" + std::string(objects);
  auto const table = list.size();
  for (int const offset : offsets) list += static_cast<char>(offset);
  list += "\0\0\0\0\0\0\1\1"s;
  for (std::size_t const number : {offsets.size(), std::size_t{0}, table}) {
    for (int byte = 7; byte >= 0; --byte) list += static_cast<char>(number >> (8 * byte));
  }
  return list;
}

TEST(StructuredCellPreview, ShowsABinaryListAsXML) {
  EXPECT_EQ(preview(binaryList("\xD1\1\2\x51k\x22\x3F\xC0\0\0"s, {8, 11, 13})),
            (Text{"Property List", listXML("<dict>\n\t<key>k</key>\n\t<real>1.5</real>\n</dict>\n")}));
}

TEST(StructuredCellPreview, ShowsNothingOfABinaryListThatIsNotSafe) {
  EXPECT_EQ(preview(binaryList("\xA1\0"s, {8})), std::nullopt);
  EXPECT_EQ(preview(binaryList("\x80\1"s, {8})), std::nullopt);
}

TEST(StructuredCellPreview, ShowsNothingOfASafeListThatCannotBeWritten) {
  EXPECT_EQ(preview(binaryList("\0"s, {8})), std::nullopt);        // XML has no null
  EXPECT_EQ(preview(binaryList("\x51\xFF"s, {8})), std::nullopt);  // a byte that is not ASCII would not be UTF-8
  EXPECT_EQ(preview(binaryList("\xD1\1\1\x10\1"s, {8, 11})), std::nullopt);  // a key that is no string
}

struct BinaryTextCase {
  char const* says;
  std::string object;
  std::optional<std::string> shown;  // between its tags
};

BinaryTextCase const binaryTexts[] = {
    {"ASCII",
     "\x52"
     "ab",
     "ab"},
    {"no ASCII", "\x50", ""},
    {"ASCII with the three controls that XML knows", "\x53\t\n\r", "\t\n\r"},
    {"ASCII with a delete", "\x51\x7F", "\x7F"},
    {"ASCII with markup", "\x53<&>", "&lt;&amp;&gt;"},
    {"ASCII with a NUL",
     "\x53"
     "a\0b"s,
     {}},
    {"ASCII with a NUL at its end",
     "\x52"
     "a\0"s,
     {}},
    {"ASCII with a control character",
     "\x53"
     "a\1b",
     {}},
    {"ASCII with an escape", "\x51\x1B", {}},
    {"ASCII that is UTF-8", "\x52\xC3\xA9", {}},
    {"ASCII that is no character of XML in UTF-8", "\x53\xEF\xBF\xBE", {}},
    {"UTF-16", "\x62\0a\0\xE9"s, "aé"},
    {"UTF-16 with a pair", "\x63\xD8\x3D\xDE\0\0b"s, "\U0001F600b"},
    {"UTF-16 with two pairs", "\x64\xD8\x3D\xDE\0\xD8\x3D\xDE\1"s, "\U0001F600\U0001F601"},
    {"UTF-16 with the last pair of all, which is no character but known to XML", "\x62\xDB\xFF\xDF\xFF", "\U0010FFFF"},
    {"UTF-16 with a byte order mark", "\x62\xFE\xFF\0b"s, "\uFEFFb"},
    {"UTF-16 with the last character before the surrogates", "\x61\xD7\xFF", "\uD7FF"},
    {"UTF-16 with the first one behind them", "\x61\xE0\0"s, "\uE000"},
    {"UTF-16 with U+FFFD", "\x61\xFF\xFD", "\uFFFD"},
    {"UTF-16 with U+FFFE", "\x62\xFF\xFE\0b"s, {}},
    {"UTF-16 with U+FFFF", "\x61\xFF\xFF", {}},
    {"UTF-16 with a NUL", "\x63\0a\0\0\0b"s, {}},
    {"UTF-16 with a control character", "\x61\0\1"s, {}},
    {"UTF-16 with a high surrogate at its end", "\x61\xD8\0"s, {}},
    {"UTF-16 with a high surrogate before a letter", "\x62\xD8\0\0b"s, {}},
    {"UTF-16 with a low surrogate alone", "\x62\xDC\0\0b"s, {}},
    {"UTF-16 with two high surrogates", "\x63\xD8\0\xD8\0\xDC\0"s, {}},
    {"UTF-16 with a pair in the wrong order", "\x62\xDC\0\xD8\0"s, {}},
    {"a high surrogate whose other half stands behind the text", "\x61\xD8\0\xDC\0"s, {}},
};

TEST(StructuredCellPreview, ShowsABinaryTextAsItIsOrNotAtAll) {
  for (BinaryTextCase const& one : binaryTexts) {
    SCOPED_TRACE(one.says);
    std::optional<Text> value, key;
    if (one.shown) {
      value = {"Property List", listXML("<string>" + *one.shown + "</string>\n")};
      key = {"Property List", listXML("<dict>\n\t<key>" + *one.shown + "</key>\n\t<true/>\n</dict>\n")};
    }
    EXPECT_EQ(preview(binaryList(one.object, {8})), value);
    EXPECT_EQ(preview(binaryList("\xD1\1\2\x09" + one.object, {8, 12, 11})), key);
  }
}

TEST(StructuredCellPreview, ShowsNothingOfAListWithAnEmptyTextInUTF16) {
  // The reader takes a text of no units for damage. Writers give an empty text as ASCII.
  EXPECT_EQ(preview(binaryList("\x60", {8})), std::nullopt);
}

TEST(StructuredCellPreview, ShowsABinarySetAsAnArray) {
  // XML lists have no sets, and the members are what counts.
  EXPECT_EQ(preview(binaryList("\xC1\1\x09", {8, 10})),
            (Text{"Property List", listXML("<array>\n\t<true/>\n</array>\n")}));
}

struct DateCase {
  double seconds;                    // since 2001
  std::optional<std::string> shown;  // between its tags
};

DateCase const dates[] = {
    {0, "2001-01-01T00:00:00Z"},
    {-1, "2000-12-31T23:59:59Z"},
    {-31'622'400, "2000-01-01T00:00:00Z"},
    {252'423'993'599, "9999-12-31T23:59:59Z"},
    {252'423'993'599.5, "9999-12-31T23:59:59Z"},
    {252'423'993'600, {}},
    {-31'588'531'200, "1000-01-01T00:00:00Z"},
    {-31'588'531'201, "0999-12-31T23:59:59Z"},
    {-63'113'904'000, "0001-01-01T00:00:00Z"},
    {-63'145'526'400, "0000-01-01T00:00:00Z"},
    {-63'145'526'401, {}},
    {1e13, {}},
    {1e15, {}},
    {1e300, {}},
    {std::numeric_limits<double>::infinity(), {}},
    {-std::numeric_limits<double>::infinity(), {}},
    {std::numeric_limits<double>::quiet_NaN(), {}},
};

TEST(StructuredCellPreview, ShowsDatesOfTheYears0To9999) {
  for (DateCase const& date : dates) {
    SCOPED_TRACE(date.seconds);
    std::string object = "\x33";
    auto const bits = std::bit_cast<std::uint64_t>(date.seconds);
    for (int byte = 7; byte >= 0; --byte) object += static_cast<char>(bits >> (8 * byte));
    std::optional<Text> expected;
    if (date.shown) expected = {"Property List", listXML("<date>" + *date.shown + "</date>\n")};
    EXPECT_EQ(preview(binaryList(object, {8})), expected);
    if (date.shown) {
      EXPECT_EQ(preview("<plist><date>" + *date.shown + "</date></plist>"), expected);
    }
  }
}

TEST(StructuredCellPreview, PadsNothingButDates) {
  EXPECT_EQ(preview("<plist><array><date>0033-04-03T15:00:00Z</date><string><![CDATA[<date>33-]]></string>"
                    "<date>0987-01-01T00:00:00Z</date></array></plist>"),
            (Text{"Property List", listXML("<array>\n\t<date>0033-04-03T15:00:00Z</date>\n"
                                           "\t<string>&lt;date&gt;33-</string>\n"
                                           "\t<date>0987-01-01T00:00:00Z</date>\n</array>\n")}));
}

TEST(StructuredCellPreview, ReadsNumbersInEveryLocale) {
  GermanLocale const made;
  if (!made.isMade()) GTEST_SKIP() << "No German locale could be made: install the package locales.";
  locale_t const german = newlocale(LC_ALL_MASK, GermanLocale::name, nullptr);
  ASSERT_TRUE(german);
  locale_t const before = uselocale(german);
  auto const fromXML = preview("<plist><real>1.5</real></plist>");
  auto const fromBinary = preview(binaryList("\x22\x3F\xC0\0\0"s, {8}));
  EXPECT_EQ(uselocale(before), german) << "The locale of the thread was not put back.";
  freelocale(german);
  EXPECT_EQ(fromXML, (Text{"Property List", listXML("<real>1.5</real>\n")}));
  EXPECT_EQ(fromBinary, fromXML);
}

TEST(StructuredCellPreview, WritesAListOf262144Bytes) {
  // One string of text that is five times as long in XML, up to one byte beyond the limit.
  auto const list = [](std::size_t ampersands, std::size_t letters) {
    return "<plist><string><![CDATA[" + std::string(ampersands, '&') + std::string(letters, 'a') +
           "]]></string></plist>";
  };
  std::size_t const frame = listXML("<string></string>\n").size();
  std::size_t const ampersands = (262'144 - frame) / 5;
  std::size_t const letters = (262'144 - frame) % 5;
  auto const largest = preview(list(ampersands, letters));
  ASSERT_TRUE(largest);
  EXPECT_EQ(largest->format, "Property List");
  EXPECT_EQ(largest->text.size(), 262'144);
  EXPECT_EQ(formatOf(list(ampersands, letters + 1)), "XML Outline");
}

/// What a careless reader of tags takes for thousands of nested arrays, and XML for comments and attributes.
std::string const misleading[] = {
    "<?a \"?><!-- \" ?><plist>" + repeated("<array>", 4'000) + repeated("</array>", 4'000) +
        "</plist> --><plist><true/></plist>",
    "<plist>" + repeated("<array><dict a='\"'></dict></array><dict a='\"'/>", 600) + "</plist>",
    "<plist><string a='>'/><array b=\"><array><array>\"/></plist>",
    "<plist><!-- " + repeated("<array>", 4'000) + " --><![CDATA[" + repeated("<array>", 4'000) + "]]><true/></plist>",
};

TEST(StructuredCellPreview, NeverReadsMoreLevelsThanTheXMLHas) {
  for (auto const& bytes : misleading) {
    ASSERT_LE(bytes.size(), 65'536);
    auto const shown = preview(bytes);
    EXPECT_LE(shown ? shown->text.size() : 0, 65'536 + 4'096);
  }
  EXPECT_EQ(preview(misleading[0]), (Text{"Property List", listXML("<true/>\n")}));
}

TEST(StructuredCellPreview, ShowsNothingOnceItsTaskHasEnded) {
  std::stop_source source;
  source.request_stop();
  std::string_view const xml = "<a/>";
  EXPECT_EQ(StructuredCellPreview::text(Bytes(xml.begin(), xml.end()), source.get_token()), std::nullopt);
}

// Real data --------------------------------------------------------------------------------------

TEST(StructuredCellPreview, OutlinesTheConformanceSuiteAsItIsNoted) {
  TOLVA_NEEDS_CORPORA();
  for (auto const& row : corpusManifest("xml-w3c")) {
    SCOPED_TRACE(row[0]);
    // Refused by the suite for the line end before its declaration, which is trimmed here.
    bool const expected = row[3] == "outline expected" || row[0] == "xmltest/not-wf/sa/147.xml";
    EXPECT_EQ(formatOf(contents(corpusFile("xml-w3c/" + row[0]))), expected ? "XML Outline" : "nothing");
  }
}

TEST(StructuredCellPreview, ShowsEveryRealListThatAnotherReaderReads) {
  TOLVA_NEEDS_CORPORA();
  int lists = 0;
  for (auto const& row : corpusManifest("plist")) {
    SCOPED_TRACE(row[0]);
    bool const isBinary = row[2] == "bplist";
    auto const shown = preview(contents(corpusFile("plist/" + row[0])));
    if (isBinary) {
      EXPECT_EQ(shown.has_value(), row[3] == "pass" && row[4] == "parses");
    }
    if (!shown) continue;
    EXPECT_TRUE(isValidUTF8(shown->text));
    EXPECT_LE(shown->text.size(), 262'144);
    if (shown->format != "Property List") continue;
    ++lists;
    EXPECT_TRUE(preview(shown->text) == shown)
        << "What is shown is not a list that is shown the same way:" << shown->text;
  }
  EXPECT_GE(lists, 40);  // what falls to an outline depends on the reader's version
}

TEST(StructuredCellPreview, ShowsNothingOfNaughtyStringsButMarkup) {
  TOLVA_NEEDS_CORPORA();
  std::istringstream lines(contents(corpusFile("naughty-strings/blns.txt")));
  int outlines = 0;
  for (std::string line; std::getline(lines, line);) {
    auto const shown = preview(line);
    if (!shown) continue;
    EXPECT_EQ(shown->format, "XML Outline") << line;
    EXPECT_TRUE(line.starts_with('<')) << line;
    ++outlines;
  }
  EXPECT_GT(outlines, 0);
}

// PDF --------------------------------------------------------------------------------------------

using PDF = StructuredCellPreview::PDF;

std::string const tooLarge =
    "PDF preview is limited to complete values up to 256 KiB. Save Bytes preserves the original document.";
std::string const tooWide = "PDF page dimensions exceed preview limits.";
std::string const encrypted = "Encrypted PDF. Preview unavailable; original bytes remain available.";

std::string firstOf(std::string const& count) {
  return "PDF · First page of " + count + ". Static preview; links and scripts are not executed.";
}

PDF previewPDF(std::string_view bytes, PreviewHelpers const& helpers) {
  return patiently([&] { return StructuredCellPreview::pdf(Bytes(bytes.begin(), bytes.end()), helpers, noTask); });
}

/// A folder whose decoder of documents always gives one answer, and leaves a mark that it was asked.
class AnsweringHelper {
 public:
  explicit AnsweringHelper(PDFFirstPage const& page) {
    Bytes const answer = HelperAnswer::encode(page);
    auto const file = folder_.write("answer", {reinterpret_cast<char const*>(answer.data()), answer.size()});
    auto const script =
        "#!/bin/sh\n/bin/cat > '" + (folder_ / "asked").string() + "'\n/bin/cat '" + file.string() + "'\n";
    std::filesystem::permissions(folder_.write("tolva-pdf-helper", script), std::filesystem::perms::owner_all);
  }

  PreviewHelpers helpers() const { return PreviewHelpers(folder_.path()); }
  bool wasAsked() const { return std::filesystem::exists(folder_ / "asked"); }

 private:
  TemporaryFolder folder_;
};

struct PageCase {
  char const* says;
  PDFFirstPage page;
  PDF shown;
};

Bytes const picture = greyPNG(100, 50);
Bytes const largePicture = greyPNG(1'024, 1'024);

PageCase const pages[] = {
    {"a page", {false, 7, 100, 50, picture}, {picture, firstOf("7")}},
    {"an encrypted document", {.locked = true}, {{}, encrypted}},
    {"no pages", {.pageCount = 0}, {}},
    {"a page of 16,384 on both sides", {false, 1, 16'384, 16'384, largePicture}, {largePicture, firstOf("1")}},
    {"a page that is too wide", {false, 1, 16'385, 50, {}}, {{}, tooWide}},
    {"a page that is too high", {false, 1, 50, 16'384.5, {}}, {{}, tooWide}},
    {"a page without a width", {false, 1, 0, 50, {}}, {{}, tooWide}},
    {"a page of negative height", {false, 1, 50, -1, {}}, {{}, tooWide}},
    {"a page without end", {false, 1, std::numeric_limits<double>::infinity(), 50, {}}, {{}, tooWide}},
    {"a page of no number", {false, 1, 50, std::numeric_limits<double>::quiet_NaN(), {}}, {{}, tooWide}},
    {"a page that was not drawn", {false, 1, 100, 50, {}}, {}},
};

TEST(StructuredCellPreview, SaysWhatTheDecoderFound) {
  for (PageCase const& one : pages) {
    SCOPED_TRACE(one.says);
    AnsweringHelper const helper(one.page);
    EXPECT_EQ(previewPDF("%PDF-1.7", helper.helpers()), one.shown);
    EXPECT_TRUE(helper.wasAsked());
  }
}

TEST(StructuredCellPreview, AsksForNothingThatIsNoPDF) {
  AnsweringHelper const helper({.locked = true});
  for (char const* const bytes : {"", "%PDF", "%pdf-1.7", " %PDF-1.7", "PDF-1.7"}) {
    SCOPED_TRACE(bytes);
    EXPECT_EQ(previewPDF(bytes, helper.helpers()), PDF());
  }
  EXPECT_EQ(previewPDF(std::string(300'000, 'x'), helper.helpers()), PDF());
  EXPECT_FALSE(helper.wasAsked());
}

TEST(StructuredCellPreview, AsksForDocumentsOfUpTo256KiB) {
  AnsweringHelper const helper({.locked = true});
  auto const document = [](std::size_t bytes) { return "%PDF-" + std::string(bytes - 5, ' '); };
  EXPECT_EQ(previewPDF(document(262'145), helper.helpers()), (PDF{{}, tooLarge}));
  EXPECT_EQ(previewPDF(document(300'000), helper.helpers()), (PDF{{}, tooLarge}));
  EXPECT_FALSE(helper.wasAsked());
  EXPECT_EQ(previewPDF(document(262'144), helper.helpers()), (PDF{{}, encrypted}));
  EXPECT_TRUE(helper.wasAsked());
}

TEST(StructuredCellPreview, ShowsNoPDFWithoutADecoder) {
  TemporaryFolder const empty;
  EXPECT_EQ(previewPDF("%PDF-1.7", PreviewHelpers(empty.path())), PDF());
}

TEST(StructuredCellPreview, EndsAPDFWithItsTask) {
  AnsweringHelper const helper({.locked = true});
  std::stop_source source;
  source.request_stop();
  std::string_view const document = "%PDF-1.7";
  EXPECT_THROW(
      StructuredCellPreview::pdf(Bytes(document.begin(), document.end()), helper.helpers(), source.get_token()),
      TaskCancelled);
}

#ifdef TOLVA_HELPERS
TEST(StructuredCellPreview, DrawsTheFirstPageOfRealDocuments) {
  TOLVA_NEEDS_CORPORA();
  PreviewHelpers const helpers{std::filesystem::path(TOLVA_HELPERS)};
  int drawn = 0;
  for (auto const& row : corpusManifest("pdf-qpdf")) {
    SCOPED_TRACE(row[0]);
    auto const shown = previewPDF(contents(corpusFile("pdf-qpdf/" + row[0])), helpers);
    if (row[2] != "yes") {
      EXPECT_EQ(shown, PDF());
    } else if (row[3] == "encrypted, password needed") {
      EXPECT_EQ(shown, (PDF{{}, encrypted}));
    } else if (row[4] == "0") {
      EXPECT_EQ(shown, PDF());
    } else if (row[4] != "error") {
      EXPECT_EQ(shown.summary, firstOf(row[4]));
      EXPECT_TRUE(shown.thumbnailPNG);
      ++drawn;
    }
  }
  EXPECT_GT(drawn, 50);
}
#endif

}  // namespace
}  // namespace tolva
