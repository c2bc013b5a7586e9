// SPDX-License-Identifier: Apache-2.0
#include "preview/CellPreviewService.hpp"

#include <algorithm>
#include <cstddef>
#include <optional>
#include <string_view>
#include <utility>

#include "platform/TaskCancellation.hpp"
#include "platform/UTF8.hpp"
#include "preview/CellHead.hpp"
#include "preview/CellInterpretation.hpp"
#include "preview/HexDump.hpp"
#include "preview/JSONPreview.hpp"
#include "preview/PreviewFile.hpp"
#include "preview/StructuredCellPreview.hpp"

namespace tolva {
namespace {

// What is shown ------------------------------------------------------------------------------------

std::string_view textOf(Bytes const& bytes) { return {reinterpret_cast<char const*>(bytes.data()), bytes.size()}; }

/// A head that was cut inside a character is no text: it is shown as hex.
std::optional<std::string> shownText(std::string const& type, Bytes const& bytes) {
  if (type == "null") return "NULL";
  if (!isValidUTF8(textOf(bytes))) return std::nullopt;
  return std::string(textOf(bytes));
}

void addJSON(CellPreview& preview) {
  std::optional<JSONPreview> json = jsonPreview(textOf(preview.bytes));
  if (!json) return;
  preview.prettyJSON = std::move(json->pretty);
  preview.treeNodes = std::move(json->nodes);
  preview.jsonTree = std::move(json->paths);
}

void addStructure(CellPreview& preview, PreviewHelpers const& helpers, std::stop_token const& task) {
  if (std::optional<StructuredCellPreview::Text> text = StructuredCellPreview::text(preview.bytes, task)) {
    preview.structuredFormat = std::move(text->format);
    preview.structuredText = std::move(text->text);
  }
  StructuredCellPreview::PDF pdf = StructuredCellPreview::pdf(preview.bytes, helpers, task);
  preview.pdfThumbnailPNG = std::move(pdf.thumbnailPNG);
  preview.pdfSummary = std::move(pdf.summary);
}

// Values in memory ---------------------------------------------------------------------------------

CellHead headOf(std::string type, std::string_view bytes) {
  std::string_view const head = bytes.substr(0, std::size_t{mostHeadBytes});
  return {.type = std::move(type),
          .totalBytes = static_cast<std::int64_t>(bytes.size()),
          .bytes = {head.begin(), head.end()}};
}

CellHead headOf(SQLiteValue const& value) {
  if (value.isDeferred()) throw DatabaseError("The complete value must be fetched by row identity.");
  if (value.asInteger()) return headOf("integer", value.display());
  if (value.asReal()) return headOf("real", value.display());
  if (auto const* const text = value.asText()) return headOf("text", *text);
  if (auto const* const blob = value.asBlob()) return headOf("blob", textOf(*blob));
  return {.type = "null"};
}

// Stored values ------------------------------------------------------------------------------------

SQLiteValue const& cellOf(TableSchema const& schema, DatabaseRow const& row, std::string const& column) {
  auto const found = std::ranges::find(schema.columns, column, &DatabaseColumn::name);
  auto const place = static_cast<std::size_t>(found - schema.columns.begin());
  if (found == schema.columns.end() || place >= row.values.size()) {
    throw DatabaseError("The selected column is no longer available.");
  }
  return row.values[place];
}

void requireIdentity(TableSchema const& schema, DatabaseRow const& row) {
  bool const usable =
      row.identity.size() == schema.identity.size() && std::ranges::none_of(row.identity, &SQLiteValue::isDeferred);
  if (!usable) throw DatabaseError("This row has no usable identity. Refresh and select it again.");
}

}  // namespace

CellPreviewService::CellPreviewService(PreviewHelpers helpers)
    : cancellation_(std::make_shared<CancellationHandle>()), helpers_(std::move(helpers)) {}

CellPreview CellPreviewService::fetch(std::filesystem::path const& database, TableSchema const& schema,
                                      DatabaseRow const& row, std::string const& column, std::stop_token task) {
  Turn const turn(turns_);
  checkCancellation(task);
  SQLiteValue const& cell = cellOf(schema, row, column);
  if (schema.identity.empty()) {
    if (!cell.isDeferred()) return render(headOf(cell), task);
    throw DatabaseError("This value is deferred and the object has no stable row identity. Export it instead.");
  }
  requireIdentity(schema, row);
  return render(readCellHead(database, schema, row.identity, column, cancellation_, task), task);
}

CellPreview CellPreviewService::cached(SQLiteValue const& value, std::stop_token task) {
  Turn const turn(turns_);
  return render(headOf(value), task);
}

CellPreview CellPreviewService::previewBytes(std::string const& type, std::int64_t total, Bytes bytes,
                                             std::stop_token task) {
  Turn const turn(turns_);
  bool const valid = (type == "text" || type == "blob") && bytes.size() <= std::size_t{mostHeadBytes} &&
                     std::cmp_less_equal(bytes.size(), total);
  if (!valid) throw DatabaseError("Invalid preview bytes.");
  return render({.type = type, .totalBytes = total, .bytes = std::move(bytes)}, task);
}

void CellPreviewService::save(CellPreview const& preview, std::filesystem::path const& to,
                              std::filesystem::path const& source, std::stop_token task) {
  Turn const turn(turns_);
  checkCancellation(task);
  PreviewFile file(to, source);
  file.write(preview.bytes, task);
  checkCancellation(task);  // of a small preview the last write is the only one
  file.keep();
}

CellPreview CellPreviewService::render(CellHead head, std::stop_token const& task) const {
  checkCancellation(task);
  bool const whole = std::cmp_equal(head.bytes.size(), head.totalBytes);
  CellPreview preview{
      .storageType = std::move(head.type), .totalBytes = head.totalBytes, .bytes = std::move(head.bytes)};
  preview.text = shownText(preview.storageType, preview.bytes);
  if (whole) {
    addJSON(preview);
    preview.thumbnailPNG = helpers_.thumbnail(preview.bytes, task);
  }
  preview.hex = hexDump(preview.bytes);
  if (whole) addStructure(preview, helpers_, task);
  checkCancellation(task);
  if (whole && preview.text) preview.interpretation = CellInterpretation::describe(*preview.text);
  return preview;
}

}  // namespace tolva
