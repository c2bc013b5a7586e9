// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <ostream>

#include "core/SQLiteValue.hpp"

namespace tolva {

/// How a failed comparison prints a value: its case and what a person would see.
inline void PrintTo(SQLiteValue const& value, std::ostream* out) {
  constexpr char const* cases[] = {"integer", "real", "text", "blob", "largeText", "largeBlob", "null"};
  *out << cases[value.payload().index()] << "(" << value.display() << ")";
}

}  // namespace tolva
