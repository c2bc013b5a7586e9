// SPDX-License-Identifier: Apache-2.0
// A delimited file read whole, row by row.
#include <cstdio>
#include <string>

#include "measure.h"
#include "transfer/CSVStream.hpp"

int main(int argc, char** argv) {
  if (argc != 2) return 2;
  keepSecondThread();
  std::stop_source const task;
  long long rows = 0;
  long long fields = 0;
  long long bytes = 0;
  auto const began = timeNow();
  tolva::CSVStream stream(argv[1], {}, {.fieldBytes = 16'777'216});
  while (auto const row = stream.nextFields(task.get_token())) {
    ++rows;
    fields += static_cast<long long>(row->size());
    for (auto const field : *row) bytes += static_cast<long long>(field.size());
  }
  report(began, (std::to_string(rows) + " rows of " + std::to_string(fields) + " fields and " + std::to_string(bytes) +
                 " bytes")
                    .c_str());
}
