// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <memory>
#include <string_view>

namespace tolva {

struct ExpressionOptions {
  bool caseInsensitive = false;  // by full case folding: "ſ" is like "s", the Kelvin sign like "k"
};

/// A regular expression, compiled once. A value; any thread.
///
/// The dialect is ICU's (https://unicode-org.github.io/icu/userguide/strings/regexp.html). `$` also matches before one
/// line end that closes the text (LF, CR LF, CR, VT, FF, U+0085, U+2028, U+2029); `\d` and `\w` know all scripts.
class Expression {
 public:
  /// Throws `std::invalid_argument` when `pattern` is no expression in UTF-8: a fault of the program.
  explicit Expression(std::string_view pattern, ExpressionOptions options = {});

  /// Whether `text` holds a match anywhere. Text that is not UTF-8 is read as `repairUTF8` would make it.
  ///
  /// Throws `std::runtime_error` when a search saves more than ten million states and ten more for each byte of the
  /// text (a tenth of a second and more), needs more than 8 MB to go back, or the text has more than 1 GB. It then has
  /// no answer, and none may be made up: some ask in order to accept a text, others in order to refuse it.
  bool found(std::string_view text) const;

 private:
  struct Program;  // ICU stays in the .cpp file
  std::shared_ptr<Program const> program_;
};

}  // namespace tolva
