// SPDX-License-Identifier: Apache-2.0
#include "platform/Expression.hpp"

#include <unicode/regex.h>

#include <cstdint>
#include <new>
#include <stdexcept>
#include <string>

#include "platform/UTF8.hpp"

namespace tolva {
namespace {

constexpr std::size_t mostBytes = 1'000'000'000;  // ICU counts in 31 bits
constexpr std::int32_t mostStack = 8'000'000;     // bytes, on the heap

/// ICU's unit is 10,000 saved states. What is linear in the text ends in time however long the text is.
std::int32_t timeLimit(std::string_view text) { return 1'000 + static_cast<std::int32_t>(text.size() / 1'000); }

}  // namespace

struct Expression::Program {
  std::unique_ptr<icu::RegexPattern> pattern;
};

Expression::Expression(std::string_view pattern, ExpressionOptions options) {
  UErrorCode status = isValidUTF8(pattern) ? U_ZERO_ERROR : U_INVALID_CHAR_FOUND;
  UParseError where{};
  std::uint32_t const flags = options.caseInsensitive ? UREGEX_CASE_INSENSITIVE : 0;
  std::unique_ptr<icu::RegexPattern> compiled(
      icu::RegexPattern::compile(icu::UnicodeString::fromUTF8(pattern), flags, where, status));
  if (U_FAILURE(status)) {
    throw std::invalid_argument("No regular expression: " + std::string(pattern) + " (" + u_errorName(status) + ")");
  }
  program_.reset(new Program{std::move(compiled)});
}

bool Expression::found(std::string_view text) const {
  if (text.size() > mostBytes) throw std::runtime_error("The text is too large to be searched.");
  auto const input = icu::UnicodeString::fromUTF8(text);
  UErrorCode status = U_ZERO_ERROR;
  std::unique_ptr<icu::RegexMatcher> const matcher(program_->pattern->matcher(input, status));
  if (U_FAILURE(status) || input.isBogus()) throw std::bad_alloc();
  matcher->setTimeLimit(timeLimit(text), status);
  matcher->setStackLimit(mostStack, status);
  bool const match = matcher->find(status);
  if (U_FAILURE(status)) throw std::runtime_error(std::string("A search exceeded its bounds: ") + u_errorName(status));
  return match;
}

}  // namespace tolva
