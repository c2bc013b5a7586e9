// SPDX-License-Identifier: Apache-2.0
#include "transfer/StatementText.hpp"

#include <algorithm>

namespace tolva {
namespace {

bool isInName(char c) {
  return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') || c == '_' || c == '$' ||
         static_cast<unsigned char>(c) >= 0x80;
}

/// The bytes up to the end of the first `close` from `from` on; 0 where there is none.
std::size_t through(std::string_view close, std::string_view sql, std::size_t from) {
  std::size_t const at = sql.find(close, from);
  return at == sql.npos ? 0 : at + close.size();
}

std::size_t nameLength(std::string_view sql, std::size_t from) {
  auto const rest = sql.substr(from);
  return from + static_cast<std::size_t>(std::ranges::find_if_not(rest, isInName) - rest.begin());
}

/// The bytes of the token or comment that `sql` begins with; 0 for one without an end, or that may take quotes in.
std::size_t tokenLength(std::string_view sql) {
  char const first = sql.front();
  if (sql.starts_with("--")) return through("\n", sql, 2);
  if (sql.starts_with("/*")) return through("*/", sql, 2);
  if (first == '\'' || first == '"' || first == '`') return through({&first, 1}, sql, 1);
  if (first == '[') return through("]", sql, 1);
  if (first == '$' || first == '@' || first == '#' || first == ':') {
    std::size_t const end = nameLength(sql, 1);
    bool const mayGoOn = end > 1 && end < sql.size() && (sql[end] == '(' || sql[end] == ':');  // as a Tcl variable
    return mayGoOn ? 0 : end;
  }
  return isInName(first) ? nameLength(sql, 1) : 1;
}

bool isComment(std::string_view sql) { return sql.starts_with("--") || sql.starts_with("/*"); }

/// SQLite keeps what stands behind the options of a table, and lets the end of the text end a comment.
bool isOpenComment(std::string_view sql) { return isComment(sql) && tokenLength(sql) == 0; }

}  // namespace

std::optional<std::string_view> statementEnd(std::string_view sql) {
  if (sql.find('\0') != sql.npos) return std::nullopt;  // SQLite reads no further, another program may
  bool hasEnded = false;
  while (!sql.empty()) {
    if (isOpenComment(sql)) return sql.front() == '-' ? "\n;" : "*/;";
    std::size_t const length = tokenLength(sql);
    if (length == 0) return std::nullopt;
    bool const isBlank = sql.front() == ' ' || (sql.front() >= '\t' && sql.front() <= '\r') || isComment(sql);
    if (hasEnded && !isBlank && sql.front() != ';') return std::nullopt;
    if (sql.front() == ';') hasEnded = true;
    sql.remove_prefix(length);
  }
  return ";";
}

}  // namespace tolva
