// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstddef>
#include <memory>
#include <optional>
#include <string>
#include <string_view>

#include "core/SQLiteConnection.hpp"
#include "core/SQLiteStatement.hpp"

namespace tolva {

/// The statements of a text that a person typed, one after the other. Where one ends is what SQLite's own parser says
/// (https://sqlite.org/c3ref/prepare.html). In the connection's turn.
class QueryScript {
 public:
  /// Throws for a text with a NUL: SQLite ends a text there, and half of a statement must not run for the whole.
  explicit QueryScript(std::string_view sql);
  QueryScript(QueryScript const&) = delete;
  QueryScript& operator=(QueryScript const&) = delete;

  /// Compiles the next statement; none at the end. Text without a statement, a lone semicolon for example, is passed
  /// over. After a failure the script is of no more use.
  std::optional<SQLiteStatement> next(std::shared_ptr<SQLiteConnection> const& connection);

  /// Whether nothing but white space and comments is left, a comment without an end included.
  bool atEnd() const;

 private:
  std::string_view rest() const;

  std::string const text_;
  std::size_t passed_ = 0;  // bytes of it
};

}  // namespace tolva
