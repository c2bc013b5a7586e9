// SPDX-License-Identifier: Apache-2.0
// A table exported as `export csv|json|sql FILE OUTPUT`.
#include <cstdint>
#include <cstdio>
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
  tolva::FileTransfer transfer;
  std::int64_t const rows = transfer.exportRows(argv[2], recordsOf(argv[2]), {}, formatOf(argv[1]), argv[3], {}, {});
  std::printf("%jd rows, %ju bytes\n", std::intmax_t{rows}, std::uintmax_t{std::filesystem::file_size(argv[3])});
}
