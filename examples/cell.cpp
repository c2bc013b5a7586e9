// SPDX-License-Identifier: Apache-2.0
#include <algorithm>
#include <exception>
#include <iostream>
#include <tolva/core/DatabaseReader.hpp>
#include <tolva/preview/CellPreviewService.hpp>

#include "TerminalText.hpp"

namespace {

tolva::TableSchema schemaOf(std::filesystem::path const& file, std::string const& table) {
  tolva::DatabaseReader reader;
  std::vector<tolva::DatabaseObject> const objects = reader.open(file, std::stop_token());
  auto const found = std::ranges::find(objects, table, &tolva::DatabaseObject::name);
  if (found == objects.end()) throw tolva::DatabaseError("There is no table " + table);
  return reader.schema(*found);
}

/// A row by what names it, as far as a preview needs one: its values are read anew.
tolva::DatabaseRow rowNamed(tolva::TableSchema const& schema, std::string const& id) {
  if (schema.identity.size() != 1)
    throw tolva::DatabaseError("No single column names the rows of " + schema.object.name);
  auto const key = std::ranges::find(schema.columns, schema.identity[0], &tolva::DatabaseColumn::name);
  std::string const type = key == schema.columns.end() ? "INTEGER" : key->type;  // a rowid need not be a column
  return {.values = std::vector<tolva::SQLiteValue>(schema.columns.size()),
          .identity = {tolva::SQLiteValue::input(id, type)}};
}

/// A heading and what stands under it, for what there is.
void print(std::string const& heading, std::optional<std::string> const& text) {
  if (text) std::cout << "\n== " << heading << '\n' << terminalText(*text) << '\n';
}

void print(tolva::CellPreview const& preview) {
  std::cout << preview.storageType << ", " << preview.totalBytes << " bytes";
  if (preview.truncated()) std::cout << ", of which the first " << preview.bytes.size() << " are shown";
  std::cout << '\n';
  print("Text", preview.text);
  print("Meaning", preview.interpretation);
  print("JSON", preview.prettyJSON);
  print("JSON paths", preview.jsonTree);
  print(preview.structuredFormat.value_or(""), preview.structuredText);
  print("PDF", preview.pdfSummary);
  if (!preview.hex.empty()) print("Hex", preview.hex);
}

/// Writes the picture of a cell, or of its first page, to a new file; an old one is never touched.
void savePicture(tolva::CellPreviewService& service, tolva::CellPreview const& preview,
                 std::filesystem::path const& picture, std::filesystem::path const& file) {
  std::optional<tolva::Bytes> const& png = preview.thumbnailPNG ? preview.thumbnailPNG : preview.pdfThumbnailPNG;
  if (!png) return;
  service.save({.bytes = *png}, picture, file, std::stop_token());
  std::cout << "\n== Picture\n" << picture.filename().string() << '\n';
}

}  // namespace

int main(int count, char** arguments) try {
  if (count != 5 && count != 6) throw tolva::DatabaseError("usage: cell FILE TABLE COLUMN ROWID [PICTURE.png]");
  std::filesystem::path const file = arguments[1];
  tolva::TableSchema const schema = schemaOf(file, arguments[2]);
  tolva::CellPreviewService service;
  tolva::CellPreview const preview =
      service.fetch(file, schema, rowNamed(schema, arguments[4]), arguments[3], std::stop_token());
  print(preview);
  if (count == 6) savePicture(service, preview, arguments[5], file);
} catch (tolva::DatabaseError const& error) {
  std::cerr << terminalText(error.errorDescription()) << '\n';
  return 1;
} catch (std::exception const& error) {  // the system's own, of files and folders
  std::cerr << terminalText(error.what()) << '\n';
  return 1;
}
