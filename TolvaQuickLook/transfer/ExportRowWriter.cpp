// SPDX-License-Identifier: Apache-2.0
#include "transfer/ExportRowWriter.hpp"

#include <sqlite3.h>

#include <charconv>
#include <cmath>
#include <string_view>
#include <utility>

#include "core/SQLIdentifier.hpp"
#include "platform/DoubleText.hpp"
#include "platform/JSONWriter.hpp"
#include "platform/JoinedText.hpp"
#include "transfer/ByteForms.hpp"

namespace tolva {

struct ExportRowWriter::Notation {
  std::string_view betweenRows;
  std::string_view afterRow;
  std::string_view null;
  std::string_view infinity;
  std::string_view noInfinity;  // a double that is neither finite nor positive infinity
  std::string_view beforeText;
  std::string_view afterText;
  std::string_view beforeBlob;
  std::string_view afterBlob;
  ByteForm text;
};

namespace {

using Notation = ExportRowWriter::Notation;

constexpr std::int64_t progressStep = 500;  // rows
constexpr std::size_t mostInteger = 20;     // characters

constexpr Notation csv{.betweenRows = "",
                       .afterRow = "\r\n",
                       .null = "",
                       .infinity = "9e999",
                       .noInfinity = "-9e999",
                       .beforeText = "\"",
                       .afterText = "\"",
                       .beforeBlob = "\"",
                       .afterBlob = "\"",
                       .text = doubledQuotes};

constexpr Notation json{.betweenRows = ",\n",
                        .afterRow = "}",
                        .null = "null",
                        .infinity = "null",
                        .noInfinity = "null",
                        .beforeText = "\"",
                        .afterText = "\"",
                        .beforeBlob = "\"",
                        .afterBlob = "\"",
                        .text = escapedBytes};

/// A text in hexadecimal digits, so that neither a quote nor a NUL in it can end the statement.
constexpr Notation sql{.betweenRows = "",
                       .afterRow = ");\n",
                       .null = "null",
                       .infinity = "9e999",
                       .noInfinity = "-9e999",
                       .beforeText = "CAST(X'",
                       .afterText = "' AS TEXT)",
                       .beforeBlob = "X'",
                       .afterBlob = "'",
                       .text = hexDigits};

Notation const& notationOf(ExportFormat format) {
  switch (format) {
    case ExportFormat::csv:
      return csv;
    case ExportFormat::json:
      return json;
    case ExportFormat::sql:
      break;
  }
  return sql;
}

std::string insertInto(TableSchema const& schema) {
  std::vector<std::string> names;
  for (DatabaseColumn const& column : schema.columns) {
    if (!column.generated) names.push_back(column.name);
  }
  return "INSERT INTO " + quoteIdentifier(schema.object.name) + " (" + joined(quoted(names), ",") + ") VALUES (";
}

std::string memberName(std::string const& column) {
  std::string name;
  JSONWriter(name).value(column);
  return name + ":";
}

/// Writes `bytes` in pieces that grow to no more than the file has room for.
void put(ExportFile& file, std::string_view bytes, ByteForm const& form) {
  std::size_t const most = ExportFile::capacity / form.mostGrowth;
  while (!bytes.empty()) {
    std::string_view const piece = bytes.substr(0, most);
    file.wroteTo(form.write(file.room(piece.size() * form.mostGrowth), piece));
    bytes.remove_prefix(piece.size());
  }
}

}  // namespace

ExportRowWriter::ExportRowWriter(TableSchema const& schema, ExportFormat format, ExportFile& file,
                                 TransferProgress progress)
    : notation_(notationOf(format)), file_(file), progress_(std::move(progress)) {
  if (format == ExportFormat::json) beforeRow_ = "{";
  if (format == ExportFormat::sql) beforeRow_ = insertInto(schema);
  int index = 0;
  for (DatabaseColumn const& column : schema.columns) {
    bool const isWritten = format != ExportFormat::sql || !column.generated;
    std::string before = columns_.empty() ? "" : ",";
    if (format == ExportFormat::json) before += memberName(column.name);
    if (isWritten) columns_.push_back({index, std::move(before)});
    ++index;
  }
}

void ExportRowWriter::write(SQLiteStatement const& row) {
  if (rows_ > 0) file_.put(notation_.betweenRows);
  file_.put(beforeRow_);
  for (Column const& column : columns_) {
    file_.put(column.before);
    writeValue(row, sqlite3_column_value(row.handle(), column.index));
  }
  file_.put(notation_.afterRow);
  if (++rows_ % progressStep == 0 && progress_) progress_(rows_);
}

void ExportRowWriter::writeValue(SQLiteStatement const& row, sqlite3_value* value) {
  switch (sqlite3_value_type(value)) {
    case SQLITE_INTEGER:
      return writeInteger(sqlite3_value_int64(value));
    case SQLITE_FLOAT:
      return writeReal(sqlite3_value_double(value));
    case SQLITE_TEXT:
      return writeText(row, value);
    case SQLITE_BLOB:
      return writeBlob(row, value);
    default:
      return file_.put(notation_.null);
  }
}

/// Without a pointer SQLite lacked the memory to convert or to hold the value, which must not read as an empty one.
void ExportRowWriter::writeText(SQLiteStatement const& row, sqlite3_value* value) {
  auto const* const text = reinterpret_cast<char const*>(sqlite3_value_text(value));
  if (!text) throw row.connection()->error(SQLITE_NOMEM);
  file_.put(notation_.beforeText);
  put(file_, {text, static_cast<std::size_t>(sqlite3_value_bytes(value))}, notation_.text);
  file_.put(notation_.afterText);
}

void ExportRowWriter::writeBlob(SQLiteStatement const& row, sqlite3_value* value) {
  auto const* const blob = static_cast<char const*>(sqlite3_value_blob(value));
  auto const size = static_cast<std::size_t>(sqlite3_value_bytes(value));
  if (!blob && size > 0) throw row.connection()->error(SQLITE_NOMEM);
  file_.put(notation_.beforeBlob);
  put(file_, {blob, size}, hexDigits);
  file_.put(notation_.afterBlob);
}

void ExportRowWriter::writeInteger(std::int64_t value) {
  char* const out = file_.room(mostInteger);
  file_.wroteTo(std::to_chars(out, out + mostInteger, value).ptr);
}

void ExportRowWriter::writeReal(double value) {
  if (!std::isfinite(value)) return file_.put(value > 0 ? notation_.infinity : notation_.noInfinity);
  file_.wroteTo(writeDoubleText(file_.room(mostDoubleText), value));
}

}  // namespace tolva
