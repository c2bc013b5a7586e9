// SPDX-License-Identifier: Apache-2.0
// What it takes to show one cell: 200 cells fetched one after the other, after 20 that only warm up.
#include <cstdio>
#include <cstdlib>

#include "core/DatabaseReader.hpp"
#include "measure.h"
#include "preview/CellPreviewService.hpp"

int main(int argc, char** argv) {
  if (argc != 3) return 2;
  std::int64_t const rows = std::atoll(argv[2]);
  keepSecondThread();
  tolva::DatabaseReader reader;
  tolva::TableSchema const schema = reader.schema(reader.open(argv[1], {}).at(0));
  tolva::CellPreviewService service;
  long long bytes = 0;
  unsigned long long ends = 0;  // the sum of the last bytes
  auto began = timeNow();
  for (int cell = 0; cell < 220; ++cell) {
    if (cell == 20) began = timeNow();
    std::int64_t const id = 1 + cell % rows;
    tolva::DatabaseRow const row{.values = {id, tolva::LargeText{65'536}}, .identity = {id}};
    tolva::CellPreview const preview = service.fetch(argv[1], schema, row, "text", {});
    bytes += preview.totalBytes;
    ends += preview.bytes.back();
  }
  char done[200];
  std::snprintf(done, sizeof done, "%lld bytes, last ones %llu", bytes, ends);
  report(began, done);
}
