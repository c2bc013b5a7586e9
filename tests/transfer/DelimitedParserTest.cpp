// SPDX-License-Identifier: Apache-2.0
#include "transfer/DelimitedParser.hpp"

#include <gtest/gtest.h>

#include "support/Failure.hpp"

namespace tolva {
namespace {

using Row = std::vector<std::string>;
using Rows = std::vector<Row>;

/// The rows of these characters, the last one included.
Rows rowsOf(DelimitedParser& parser, std::vector<std::string> const& characters) {
  Rows rows;
  for (std::string const& character : characters) {
    if (auto row = parser.consume(character)) rows.push_back(*row);
  }
  if (auto row = parser.finish()) rows.push_back(*row);
  return rows;
}

Rows rowsOf(std::vector<std::string> const& characters, std::string_view delimiter = ",") {
  DelimitedParser parser(delimiter);
  return rowsOf(parser, characters);
}

struct CharactersCase {
  char const* says;
  std::vector<std::string> characters;
  Rows rows;
};

CharactersCase const texts[] = {
    {"nothing has no row", {}, {}},
    {"a blank line is a row of one empty field", {"\n"}, {{""}}},
    {"a last line needs no end", {"a", ",", "b"}, {{"a", "b"}}},
    {"no row follows the last line end", {"a", ",", "b", "\n"}, {{"a", "b"}}},
    {"a delimiter at the end leaves an empty field", {"a", ","}, {{"a", ""}}},
    {"CR LF is one line end as one character", {"a", "\r\n", "b"}, {{"a"}, {"b"}}},
    {"and as two", {"a", "\r", "\n", "b"}, {{"a"}, {"b"}}},
    {"a lone CR at the end swallows nothing", {"a", "\r"}, {{"a"}}},
    {"a second CR ends another row", {"a", "\r", "\r", "\n"}, {{"a"}, {""}}},
    {"behind CR a pair ends another row", {"a", "\r", "\r\n"}, {{"a"}, {""}}},
    {"of two LF behind CR one is swallowed", {"a", "\r", "\n", "\n"}, {{"a"}, {""}}},
    {"nothing is swallowed behind a pair", {"a", "\r\n", "\n"}, {{"a"}, {""}}},
    {"line ends inside quotes are text", {"\"", "\r", "\n", "\r\n", "\"", "\n"}, {{"\r\n\r\n"}}},
    {"two quotes are an empty field", {"\"", "\""}, {{""}}},
    {"four are one", {"\"", "\"", "\"", "\""}, {{"\""}}},
    {"a doubled quote inside quotes is one", {"\"", "a", "\"", "\"", "b", "\""}, {{"a\"b"}}},
    {"a quote inside an unquoted field is text", {"a", "\"", "b", "\""}, {{"a\"b\""}}},
    {"what follows a closing quote joins the field", {"\"", "a", "\"", "b", "\"", ",", "c"}, {{"ab\"", "c"}}},
    {"a closed field does not reach into the next", {"\"", "a", "\"", ",", "\"", "b", "\""}, {{"a", "b"}}},
    {"nor into the next row", {"\"", "a", "\"", "\n", "\"", "b", "\""}, {{"a"}, {"b"}}},
    {"a delimiter with a mark is another character", {"a", ",\u0301", "b"}, {{"a,\u0301b"}}},
    {"a quote with a mark is another character", {"\"\u0301", "a"}, {{"\"\u0301a"}}},
};

TEST(DelimitedParser, ReadsCharacterByCharacter) {
  for (CharactersCase const& text : texts) {
    SCOPED_TRACE(text.says);
    EXPECT_EQ(rowsOf(text.characters), text.rows);
  }
}

TEST(DelimitedParser, GivesARowWithTheCharacterThatEndsIt) {
  DelimitedParser parser(",");
  EXPECT_EQ(parser.consume("a"), std::nullopt);
  EXPECT_EQ(parser.consume(","), std::nullopt);
  EXPECT_EQ(parser.consume("\r"), (Row{"a", ""}));
  EXPECT_EQ(parser.consume("\n"), std::nullopt);
  EXPECT_EQ(parser.finish(), std::nullopt);
}

TEST(DelimitedParser, TakesAnyCharacterForTheDelimiter) {
  EXPECT_EQ(rowsOf({"a", "e\u0301", "e", "b"}, "e\u0301"), (Rows{{"a", "eb"}}));
  EXPECT_EQ(rowsOf({"a", "e\u0301", "b"}, "\u00E9"), (Rows{{"ae\u0301b"}})) << "it is told by its bytes";
  EXPECT_EQ(rowsOf({"a", "\n", "b", "\r"}, "\n"), (Rows{{"a", "b"}})) << "it wins over the line ends";
  EXPECT_EQ(rowsOf({"a", "\"", "b"}, "\""), (Rows{{"a", "b"}})) << "but not over the quote that opens a field";
}

TEST(DelimitedParser, RefusesAQuoteThatIsNeverClosed) {
  for (std::vector<std::string> const& characters : {Row{"\""}, Row{"\"", "a"}, Row{"\"", "\"", "\""}}) {
    EXPECT_EQ(failureOf([&] { rowsOf(characters); }), DatabaseError("The CSV contains an unterminated quoted field."));
  }
}

TEST(DelimitedParser, IsAValue) {
  DelimitedParser parser(",");
  parser.consume("\"");
  parser.consume("a");
  DelimitedParser copy = parser;
  EXPECT_EQ(rowsOf(parser, {"b", "\""}), (Rows{{"ab"}}));
  EXPECT_EQ(rowsOf(copy, {"c", "\""}), (Rows{{"ac"}}));
}

}  // namespace
}  // namespace tolva
