// SPDX-License-Identifier: Apache-2.0
#include <algorithm>
#include <exception>
#include <iostream>
#include <tolva/core/DatabaseReader.hpp>
#include <tolva/transfer/FileTransfer.hpp>

namespace {

using Path = std::filesystem::path;

/// The table or view of that name, if there is one.
std::optional<tolva::TableSchema> schemaOf(Path const& database, std::string const& name) {
  tolva::DatabaseReader reader;
  std::vector<tolva::DatabaseObject> const objects = reader.open(database, std::stop_token());
  auto const found = std::ranges::find(objects, name, &tolva::DatabaseObject::name);
  if (found == objects.end()) return std::nullopt;
  return reader.schema(*found);
}

/// Writes over the line that it wrote before.
void showProgress(std::int64_t rows) { std::cout << '\r' << rows << " rows" << std::flush; }

void exportTable(Path const& database, std::string const& table, Path const& destination) {
  auto const schema = schemaOf(database, table);
  if (!schema) throw tolva::DatabaseError("There is no table " + table);
  tolva::ExportFormat format = tolva::ExportFormat::csv;
  if (destination.extension() == ".json") format = tolva::ExportFormat::json;
  if (destination.extension() == ".sql") format = tolva::ExportFormat::sql;
  tolva::FileTransfer().exportRows(database, *schema, {}, format, destination, showProgress, std::stop_token());
}

/// Into the table, or into a new one where there is none of that name.
void importFile(Path const& file, Path const& database, std::string const& table) {
  tolva::CSVOptions options;
  if (file.extension() == ".tsv") options.delimiter = '\t';
  tolva::FileTransfer().importCSV(file, database, table, schemaOf(database, table), options, showProgress,
                                  std::stop_token());
}

}  // namespace

int main(int count, char** arguments) try {
  std::string const task = count == 5 ? arguments[1] : "";
  if (task == "export") {
    exportTable(arguments[2], arguments[3], arguments[4]);
  } else if (task == "import") {
    importFile(arguments[2], arguments[3], arguments[4]);
  } else {
    throw tolva::DatabaseError("usage: convert export FILE TABLE DESTINATION, or convert import FILE DATABASE TABLE");
  }
  std::cout << '\n';
} catch (tolva::DatabaseError const& error) {
  std::cerr << error.errorDescription() << '\n';
  return 1;
} catch (std::exception const& error) {  // the system's own, of files and folders
  std::cerr << error.what() << '\n';
  return 1;
}
