// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <string>
#include <string_view>

#include "platform/ASCIICase.hpp"

namespace tolva {

/// Whether a column of this declared type holds text by SQLite's rules of affinity
/// (https://sqlite.org/datatype3.html#determination_of_column_affinity), its integer rule left aside.
inline bool declaresText(std::string_view type) {
  std::string const upper = upperASCII(type);
  return upper.find("CHAR") != upper.npos || upper.find("CLOB") != upper.npos || upper.find("TEXT") != upper.npos;
}

}  // namespace tolva
