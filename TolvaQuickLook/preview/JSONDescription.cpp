// SPDX-License-Identifier: Apache-2.0
#include "preview/JSONDescription.hpp"

#include "platform/DoubleText.hpp"
#include "platform/JSONValue.hpp"

namespace tolva {
namespace {

/// The literal itself only where no number of the machine comes near it.
std::string numberText(JSONValue const& number) {
  if (auto const whole = number.asInteger()) return std::to_string(*whole);
  if (auto const real = number.asDouble()) return doubleText(*real);
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
