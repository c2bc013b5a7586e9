// SPDX-License-Identifier: Apache-2.0
#include "transfer/ColumnTypeInference.hpp"

#include <algorithm>
#include <array>
#include <charconv>
#include <cmath>
#include <cstdint>
#include <limits>
#include <optional>

#include "platform/DoubleText.hpp"

namespace tolva {
namespace {

constexpr std::int64_t firstWide = std::int64_t{1} << 53;  // the doubles from here on leave integers out

/// Whether the field is the very text that SQLite would show for the value.
bool isCanonical(std::int64_t value, std::string_view field) {
  std::array<char, std::numeric_limits<std::int64_t>::digits10 + 3> text;
  auto const [end, error] = std::to_chars(text.begin(), text.end(), value);
  return field == std::string_view(text.begin(), end);
}

/// Takes the digits off the front and answers how many there were.
std::size_t skipDigits(std::string_view& text) {
  std::size_t const count = std::min(text.find_first_not_of("0123456789"), text.size());
  text.remove_prefix(count);
  return count;
}

/// Whether a plain decimal is within the range of a double. One of fewer digits than the greatest has always is.
bool isFinite(std::string_view decimal) {
  if (decimal.size() <= std::numeric_limits<double>::max_exponent10) return true;
  std::optional<double> const value = doubleFromText(decimal);
  return value && std::isfinite(*value);
}

}  // namespace

bool isPlainDecimal(std::string_view text) {
  if (text.starts_with('-')) text.remove_prefix(1);
  bool const zero = text.starts_with('0');
  std::size_t const whole = skipDigits(text);
  if (whole == 0 || (zero && whole > 1) || !text.starts_with('.')) return false;
  text.remove_prefix(1);
  return skipDigits(text) > 0 && text.empty();
}

void ColumnTypeInference::add(std::span<std::string_view const> row) {
  if (row.size() != columns_.size()) throw DatabaseError("CSV row has an unexpected number of fields.");
  sawRow_ = true;
  for (std::size_t column = 0; column < row.size(); ++column) {
    if (columns_[column].type != InferredType::text && !row[column].empty()) columns_[column].add(row[column]);
  }
}

void ColumnTypeInference::Column::add(std::string_view field) {
  if (std::optional<std::int64_t> const value = integerFromText(field))
    addInteger(*value, field);
  else if (isPlainDecimal(field) && isFinite(field))
    type = wide ? InferredType::text : InferredType::real;
  else
    type = InferredType::text;
}

void ColumnTypeInference::Column::addInteger(std::int64_t value, std::string_view field) {
  if (!isCanonical(value, field)) {
    type = InferredType::text;
  } else if (value <= -firstWide || value >= firstWide) {
    wide = true;
    if (type == InferredType::real) type = InferredType::text;
  }
}

std::vector<InferredType> ColumnTypeInference::types() const {
  std::vector<InferredType> types(columns_.size(), InferredType::text);
  if (sawRow_) std::ranges::transform(columns_, types.begin(), &Column::type);
  return types;
}

}  // namespace tolva
