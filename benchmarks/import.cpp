// SPDX-License-Identifier: Apache-2.0
// A delimited file imported into a table of a new database, which the benchmark script places in memory: into one that
// is made for it, whose types are found first, or into one that is there.
#include <cstdio>
#include <filesystem>
#include <string>

#include "core/DatabaseReader.hpp"
#include "core/SQLiteConnection.hpp"
#include "measure.h"
#include "transfer/FileTransfer.hpp"

namespace {

std::optional<tolva::TableSchema> makeTable(std::filesystem::path const& database) {
  tolva::SQLiteConnection::open(database, {.readOnly = false})
      ->execute(
          "CREATE TABLE t(id INTEGER, quantity INTEGER, price REAL, code TEXT, note TEXT, day TEXT, "
          "description TEXT, digest TEXT)");
  tolva::DatabaseReader reader;
  reader.open(database, {});
  return reader.schema({.name = "t", .kind = "table", .sql = ""});
}

}  // namespace

int main(int argc, char** argv) {
  if (argc != 4) return 2;
  bool const fresh = std::string(argv[1]) == "new";
  std::filesystem::path const database = std::string(argv[3]) + "/import.db";
  std::filesystem::remove(database);
  keepSecondThread();
  tolva::SQLiteConnection::open(database, {.readOnly = false, .create = true})->execute("PRAGMA user_version = 1");
  auto const schema = fresh ? std::nullopt : makeTable(database);
  auto const rows = tolva::FileTransfer().importCSV(argv[2], database, "t", schema, {}, [](std::int64_t) {}, {});
  std::printf("{\"rows\":%lld}\n", static_cast<long long>(rows));
  std::filesystem::remove(database);
}
