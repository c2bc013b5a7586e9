// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <string_view>

namespace tolva {

/// What a table is exported as; docs/formats.md describes each byte for byte.
enum class ExportFormat {
  csv,   // a header line and one line a row
  json,  // an array of one object a row
  sql,   // the table's own statement and one INSERT a row; of tables alone
};

/// The name that a person chooses a format by.
constexpr std::string_view rawValue(ExportFormat format) {
  switch (format) {
    case ExportFormat::csv:
      return "CSV";
    case ExportFormat::json:
      return "JSON";
    case ExportFormat::sql:
      break;
  }
  return "SQL";
}

}  // namespace tolva
