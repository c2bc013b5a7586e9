// SPDX-License-Identifier: Apache-2.0
// What it takes to apply 1,000 changes that a person made: one in each of 1,000 rows spread over a table, in one of two
// columns. Works on a copy, which the benchmark script places in memory: the flushing of a disk would hide the rest.
#include <cstdio>
#include <filesystem>
#include <string>

#include "core/DatabaseReader.hpp"
#include "core/DatabaseWriter.hpp"
#include "core/SQLiteConnection.hpp"
#include "core/SQLiteStatement.hpp"
#include "measure.h"

namespace {

constexpr std::int64_t edited = 1000;
constexpr std::size_t quantity = 1;  // places of columns
constexpr std::size_t note = 7;

tolva::TableSchema schemaOf(char const* path) {
  tolva::DatabaseReader reader;
  reader.open(path, {});
  return reader.schema({.name = "records", .kind = "table", .sql = ""});
}

std::vector<tolva::CellChange> changesOf(char const* path) {
  auto const connection = tolva::SQLiteConnection::open(path, {});
  auto statement = connection->prepare(
      "SELECT * FROM records WHERE id % ((SELECT max(id) FROM records) / ?1) = 0 ORDER BY id LIMIT ?1", {edited});
  std::vector<tolva::CellChange> changes;
  while (statement.step()) {
    tolva::DatabaseRow row{.values = statement.row(/*full=*/false), .identity = {}};
    row.identity = {row.values.front()};
    if (changes.size() % 2 == 0) {
      std::int64_t const before = *row.values[quantity].asInteger();
      changes.push_back({std::move(row), "quantity", before + 1});
    } else {
      changes.push_back({std::move(row), "note", "edited by a person at " + std::to_string(changes.size())});
    }
  }
  return changes;
}

}  // namespace

int main(int argc, char** argv) {
  if (argc != 3) return 2;
  std::filesystem::copy_file(argv[1], argv[2], std::filesystem::copy_options::overwrite_existing);
  keepSecondThread();
  auto const schema = schemaOf(argv[2]);
  auto const changes = changesOf(argv[2]);
  tolva::DatabaseWriter writer;
  writer.open(argv[2]);

  auto const began = timeNow();
  auto const results = writer.apply(schema, changes, {});
  long long quantities = 0, bytes = 0, identities = 0;
  for (tolva::CellChange const& result : results) {
    if (auto const* text = result.row.values[note].asText(); text && result.column == "note")
      bytes += static_cast<long long>(text->size());
    if (result.column == "quantity") quantities += *result.value.asInteger();
    identities += *result.row.identity.front().asInteger();
  }
  char done[200];
  std::snprintf(done, sizeof done, "%zu changes, quantities %lld, %lld bytes of notes, identities %lld", results.size(),
                quantities, bytes, identities);
  report(began, done);
  writer.close();
  std::filesystem::remove(argv[2]);
}
