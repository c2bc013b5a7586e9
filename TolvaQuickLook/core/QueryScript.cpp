// SPDX-License-Identifier: Apache-2.0
#include "core/QueryScript.hpp"

#include <sqlite3.h>

#include "platform/Trim.hpp"

namespace tolva {
namespace {

std::string_view behind(std::string_view text, std::string_view mark) {
  std::size_t const at = text.find(mark);
  return at == text.npos ? std::string_view() : text.substr(at + mark.size());
}

/// What follows the white space and the comments at the front of `text`.
std::string_view withoutLeadingComments(std::string_view text) {
  for (text = trimmed(text);; text = trimmed(text)) {
    if (text.starts_with("--")) {
      text = behind(text, "\n");
    } else if (text.starts_with("/*")) {
      text = behind(text.substr(2), "*/");
    } else {
      return text;
    }
  }
}

}  // namespace

QueryScript::QueryScript(std::string_view sql) : text_(trimmed(sql)) {
  if (sql.find('\0') != sql.npos)
    throw DatabaseError("The SQL contains a NUL character, where SQLite would stop reading. Remove it.");
}

std::optional<SQLiteStatement> QueryScript::next(std::shared_ptr<SQLiteConnection> const& connection) {
  while (!rest().empty()) {
    sqlite3_stmt* handle = nullptr;
    char const* tail = nullptr;
    int const prepared = sqlite3_prepare_v2(connection->handle(), rest().data(), -1, &handle, &tail);
    if (prepared != SQLITE_OK) throw connection->error(prepared);
    passed_ = static_cast<std::size_t>(tail - text_.data());
    if (handle) return SQLiteStatement(connection, handle);
  }
  return std::nullopt;
}

bool QueryScript::atEnd() const { return withoutLeadingComments(rest()).empty(); }

/// Ends where the text does, so that a terminating zero follows.
std::string_view QueryScript::rest() const { return trimmed(std::string_view(text_).substr(passed_)); }

}  // namespace tolva
