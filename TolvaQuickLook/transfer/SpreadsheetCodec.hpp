// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "platform/Export.hpp"

namespace tolva {

/// Rows as one text, as a clipboard or a spreadsheet has them. The delimiter is one character, never empty. Pure, any
/// thread.
namespace SpreadsheetCodec {

/// The rows of a text that a `DelimitedParser` reads. Throws `DatabaseError` for a quote that is never closed.
///
/// They are the rows that were encoded, but for three kinds: a row without fields; a last row that is an empty line;
/// and a row where a mark follows a quote or delimiter, inside a field or as the first of one, and makes one character
/// of both. `CSVStream` and the readers of other programs, which go by bytes, read the last kind as it was.
TOLVA_EXPORT std::vector<std::vector<std::string>> decode(std::string_view text, std::string_view delimiter);

/// One line a row, with LF between them and none behind the last. A field that holds the delimiter, a quote, CR or LF
/// stands in quotes, its own doubled, and is kept byte for byte otherwise. Held is what its bytes hold, whatever
/// characters they make. A row without fields is an empty line.
TOLVA_EXPORT std::string encode(std::vector<std::vector<std::string>> const& rows, std::string_view delimiter = "\t");

}  // namespace SpreadsheetCodec
}  // namespace tolva
