// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <array>
#include <cstddef>
#include <optional>
#include <string>
#include <string_view>

#include "core/SQLiteValue.hpp"
#include "platform/UUID.hpp"

namespace tolva {

/// How a filter compares a column with its value.
enum class FilterOperator { equals, notEqual, contains, starts, ends, greater, less, between, isNull, notNull };

/// All of them, in the order in which a person chooses.
inline constexpr std::array filterOperators{FilterOperator::equals, FilterOperator::notEqual, FilterOperator::contains,
                                            FilterOperator::starts, FilterOperator::ends,     FilterOperator::greater,
                                            FilterOperator::less,   FilterOperator::between,  FilterOperator::isNull,
                                            FilterOperator::notNull};

/// The text that a person sees.
constexpr std::string_view label(FilterOperator operation) {
  constexpr std::array<std::string_view, filterOperators.size()> labels{
      "Equals",       "Not Equal", "Contains", "Starts With", "Ends With",
      "Greater Than", "Less Than", "Between",  "Is NULL",     "Is Not NULL"};
  return labels.at(static_cast<std::size_t>(operation));
}

/// The one that bears the label, which is how an operator is stored by those who keep filters.
constexpr std::optional<FilterOperator> filterOperator(std::string_view labelled) {
  for (FilterOperator const operation : filterOperators) {
    if (label(operation) == labelled) return operation;
  }
  return {};
}

/// One condition on one column. A value; each that is made has an id of its own.
///
/// `contains`, `starts` and `ends` compare the column, cast to text, with what `value` displays, and tell the case of
/// letters apart; the others compare as SQL does, so that nothing equals NULL.
struct TableFilter {
  UUID id = UUID::make();
  std::string column;
  FilterOperator operation = FilterOperator::equals;
  SQLiteValue value;
  SQLiteValue second;  // the upper bound of `between`

  bool operator==(TableFilter const&) const = default;
};

}  // namespace tolva
