// SPDX-License-Identifier: Apache-2.0
#include "preview/JSONDescription.hpp"

#include <charconv>
#include <cstdint>
#include <system_error>

#include "platform/DoubleText.hpp"
#include "platform/JSONValue.hpp"

namespace tolva {
namespace {

/// The numbers that only fit without a sign are told from others by their digits alone, as they are written nearly
/// always.
bool isUnsigned(std::string const& literal) {
  std::uint64_t value = 0;
  auto const* const end = literal.data() + literal.size();
  auto const [rest, error] = std::from_chars(literal.data(), end, value);
  return error == std::errc() && rest == end;
}

/// The literal itself where it is unsigned, or so large or small that no number of the machine comes near it. A zero is
/// an integer, however it is written.
std::string numberText(JSONValue const& number) {
  if (auto const whole = number.asInteger()) return std::to_string(*whole);
  if (isUnsigned(*number.asNumber())) return *number.asNumber();
  if (auto const real = number.asDouble(); real && *real != 0) return doubleText(*real);
  return *number.asNumber();
}

}  // namespace

std::string jsonDescription(JSONValue const& value) {
  switch (value.kind()) {
    case JSONValue::Kind::null:
      return "null";
    case JSONValue::Kind::boolean:
      return *value.asBoolean() ? "true" : "false";
    case JSONValue::Kind::number:
      return numberText(value);
    case JSONValue::Kind::string:
      return *value.asString();
    default:
      return {};
  }
}

}  // namespace tolva
