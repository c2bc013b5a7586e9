// SPDX-License-Identifier: Apache-2.0
#include "core/SQLiteValue.hpp"

#include <cmath>
#include <optional>

#include "platform/ASCIICase.hpp"
#include "platform/DoubleText.hpp"
#include "platform/FileSizeText.hpp"

namespace tolva {
namespace {

constexpr std::int64_t markerSize = 32;

template <class... Cases>
struct Match : Cases... {
  using Cases::operator()...;
};
template <class... Cases>
Match(Cases...) -> Match<Cases...>;  // clang 14 needs it said

bool holdsText(std::string const& type) {
  return type.find("CHAR") != type.npos || type.find("CLOB") != type.npos || type.find("TEXT") != type.npos;
}

}  // namespace

SQLiteValue SQLiteValue::input(std::string text, std::string_view affinity) {
  std::string const type = upperASCII(affinity);
  if (holdsText(type) || type.empty() || type == "BLOB") return text;
  if (std::optional<std::int64_t> const integer = integerFromText(text)) return *integer;
  if (std::optional<double> const real = doubleFromText(text); real && std::isfinite(*real)) return *real;
  return text;
}

std::int64_t SQLiteValue::memorySize() const {
  if (std::string const* const text = asText()) return markerSize + static_cast<std::int64_t>(text->size());
  if (Bytes const* const blob = asBlob()) return markerSize + static_cast<std::int64_t>(blob->size());
  return markerSize;
}

std::string SQLiteValue::display() const {
  return std::visit(Match{[](std::int64_t value) { return std::to_string(value); },
                          [](double value) { return doubleText(value); }, [](std::string const& text) { return text; },
                          [](Bytes const& blob) { return "BLOB · " + std::to_string(blob.size()) + " bytes"; },
                          [](LargeText text) { return "Large Text · " + fileSizeText(text.bytes); },
                          [](LargeBlob blob) { return "BLOB · " + fileSizeText(blob.bytes); },
                          [](Null) { return std::string("NULL"); }},
                    payload_);
}

}  // namespace tolva
