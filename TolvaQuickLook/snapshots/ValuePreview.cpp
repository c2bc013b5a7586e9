// SPDX-License-Identifier: Apache-2.0
#include "snapshots/ValuePreview.hpp"

#include <fmt/format.h>
#include <sqlite3.h>
#include <unicode/utf8.h>

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdint>
#include <span>
#include <string_view>

#include "platform/SHA256.hpp"
#include "platform/UTF8.hpp"

namespace tolva {
namespace {

constexpr std::size_t textLimit = 1024;  // bytes
constexpr std::size_t blobLimit = 64;

// Characters -----------------------------------------------------------------------------------------

struct CharacterRange {
  char32_t first;
  char32_t last;
};

/// Controls, line and paragraph separators, the marks that reorder what stands beside them, and what takes no room, by
/// which two texts would differ that look alike.
constexpr std::array<CharacterRange, 9> escapedRanges{{{0x00, 0x1F},
                                                       {0x7F, 0x9F},
                                                       {0x061C, 0x061C},
                                                       {0x180E, 0x180E},
                                                       {0x200B, 0x200F},
                                                       {0x2028, 0x202E},
                                                       {0x2060, 0x2069},
                                                       {0xFEFF, 0xFEFF},
                                                       {0xE0000, 0xE007F}}};

bool isEscaped(char32_t character) {
  return std::ranges::any_of(
      escapedRanges, [&](CharacterRange const& range) { return range.first <= character && character <= range.last; });
}

/// A character whose code point is `value`.
std::string escaped(std::string_view character, char32_t value) {
  switch (value) {
    case '"':
    case '\\':
      return "\\" + std::string(character);
    case '\n':
      return "\\n";
    case '\r':
      return "\\r";
    case '\t':
      return "\\t";
    default:
      if (isEscaped(value)) return fmt::format("\\u{{{:x}}}", static_cast<std::uint32_t>(value));
      return std::string(character);
  }
}

/// Of valid UTF-8.
std::string quotedText(std::string_view text) {
  std::string result = "\"";
  for (std::size_t end = 0; end < text.size();) {
    std::size_t const begin = end;
    UChar32 value = 0;
    U8_NEXT_UNSAFE(text.data(), end, value);
    result += escaped(text.substr(begin, end - begin), static_cast<char32_t>(value));
  }
  return result += '"';
}

// Values ---------------------------------------------------------------------------------------------

/// As many of the bytes as are shown.
struct Head {
  std::string_view shown;
  std::size_t total;

  bool isCut() const { return shown.size() < total; }
  std::string hex() const {
    auto const* const bytes = reinterpret_cast<std::uint8_t const*>(shown.data());
    return hexText(std::span(bytes, shown.size())) + ellipsis() + size();
  }
  std::string ellipsis() const { return isCut() ? "\u2026" : ""; }
  std::string size() const { return " [" + std::to_string(total) + " bytes]"; }
};

Head headOf(void const* bytes, int total, std::size_t limit) {
  auto const size = static_cast<std::size_t>(total);
  return {.shown = {static_cast<char const*>(bytes), std::min(size, limit)}, .total = size};
}

/// SQLite gives no pointer also where it could not convert a text or fill a blob for lack of memory.
void requireMemory(SQLiteStatement const& row) {
  sqlite3* const handle = row.connection()->handle();
  if (sqlite3_errcode(handle) == SQLITE_NOMEM) throw row.connection()->error(SQLITE_NOMEM);
}

std::string textPreview(SQLiteStatement const& row, int column) {
  void const* const bytes = sqlite3_column_text(row.handle(), column);
  Head const head = headOf(bytes, sqlite3_column_bytes(row.handle(), column), textLimit);
  if (!bytes) requireMemory(row);
  if (!bytes || head.total == 0) return "TEXT \"\"";
  if (!isValidUTF8(head.shown)) return "TEXT UTF-8 hex " + head.hex();
  return "TEXT " + quotedText(head.shown) + (head.isCut() ? head.ellipsis() + head.size() : "");
}

std::string blobPreview(SQLiteStatement const& row, int column) {
  void const* const bytes = sqlite3_column_blob(row.handle(), column);
  Head const head = headOf(bytes, sqlite3_column_bytes(row.handle(), column), blobLimit);
  if (!bytes) requireMemory(row);
  if (!bytes || head.total == 0) return "BLOB (0 bytes)";
  return "BLOB hex " + head.hex();
}

}  // namespace

std::string valuePreview(SQLiteStatement const& row, int column) {
  auto const number = [&] { return row.value(column, /*full=*/false).display(); };
  switch (sqlite3_column_type(row.handle(), column)) {
    case SQLITE_INTEGER:
      return "INTEGER " + number();
    case SQLITE_FLOAT:
      return "REAL " + number();
    case SQLITE_TEXT:
      return textPreview(row, column);
    case SQLITE_BLOB:
      return blobPreview(row, column);
    default:
      return "NULL";
  }
}

}  // namespace tolva
