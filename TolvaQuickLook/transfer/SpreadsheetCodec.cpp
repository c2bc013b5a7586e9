// SPDX-License-Identifier: Apache-2.0
#include "transfer/SpreadsheetCodec.hpp"

#include <utility>

#include "platform/Graphemes.hpp"
#include "transfer/DelimitedParser.hpp"

namespace tolva {
namespace {

/// Judged by bytes, as the readers of files do: CR LF and a delimiter with a combining mark are one character each, and
/// a field that holds them needs its quotes all the same.
bool needsQuotes(std::string_view field, std::string_view delimiter) {
  return field.find_first_of("\"\r\n") != field.npos || field.find(delimiter) != field.npos;
}

void appendQuoted(std::string& text, std::string_view field) {
  text += '"';
  for (char const byte : field) {
    if (byte == '"') text += '"';
    text += byte;
  }
  text += '"';
}

}  // namespace

std::vector<std::vector<std::string>> SpreadsheetCodec::decode(std::string_view text, std::string_view delimiter) {
  std::vector<std::vector<std::string>> rows;
  DelimitedParser parser(delimiter);
  GraphemeCursor characters(text);
  while (auto const character = characters.next()) {
    if (auto row = parser.consume(*character)) rows.push_back(std::move(*row));
  }
  if (auto row = parser.finish()) rows.push_back(std::move(*row));
  return rows;
}

std::string SpreadsheetCodec::encode(std::vector<std::vector<std::string>> const& rows, std::string_view delimiter) {
  std::string text;
  for (std::size_t row = 0; row < rows.size(); ++row) {
    if (row > 0) text += '\n';
    for (std::size_t column = 0; column < rows[row].size(); ++column) {
      std::string const& field = rows[row][column];
      if (column > 0) text += delimiter;
      if (needsQuotes(field, delimiter)) {
        appendQuoted(text, field);
      } else {
        text += field;
      }
    }
  }
  return text;
}

}  // namespace tolva
