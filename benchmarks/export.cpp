// SPDX-License-Identifier: Apache-2.0
// What it takes to export a large table: `export csv|json|sql FILE OUTPUT`, the flush to the disk included.
#include <filesystem>
#include <string_view>

#include "core/DatabaseReader.hpp"
#include "measure.h"
#include "transfer/FileTransfer.hpp"

namespace {

tolva::ExportFormat formatOf(std::string_view name) {
  if (name == "json") return tolva::ExportFormat::json;
  return name == "sql" ? tolva::ExportFormat::sql : tolva::ExportFormat::csv;
}

tolva::TableSchema recordsOf(char const* database) {
  tolva::DatabaseReader reader;
  return reader.schema(reader.open(database, {}).at(0));
}

}  // namespace

int main(int argc, char** argv) {
  if (argc != 4) return 2;
  keepSecondThread();
  tolva::TableSchema const schema = recordsOf(argv[2]);
  tolva::FileTransfer transfer;
  auto const began = timeNow();
  std::int64_t const rows = transfer.exportRows(argv[2], schema, {}, formatOf(argv[1]), argv[3], {}, {});
  char done[100];
  std::snprintf(done, sizeof done, "%lld rows, %ju bytes", static_cast<long long>(rows),
                std::uintmax_t{std::filesystem::file_size(argv[3])});
  report(began, done);
}
