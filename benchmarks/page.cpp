// SPDX-License-Identifier: Apache-2.0
// What it takes to show pages of a table: `page keyset FILE KEY` the one behind a key, twenty times after twenty that
// only warm up; `page search FILE KEY` one search of the whole table without a hit.
#include <cstdio>
#include <cstdlib>
#include <string_view>

#include "core/DatabaseReader.hpp"
#include "measure.h"

namespace {

struct Done {
  long rows = 0;
  std::uint64_t integers = 0;  // their sum
  long long bytes = 0;

  void add(tolva::RowPage const& page) {
    rows += static_cast<long>(page.rows.size());
    for (tolva::DatabaseRow const& row : page.rows) {
      for (tolva::SQLiteValue const& value : row.values) {
        if (auto const* integer = value.asInteger()) integers += static_cast<std::uint64_t>(*integer);
        if (auto const* text = value.asText()) bytes += static_cast<long long>(text->size());
      }
    }
  }
};

}  // namespace

int main(int argc, char** argv) {
  if (argc != 4) return 2;
  bool const searches = std::string_view(argv[1]) == "search";
  std::int64_t const key = std::atoll(argv[3]);
  keepSecondThread();
  tolva::DatabaseReader reader;
  tolva::TableSchema const schema = reader.schema(reader.open(argv[2], {}).at(0));
  tolva::BrowseRequest const request{.search = searches ? "NoSuchWord" : ""};
  std::optional<tolva::PageToken> token;
  if (!searches) token = tolva::PageToken{.identity = {key}, .offset = key};
  Done done;
  auto began = timeNow();
  for (int page = 0; page < (searches ? 1 : 40); ++page) {
    if (page == 20) began = timeNow();
    done.add(reader.page(schema, request, token, {}));
  }
  char text[200];
  std::snprintf(text, sizeof text, "%ld rows, integers %llu, %lld bytes of text", done.rows,
                static_cast<unsigned long long>(done.integers), done.bytes);
  report(began, text);
}
