// SPDX-License-Identifier: Apache-2.0
// What it takes to run SQL and show its result: `query first FILE FOLDER` twenty times up to the first page of all
// rows, after five that only warm up; `query spool FILE FOLDER` a statement that writes and returns a row for each of
// the table's; `query pages FILE FOLDER` every page of ten times as many rows. The spools lie in FOLDER.
#include <cstdio>
#include <cstdlib>
#include <string_view>

#include "core/QueryExecutor.hpp"
#include "measure.h"

namespace {

constexpr char const* firstSQL = "SELECT id, quantity, price, name, note FROM records";
constexpr char const* spoolSQL =
    "CREATE TEMP TABLE x(id, quantity, name); INSERT INTO x SELECT id, quantity, name FROM records RETURNING *";
constexpr char const* pagesSQL =
    "SELECT id, d.column1, quantity, name FROM records, (VALUES (0),(1),(2),(3),(4),(5),(6),(7),(8),(9)) AS d";

struct Done {
  long rows = 0;
  std::uint64_t integers = 0;  // their sum
  long long bytes = 0;

  void add(tolva::QueryPage const& page) {
    rows += static_cast<long>(page.rows.size());
    for (auto const& row : page.rows) {
      for (tolva::SQLiteValue const& value : row) {
        if (auto const* integer = value.asInteger()) integers += static_cast<std::uint64_t>(*integer);
        if (auto const* text = value.asText()) bytes += static_cast<long long>(text->size());
      }
    }
  }
};

void showAll(tolva::QueryExecutor& executor, Done& done) {
  tolva::QueryPage page = executor.start(pagesSQL, {}, {});
  done.add(page);
  while (!page.finished) {
    page = executor.page(done.rows, {});
    done.add(page);
  }
}

}  // namespace

int main(int argc, char** argv) {
  if (argc != 4) return 2;
  std::string_view const question = argv[1];
  setenv("TMPDIR", argv[3], 1);
  keepSecondThread();
  tolva::QueryExecutor executor;
  executor.open(argv[2], /*readOnly=*/question != "spool");
  Done done;
  for (int warm = 0; question == "first" && warm < 5; ++warm) executor.start(firstSQL, {}, {});
  auto const began = timeNow();
  if (question == "first") {
    for (int run = 0; run < 20; ++run) done.add(executor.start(firstSQL, {}, {}));
  } else if (question == "spool") {
    done.add(executor.start(spoolSQL, {}, {}));
  } else {
    showAll(executor, done);
  }
  char text[200];
  std::snprintf(text, sizeof text, "%ld rows, integers %llu, %lld bytes of text", done.rows,
                static_cast<unsigned long long>(done.integers), done.bytes);
  report(began, text);
}
