// SPDX-License-Identifier: Apache-2.0
#include "platform/JSONValue.hpp"

#include <algorithm>
#include <cmath>
#include <utility>

#include "platform/DoubleText.hpp"
#include "platform/JSONError.hpp"

namespace tolva {
namespace {

/// Takes the point out of a mantissa and gives the number of digits that stood behind it.
std::int64_t removePoint(std::string& mantissa) {
  auto const point = mantissa.find('.');
  if (point == std::string::npos) return 0;
  mantissa.erase(point, 1);
  return static_cast<std::int64_t>(mantissa.size() - point);
}

/// Takes trailing zeros off and gives their number.
std::int64_t removeTrailingZeros(std::string& digits) {
  auto const kept = digits.find_last_not_of('0') + 1;
  auto const zeros = digits.size() - kept;
  digits.resize(kept);
  return static_cast<std::int64_t>(zeros);
}

/// The value of a literal with a point or an exponent, if it is whole and fits. Exact: no double stands between.
std::optional<std::int64_t> wholeValue(std::string_view literal) {
  auto const mark = literal.find_first_of("eE");
  std::string digits(literal.substr(0, mark));
  std::int64_t power = -removePoint(digits);
  power += removeTrailingZeros(digits);
  if (digits.empty() || digits == "-") return 0;
  if (mark != std::string_view::npos) {
    auto const exponent = integerFromText(literal.substr(mark + 1));
    if (!exponent) return {};
    constexpr std::int64_t far = std::int64_t{1} << 62;
    power += std::clamp(*exponent, -far, far);
  }
  constexpr std::int64_t mostZeros = 18;  // 10^19 does not fit
  if (power < 0 || power > mostZeros) return {};
  digits.append(static_cast<std::size_t>(power), '0');
  return integerFromText(digits);
}

}  // namespace

JSONValue::JSONValue() = default;
JSONValue::JSONValue(Data data) : data_(std::move(data)) {}

JSONValue JSONValue::null() { return {}; }
JSONValue JSONValue::boolean(bool value) { return JSONValue(Data(value)); }
JSONValue JSONValue::integer(std::int64_t value) { return number(std::to_string(value)); }

JSONValue JSONValue::real(double value) {
  if (!std::isfinite(value)) throw JSONError("A number that is not finite has no JSON form.");
  return number(jsonNumberText(value));
}

JSONValue JSONValue::number(std::string literal) { return JSONValue(Data(Number{std::move(literal)})); }
JSONValue JSONValue::string(std::string text) { return JSONValue(Data(std::move(text))); }
JSONValue JSONValue::array(Array items) { return JSONValue(Data(std::move(items))); }
JSONValue JSONValue::object(Object members) { return JSONValue(Data(std::move(members))); }

std::string const* JSONValue::asNumber() const {
  auto const* const number = std::get_if<Number>(&data_);
  return number ? &number->literal : nullptr;
}

std::optional<std::int64_t> JSONValue::asInteger() const {
  auto const* const literal = asNumber();
  if (!literal) return {};
  bool const plain = literal->find_first_of(".eE") == std::string::npos;
  return plain ? integerFromText(*literal) : wholeValue(*literal);
}

std::optional<double> JSONValue::asDouble() const {
  auto const* const literal = asNumber();
  auto const value = literal ? doubleFromText(*literal) : std::nullopt;
  return value && std::isfinite(*value) ? value : std::nullopt;
}

JSONValue const* JSONValue::member(std::string_view name) const {
  auto const* const members = asObject();
  if (!members) return nullptr;
  auto const found = std::ranges::find(*members, name, &Member::name);
  return found == members->end() ? nullptr : &found->value;
}

bool JSONValue::operator==(JSONValue const& other) const { return data_ == other.data_; }

}  // namespace tolva
