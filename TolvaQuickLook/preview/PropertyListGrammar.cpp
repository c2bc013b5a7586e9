// SPDX-License-Identifier: Apache-2.0
#include "preview/PropertyListGrammar.hpp"

#include <charconv>
#include <chrono>
#include <cmath>
#include <cstddef>
#include <system_error>
#include <utility>

#include "platform/Base64.hpp"
#include "platform/DigitForm.hpp"
#include "platform/DoubleText.hpp"

namespace tolva {
namespace {

bool isContainer(std::string_view name) { return name == "plist" || name == "array" || name == "dict"; }

/// Without the four characters that XML calls white space (https://www.w3.org/TR/xml/#NT-S). The reader takes any other
/// blank in front of a number for its end, and shows 0.
std::string_view withoutBlanks(std::string_view text) {
  constexpr std::string_view blanks = " \t\r\n";
  auto const first = text.find_first_not_of(blanks);
  return first == text.npos ? "" : text.substr(first, text.find_last_not_of(blanks) + 1 - first);
}

/// Decimal or hexadecimal, of at most 64 bits with or without a sign. The reader takes a zero in front of other digits
/// for octal.
bool isInteger(std::string_view text) {
  bool const negative = text.starts_with('-');
  if (negative || text.starts_with('+')) text.remove_prefix(1);
  bool const hexadecimal = text.starts_with("0x") || text.starts_with("0X");
  if (hexadecimal) text.remove_prefix(2);
  if (!hexadecimal && text.size() > 1 && text.starts_with('0')) return false;
  std::uint64_t size = 0;
  auto const [end, error] = std::from_chars(text.data(), text.data() + text.size(), size, hexadecimal ? 16 : 10);
  if (error != std::errc() || end != text.data() + text.size()) return false;
  return !negative || size <= std::uint64_t{1} << 63;
}

/// Any number, but none so large or small that it would be shown as an infinity or a zero that it is not.
bool isReal(std::string_view text) {
  auto const value = doubleFromText(text);
  if (!value) return false;
  if (std::isinf(*value)) return text.find_first_of("0123456789") == text.npos;
  return *value != 0 || text.substr(0, text.find_first_of("eE")).find_first_of("123456789") == text.npos;
}

/// A moment in the form "2024-02-29T12:00:00Z" that exists.
bool isDate(std::string_view text) {
  if (!hasDigitForm(text, "0000-00-00T00:00:00Z")) return false;
  auto const number = [&](std::size_t at, std::size_t count) {
    unsigned value = 0;
    for (char const digit : text.substr(at, count)) value = 10 * value + static_cast<unsigned>(digit - '0');
    return value;
  };
  std::chrono::year_month_day const day(std::chrono::year(static_cast<int>(number(0, 4))),
                                        std::chrono::month(number(5, 2)), std::chrono::day(number(8, 2)));
  return day.ok() && text.substr(11, 2) < "24" && text.substr(14, 2) < "60" && text.substr(17, 2) < "60";
}

bool isData(std::string text) {
  std::erase_if(text, [](char c) { return c == ' ' || c == '\t' || c == '\n' || c == '\r'; });
  return bytesFromBase64(text).has_value();
}

}  // namespace

void PropertyListGrammar::start(std::string_view name) {
  if (open_.empty()) {
    sound_ = name == "plist";
  } else {
    sound_ = sound_ && mayHold(open_.back(), name);
    ++open_.back().children;
  }
  open_.push_back({std::string(name), {}});
}

void PropertyListGrammar::text(std::string_view text) {
  if (!open_.empty()) open_.back().text += text;
}

void PropertyListGrammar::end() {
  Element const element = std::move(open_.back());
  open_.pop_back();
  sound_ = sound_ && isComplete(element);
  if (element.name == "key" && !open_.empty()) sound_ = open_.back().keys.insert(element.text).second && sound_;
}

bool PropertyListGrammar::mayHold(Element const& parent, std::string_view child) {
  bool const isKey = parent.name == "dict" && parent.children % 2 == 0;
  return isContainer(parent.name) && child != "plist" && (child == "key") == isKey;
}

bool PropertyListGrammar::isComplete(Element const& element) {
  std::string_view const name = element.name;
  std::string_view const text = withoutBlanks(element.text);
  if (name == "plist") return element.children == 1 && text.empty();
  if (name == "dict") return element.children % 2 == 0 && text.empty();
  if (name == "array" || name == "true" || name == "false") return text.empty();
  if (name == "integer") return isInteger(text);
  if (name == "real") return isReal(text);
  if (name == "date") return isDate(element.text);
  if (name == "data") return isData(element.text);
  return name == "string" || name == "key";
}

}  // namespace tolva
