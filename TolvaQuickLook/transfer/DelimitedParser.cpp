// SPDX-License-Identifier: Apache-2.0
#include "transfer/DelimitedParser.hpp"

#include <utility>

#include "core/DatabaseError.hpp"

namespace tolva {

DelimitedParser::DelimitedParser(std::string_view delimiter) : delimiter_(delimiter) {}

std::optional<std::vector<std::string>> DelimitedParser::consume(std::string_view character) {
  bool const isQuote = character == "\"";
  if (std::exchange(skipLF_, false) && character == "\n") return std::nullopt;
  active_ = true;
  if (quoted_) {
    quoted_ = !isQuote;
    afterQuote_ = isQuote;
    if (!isQuote) field_ += character;
  } else if (std::exchange(afterQuote_, false) && isQuote) {
    field_ += character;
    quoted_ = true;
  } else if (isQuote && field_.empty()) {
    quoted_ = true;
  } else if (character == delimiter_) {
    endField();
  } else if (character == "\n" || character == "\r" || character == "\r\n") {
    endField();
    active_ = false;
    skipLF_ = character == "\r";
    return std::exchange(row_, {});
  } else {
    field_ += character;
  }
  return std::nullopt;
}

std::optional<std::vector<std::string>> DelimitedParser::finish() {
  if (quoted_) throw DatabaseError("The CSV contains an unterminated quoted field.");
  if (!active_) return std::nullopt;
  endField();
  return std::move(row_);
}

void DelimitedParser::endField() { row_.push_back(std::exchange(field_, {})); }

}  // namespace tolva
