// SPDX-License-Identifier: Apache-2.0
// A delimited file read whole, row by row: its fields as views, or as strings of their own.
#include <cstdio>
#include <string>
#include <string_view>

#include "measure.h"
#include "transfer/CSVStream.hpp"

namespace {

struct Counts {
  long long rows = 0;
  long long fields = 0;
  long long bytes = 0;

  template <class Row>
  void add(Row const& row) {
    ++rows;
    fields += static_cast<long long>(row.size());
    for (auto const& field : row) bytes += static_cast<long long>(field.size());
  }
};

}  // namespace

int main(int argc, char** argv) {
  if (argc != 3) return 2;
  std::string_view const kind = argv[1];
  if (kind != "views" && kind != "strings") return 2;
  keepSecondThread();
  std::stop_source const task;
  Counts counts;
  auto const began = timeNow();
  tolva::CSVStream stream(argv[2], {}, {.fieldBytes = 16'777'216});
  if (kind == "views") {
    while (auto const row = stream.nextFields(task.get_token())) counts.add(*row);
  } else {
    while (auto const row = stream.next(task.get_token())) counts.add(*row);
  }
  report(began, (std::to_string(counts.rows) + " rows of " + std::to_string(counts.fields) + " fields and " +
                 std::to_string(counts.bytes) + " bytes")
                    .c_str());
}
