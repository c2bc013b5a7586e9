// SPDX-License-Identifier: Apache-2.0
// Any bytes as text, and eight of them as a double: repair agrees with ICU, and the text of a double reads back as it.

#include <unicode/unistr.h>

#include <cmath>
#include <cstdint>
#include <cstring>
#include <string>

#include "fuzz/Expect.hpp"
#include "platform/DoubleText.hpp"
#include "platform/FileSizeText.hpp"
#include "platform/Graphemes.hpp"
#include "platform/Trim.hpp"
#include "platform/UTF8.hpp"

namespace tolva {
namespace {

void checkText(std::string const& text) {
  std::string const repaired = repairUTF8(text);
  expect(isValidUTF8(repaired), "repaired text is valid");
  expect(isValidUTF8(text) == (repaired == text), "exactly the valid text stays as it is");
  std::string byICU;
  icu::UnicodeString::fromUTF8(text).toUTF8String(byICU);
  expect(repaired == byICU, "repair agrees with ICU");
  expect(isValidUTF8(text.substr(0, validUTF8Prefix(text))), "the valid prefix is valid");
}

void checkGraphemes(std::string const& text) {
  GraphemeCursor cursor(text);
  std::string together;
  while (auto const cluster = cursor.next()) {
    expect(!cluster->empty(), "no grapheme is empty");
    together += *cluster;
  }
  expect(together == text, "the graphemes are the text");
  expect(trimmed(trimmed(text)) == trimmed(text), "trimming twice is trimming once");
}

void checkDouble(double number) {
  std::string const text = doubleText(number);
  auto const back = doubleFromText(text);
  expect(back.has_value(), "the text of a double is a number");
  expect(std::isnan(number) ? std::isnan(*back) : *back == number, "the text of a double reads back as it");
  if (std::isfinite(number)) {
    expect(text.find_first_of(".e") != text.npos, "a real is never taken for an integer");
    expect(doubleFromText(jsonNumberText(number)) == number, "a number in JSON reads back as it");
  }
}

}  // namespace
}  // namespace tolva

extern "C" int LLVMFuzzerTestOneInput(std::uint8_t const* data, std::size_t size) {
  std::string const text(data, data + size);
  tolva::checkText(text);
  tolva::checkGraphemes(text);
  if (size >= sizeof(double)) {
    double number;
    std::memcpy(&number, data, sizeof number);
    tolva::checkDouble(number);
    std::int64_t bytes;
    std::memcpy(&bytes, data, sizeof bytes);
    tolva::expect(!tolva::fileSizeText(bytes).empty(), "every size has a text");
  }
  return 0;
}
