// SPDX-License-Identifier: Apache-2.0
#include "core/SQLiteValue.hpp"

#include <utility>

#include "core/TypedInput.hpp"
#include "platform/DoubleText.hpp"
#include "platform/FileSizeText.hpp"

namespace tolva {
namespace {

template <class... Cases>
struct Match : Cases... {
  using Cases::operator()...;
};
template <class... Cases>
Match(Cases...) -> Match<Cases...>;  // clang 14 needs it said

}  // namespace

SQLiteValue SQLiteValue::input(std::string text, std::string_view affinity) {
  if (!takesNumbers(affinity)) return text;
  return std::visit(Match{[](auto number) -> SQLiteValue { return number; },
                          [&](std::monostate) -> SQLiteValue { return std::move(text); }},
                    typedNumber(text));
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
