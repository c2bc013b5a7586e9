// SPDX-License-Identifier: Apache-2.0
#include "platform/LowerCase.hpp"

#include <unicode/bytestream.h>
#include <unicode/casemap.h>
#include <unicode/stringpiece.h>

#include <cstdint>
#include <limits>
#include <new>
#include <stdexcept>

namespace tolva {

std::string lowerUnicode(std::string_view text) {
  if (text.size() > std::numeric_limits<std::int32_t>::max()) throw std::length_error("lowerUnicode");
  std::string lower;
  icu::StringByteSink<std::string> sink(&lower, static_cast<std::int32_t>(text.size()));
  UErrorCode status = U_ZERO_ERROR;
  icu::CaseMap::utf8ToLower("", 0, {text.data(), static_cast<std::int32_t>(text.size())}, sink, nullptr, status);
  if (U_FAILURE(status)) throw std::bad_alloc();  // nothing else can be wrong
  return lower;
}

}  // namespace tolva
