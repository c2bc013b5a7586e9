// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdint>
#include <initializer_list>
#include <memory>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "core/SQLiteConnection.hpp"
#include "core/SQLiteValue.hpp"
#include "platform/Export.hpp"

struct sqlite3_stmt;

namespace tolva {

/// The longest text, in bytes of UTF-8, that a read carries when it is not asked for full values.
inline constexpr int inlineTextLimit = 65'536;

/// Owner of one prepared statement, which keeps its connection open. Used in the turn of the connection's service.
///
/// There is no reset: a loop that runs a statement again calls `sqlite3_reset` on `handle()` itself.
class TOLVA_EXPORT SQLiteStatement {
 public:
  /// Compiles the first statement of `sql`; throws with SQLite's message.
  SQLiteStatement(std::shared_ptr<SQLiteConnection> connection, std::string_view sql);

  /// Adopts a prepared handle, which is not null.
  SQLiteStatement(std::shared_ptr<SQLiteConnection> connection, sqlite3_stmt* handle);

  ~SQLiteStatement();
  SQLiteStatement(SQLiteStatement&& other) noexcept;
  SQLiteStatement& operator=(SQLiteStatement&&) = delete;

  // Running ------------------------------------------------------------------------------------

  /// Binds the positional parameters from the first on. As many values as parameters, or nothing is bound and it
  /// throws; a deferred value throws too. An empty blob stays a blob.
  void bind(std::span<SQLiteValue const> values);

  /// Steps to the next row; false at the end. An interrupted statement throws and starts again at its first row if
  /// stepped once more: drop it.
  bool step();

  // The current row ----------------------------------------------------------------------------

  int columnCount() const;
  std::vector<std::string> names() const;

  /// One column. With `full` false a blob of any size, and a text above `inlineTextLimit`, comes back as a marker of
  /// its length and its bytes are not fetched. Invalid UTF-8 is repaired to U+FFFD: such a text may equal no stored
  /// one.
  SQLiteValue value(int index, bool full) const;

  /// All columns, by the same rules.
  std::vector<SQLiteValue> row(bool full) const;

  /// Reads `count` columns from `first` on, by the same rules, to the end of `values`.
  void append(std::vector<SQLiteValue>& values, int first, int count, bool full) const;

  sqlite3_stmt* handle() const { return handle_; }
  std::shared_ptr<SQLiteConnection> const& connection() const { return connection_; }

 private:
  template <class Take>
  void readColumn(int index, bool full, Take&& take) const;  // under the handle's mutex
  void requireMemory() const;

  std::shared_ptr<SQLiteConnection> const connection_;
  sqlite3_stmt* handle_;
};

}  // namespace tolva
