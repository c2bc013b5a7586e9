// SPDX-License-Identifier: Apache-2.0
#include "core/SQLiteStatement.hpp"

#include <sqlite3.h>

#include <utility>

#include "platform/UTF8.hpp"

namespace tolva {
namespace {

/// Binds one value to one parameter and answers with SQLite's result code.
struct Binder {
  sqlite3_stmt* statement;
  int parameter;

  int operator()(std::int64_t value) const { return sqlite3_bind_int64(statement, parameter, value); }
  int operator()(double value) const { return sqlite3_bind_double(statement, parameter, value); }
  int operator()(Null) const { return sqlite3_bind_null(statement, parameter); }
  int operator()(std::string const& text) const {
    return sqlite3_bind_text64(statement, parameter, text.data(), text.size(), SQLITE_TRANSIENT, SQLITE_UTF8);
  }
  int operator()(Bytes const& blob) const {
    if (blob.empty()) return sqlite3_bind_zeroblob(statement, parameter, 0);  // a null pointer would bind NULL
    return sqlite3_bind_blob64(statement, parameter, blob.data(), blob.size(), SQLITE_TRANSIENT);
  }
  int operator()(LargeText) const { return refuse(); }
  int operator()(LargeBlob) const { return refuse(); }

  [[noreturn]] static int refuse() { throw DatabaseError("Open the full value before editing it."); }
};

}  // namespace

SQLiteStatement::SQLiteStatement(std::shared_ptr<SQLiteConnection> connection, std::string_view sql)
    : connection_(std::move(connection)), handle_(nullptr) {
  int const prepared = sqlite3_prepare_v2(connection_->handle(), std::string(sql).c_str(), -1, &handle_, nullptr);
  if (prepared != SQLITE_OK || !handle_) throw connection_->error(prepared);
}

SQLiteStatement::SQLiteStatement(std::shared_ptr<SQLiteConnection> connection, sqlite3_stmt* handle)
    : connection_(std::move(connection)), handle_(handle) {}

SQLiteStatement::~SQLiteStatement() { sqlite3_finalize(handle_); }

SQLiteStatement::SQLiteStatement(SQLiteStatement&& other) noexcept
    : connection_(other.connection_), handle_(std::exchange(other.handle_, nullptr)) {}

void SQLiteStatement::bind(std::span<SQLiteValue const> values) {
  if (std::cmp_not_equal(values.size(), sqlite3_bind_parameter_count(handle_))) {
    throw DatabaseError("Incorrect parameter count");
  }
  int parameter = 0;
  for (SQLiteValue const& value : values) {
    int const bound = std::visit(Binder{handle_, ++parameter}, value.payload());
    if (bound != SQLITE_OK) throw connection_->error(bound);
  }
}

bool SQLiteStatement::step() {
  int const stepped = sqlite3_step(handle_);
  if (stepped != SQLITE_ROW && stepped != SQLITE_DONE) throw connection_->error(stepped);
  return stepped == SQLITE_ROW;
}

int SQLiteStatement::columnCount() const { return sqlite3_column_count(handle_); }

std::vector<std::string> SQLiteStatement::names() const {
  std::vector<std::string> names;
  for (int column = 0; column < columnCount(); ++column) {
    char const* const name = sqlite3_column_name(handle_, column);
    if (!name) throw connection_->error(SQLITE_NOMEM);
    names.push_back(repairUTF8(name));
  }
  return names;
}

SQLiteValue SQLiteStatement::value(int index, bool full) const {
  HandleLock const held(*connection_);
  SQLiteValue value;
  readColumn(index, full, [&](auto&& payload) { value = SQLiteValue(std::forward<decltype(payload)>(payload)); });
  return value;
}

std::vector<SQLiteValue> SQLiteStatement::row(bool full) const {
  std::vector<SQLiteValue> values;
  append(values, 0, columnCount(), full);
  return values;
}

void SQLiteStatement::append(std::vector<SQLiteValue>& values, int first, int count, bool full) const {
  HandleLock const held(*connection_);
  values.reserve(values.size() + static_cast<std::size_t>(count));
  for (int column = first; column < first + count; ++column) {
    readColumn(column, full, [&](auto&& payload) { values.emplace_back(std::forward<decltype(payload)>(payload)); });
  }
}

/// Reads through the column's value object, which saves each call the mutex that the caller holds anyway, and hands the
/// payload to `take`, which makes the value where it stays.
template <class Take>
void SQLiteStatement::readColumn(int index, bool full, Take&& take) const {
  sqlite3_value* const column = sqlite3_column_value(handle_, index);
  switch (sqlite3_value_type(column)) {
    case SQLITE_INTEGER:
      return take(std::int64_t{sqlite3_value_int64(column)});
    case SQLITE_FLOAT:
      return take(sqlite3_value_double(column));
    case SQLITE_TEXT: {
      int const bytes = sqlite3_value_bytes(column);
      if (!full && bytes > inlineTextLimit) return take(LargeText{bytes});
      auto const* const text = reinterpret_cast<char const*>(sqlite3_value_text(column));
      if (text) return take(repairUTF8({text, static_cast<std::size_t>(bytes)}));
      requireMemory();
      return take(std::string());
    }
    case SQLITE_BLOB: {
      int const bytes = sqlite3_value_bytes(column);
      if (!full) return take(LargeBlob{bytes});
      auto const* const blob = static_cast<std::uint8_t const*>(sqlite3_value_blob(column));
      return take(blob ? Bytes(blob, blob + bytes) : Bytes());
    }
    default:
      return take(Null{});
  }
}

/// SQLite gives no pointer for a text only when it could not convert it for lack of memory, which must not read as an
/// empty value. The column reads as NULL from then on.
void SQLiteStatement::requireMemory() const {
  if (sqlite3_errcode(connection_->handle()) == SQLITE_NOMEM) throw connection_->error(SQLITE_NOMEM);
}

}  // namespace tolva
