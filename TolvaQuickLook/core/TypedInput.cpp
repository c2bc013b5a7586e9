// SPDX-License-Identifier: Apache-2.0
#include "core/TypedInput.hpp"

#include <cmath>
#include <optional>

#include "core/DeclaredType.hpp"
#include "platform/ASCIICase.hpp"
#include "platform/DoubleText.hpp"

namespace tolva {

bool takesNumbers(std::string_view declaredType) {
  return !declaredType.empty() && !declaresText(declaredType) && upperASCII(declaredType) != "BLOB";
}

std::variant<std::monostate, std::int64_t, double> typedNumber(std::string_view text) {
  if (std::optional<std::int64_t> const integer = integerFromText(text)) return *integer;
  if (std::optional<double> const real = doubleFromText(text); real && std::isfinite(*real)) return *real;
  return {};
}

}  // namespace tolva
