// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdint>
#include <string_view>

namespace tolva {

/// How the bytes of a delimited file are read as text.
enum class CSVEncoding {
  utf8,    // strict: a field that is no valid UTF-8 is an error
  latin1,  // ISO 8859-1; every byte is a character
};

/// The name that a person chooses an encoding by.
constexpr std::string_view rawValue(CSVEncoding encoding) {
  return encoding == CSVEncoding::utf8 ? "UTF-8" : "Latin-1";
}

/// How a delimited file is to be read. A value.
struct CSVOptions {
  std::uint8_t delimiter = ',';  // a byte; wins over the line ends, not over the quote that opens a field
  bool header = true;            // the first row names the columns
  CSVEncoding encoding = CSVEncoding::utf8;

  bool operator==(CSVOptions const&) const = default;
};

}  // namespace tolva
