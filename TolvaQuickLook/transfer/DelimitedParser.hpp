// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "platform/Export.hpp"

namespace tolva {

/// Reads delimited text that is decoded already and comes character by character. A value.
///
/// A character is an extended grapheme cluster (https://unicode.org/reports/tr29/): a comma with a combining mark is no
/// comma, and CR LF is one character, or two. Quotes and line ends mean what they mean to `CSVStream`; there are no
/// limits.
class TOLVA_EXPORT DelimitedParser {
 public:
  /// The delimiter is one character, told by its bytes: U+00E9 does not part fields at e with U+0301. It wins over the
  /// line ends, not over the quote that opens a field.
  explicit DelimitedParser(std::string_view delimiter);

  /// The row that `character` ends, if it ends one.
  std::optional<std::vector<std::string>> consume(std::string_view character);

  /// The row that no line end followed; none when nothing came since the last. Throws `DatabaseError` inside quotes.
  /// The parser is of no more use then.
  std::optional<std::vector<std::string>> finish();

 private:
  void endField();

  std::string delimiter_;
  bool quoted_ = false;
  bool afterQuote_ = false;  // the last character closed a quoted section, or is the first of a doubled quote
  bool skipLF_ = false;      // a lone CR ended the last row: an LF now belongs to it
  bool active_ = false;      // the row has begun
  std::string field_;
  std::vector<std::string> row_;
};

}  // namespace tolva
