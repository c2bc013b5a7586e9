// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <string_view>
#include <vector>

#include "core/DatabaseError.hpp"

namespace tolva {

/// The type that a column is made with when its table is made for the rows of a file.
enum class InferredType : std::uint8_t { integer, real, text };

/// As it stands in the statement.
constexpr std::string_view rawValue(InferredType type) {
  switch (type) {
    case InferredType::integer:
      return "INTEGER";
    case InferredType::real:
      return "REAL";
    case InferredType::text:
      break;
  }
  return "TEXT";
}

/// Finds the narrowest type for each column that fits all of its fields. A value.
///
/// An integer counts as one only if it reads back as it was written: a code like "007" or "+49" makes a column of
/// texts. So does a number like "1e5", and an integer from 2^53 on that would have to share a column with decimals: as
/// a double it would lose digits. A plain decimal is taken for the double nearest to it, and may well lose some.
class ColumnTypeInference {
 public:
  explicit ColumnTypeInference(std::size_t columns) : columns_(columns) {}

  /// Takes the next row into account. Throws `DatabaseError` unless it has one field for each column.
  void add(std::span<std::string_view const> row);

  /// The types by the rows so far. An empty field says nothing, so a column of nothing else is one of integers; without
  /// any row all are texts.
  std::vector<InferredType> types() const;

 private:
  struct Column {
    InferredType type = InferredType::integer;
    bool wide = false;  // holds an integer that a double might not hold

    void add(std::string_view field);
    void addInteger(std::int64_t value, std::string_view field);
  };

  std::vector<Column> columns_;
  bool sawRow_ = false;
};

/// Whether `text` matches "^-?(0|[1-9][0-9]*)\.[0-9]+$" from its first to its last byte.
bool isPlainDecimal(std::string_view text);

}  // namespace tolva
