// SPDX-License-Identifier: Apache-2.0
#include "transfer/SpreadsheetCodec.hpp"

#include <gtest/gtest.h>

#include <sstream>

#include "platform/Graphemes.hpp"
#include "support/Corpora.hpp"
#include "support/Failure.hpp"
#include "support/NoTask.hpp"
#include "support/TemporaryFolder.hpp"
#include "transfer/CSVStream.hpp"

namespace tolva {
namespace {

using Rows = std::vector<std::vector<std::string>>;

struct EncodeCase {
  char const* says;
  Rows rows;
  std::string_view text;
};

EncodeCase const encoded[] = {
    {"no rows are no text", {}, ""},
    {"a row has no line end of its own", {{"a", "b"}}, "a,b"},
    {"rows stand on lines", {{"a", "b"}, {"c"}, {"d", ""}}, "a,b\nc\nd,"},
    {"a row without fields is an empty line", {{"a"}, {}, {"b"}}, "a\n\nb"},
    {"a delimiter is quoted", {{"a,b", "c"}}, "\"a,b\",c"},
    {"a quote is doubled", {{"a\"b"}, {"\""}}, "\"a\"\"b\"\n\"\"\"\""},
    {"LF is quoted", {{"a\nb"}}, "\"a\nb\""},
    {"CR is quoted", {{"a\rb"}}, "\"a\rb\""},
    {"CR LF is quoted and kept", {{"a\r\nb"}}, "\"a\r\nb\""},
    {"a delimiter with a mark is quoted", {{"a,\u0301b"}}, "\"a,\u0301b\""},
    {"a quote with a mark is doubled", {{"x\"\u0301"}}, "\"x\"\"\u0301\""},
    {"a mark alone is not quoted", {{"a", "\u0301b"}}, "a,\u0301b"},
    {"blanks and other control characters are not", {{" a\t", "\v"}}, " a\t,\v"},
    {"an empty field is nothing", {{"", ""}}, ","},
};

TEST(SpreadsheetCodec, Encodes) {
  for (EncodeCase const& each : encoded) {
    SCOPED_TRACE(each.says);
    EXPECT_EQ(SpreadsheetCodec::encode(each.rows, ","), each.text);
  }
}

TEST(SpreadsheetCodec, EncodesWithTabsUnlessToldOtherwise) {
  EXPECT_EQ(SpreadsheetCodec::encode({{"a,b", "c\td"}}), "a,b\t\"c\td\"");
  EXPECT_EQ(SpreadsheetCodec::encode({{"a\u00E9b", "\u00E8"}}, "\u00E9"), "\"a\u00E9b\"\u00E9\u00E8");
}

struct DecodeCase {
  char const* says;
  std::string_view text;
  Rows rows;
};

DecodeCase const decoded[] = {
    {"no text has no rows", "", {}},
    {"a blank line is a row of one empty field", "\n", {{""}}},
    {"no row follows the last line end", "a,b\n", {{"a", "b"}}},
    {"CR, LF and CR LF each end a row", "a\rb\nc\r\nd", {{"a"}, {"b"}, {"c"}, {"d"}}},
    {"a lone CR at the end gives its row once", "a\r", {{"a"}}},
    {"quotes keep what they hold", "\"a,\r\nb\"\"\",c\n", {{"a,\r\nb\"", "c"}}},
    {"a delimiter with a combining mark is text", "a,\u0301b,c", {{"a,\u0301b", "c"}}},
    {"a byte order mark stays", "\uFEFFa,b", {{"\uFEFFa", "b"}}},
    {"what is no UTF-8 stays", "\xFF,\xC3\n", {{"\xFF", "\xC3"}}},
};

TEST(SpreadsheetCodec, Decodes) {
  for (DecodeCase const& each : decoded) {
    SCOPED_TRACE(each.says);
    EXPECT_EQ(SpreadsheetCodec::decode(each.text, ","), each.rows);
  }
  EXPECT_EQ(failureOf([] { SpreadsheetCodec::decode("a,\"b", ","); }),
            DatabaseError("The CSV contains an unterminated quoted field."));
}

TEST(SpreadsheetCodec, ReadsBackWhatItWrote) {
  Rows const rows = {{"a,b", "\"", "\n", "\r", "\r\n", ""}, {"", "\t", "\"\"", "x\"y,z\n"}, {"last"}};
  for (char const* const delimiter : {",", "\t", ";", "\u00E9"}) {
    EXPECT_EQ(SpreadsheetCodec::decode(SpreadsheetCodec::encode(rows, delimiter), delimiter), rows);
  }
}

struct MarkCase {
  char const* says;
  std::vector<std::string> row;
  Rows parsed;  // the same row by characters
};

MarkCase const marks[] = {
    {"behind a quote within a field, one quote too many", {"x\"\u0301"}, {{"x\"\u0301\""}}},
    {"behind a quote that begins a field, two fields", {"\"\u0301,b"}, {{"\"\u0301", "b\""}}},
    {"behind the quote that opens a field, two fields", {"\u0301,b"}, {{"\"\u0301", "b\""}}},
    {"behind a delimiter between fields, one field", {"a", "\u0301b"}, {{"a,\u0301b"}}},
    {"behind a delimiter within a field, no harm", {"a,\u0301b", "c"}, {{"a,\u0301b", "c"}}},
};

TEST(SpreadsheetCodec, WritesMarksThatOnlyAReaderOfBytesReadsBack) {
  TemporaryFolder const folder;
  for (MarkCase const& each : marks) {
    SCOPED_TRACE(each.says);
    std::string const text = SpreadsheetCodec::encode({each.row}, ",");
    CSVStream stream(folder.write("rows.csv", text));
    EXPECT_EQ(stream.next(noTask), each.row);
    EXPECT_EQ(SpreadsheetCodec::decode(text, ","), each.parsed);
  }
}

Rows naughtyRows() {
  std::istringstream lines(contents(corpusFile("naughty-strings/blns.txt")));
  Rows rows;
  for (std::string line; std::getline(lines, line);) rows.push_back({line, "\"" + line + "\n", line + "\r\n", "end"});
  return rows;
}

TEST(SpreadsheetCodec, WritesNaughtyStringsThatTheStreamReadsBack) {
  TOLVA_NEEDS_CORPORA();
  TemporaryFolder const folder;
  CSVStream stream(folder.write("rows.csv", SpreadsheetCodec::encode(naughtyRows(), ",")));
  for (auto const& row : naughtyRows()) EXPECT_EQ(stream.next(noTask), row);
  EXPECT_EQ(stream.next(noTask), std::nullopt);
}

TEST(SpreadsheetCodec, ReadsBackNaughtyStrings) {
  TOLVA_NEEDS_CORPORA();
  Rows rows = naughtyRows();
  // A text that begins with a mark makes one character of itself and the quote before it.
  auto const joinsItsQuote = [](auto const& row) { return graphemeCount(row[1]) != 2 + graphemeCount(row[0]); };
  EXPECT_GT(std::erase_if(rows, joinsItsQuote), 0U);
  ASSERT_GT(rows.size(), 600U);
  EXPECT_EQ(SpreadsheetCodec::decode(SpreadsheetCodec::encode(rows), "\t"), rows);
}

}  // namespace
}  // namespace tolva
