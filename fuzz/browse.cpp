// SPDX-License-Identifier: Apache-2.0
// Any bytes as a request: the pages show the same rows in the same order as a naive filter in memory, they are as many
// as the count says, and each is found again by its position and its identity.

#include <unistd.h>

#include <algorithm>
#include <cstdint>
#include <filesystem>

#include "core/DatabaseReader.hpp"
#include "fuzz/Expect.hpp"
#include "support/BrowseOracle.hpp"

namespace tolva {
namespace {

/// The numbers that a request is drawn from: the input's bytes, then zeros.
class Bits {
 public:
  Bits(std::uint8_t const* data, std::size_t size) : data_(data), size_(size) {}

  std::uint32_t operator()(std::uint32_t bound) {
    std::uint32_t const byte = next_ < size_ ? data_[next_] : 0;
    ++next_;
    return byte % bound;
  }

 private:
  std::uint8_t const* const data_;
  std::size_t const size_;
  std::size_t next_ = 0;
};

/// The oracle's tables in one file, the same in every run.
class Tables {
 public:
  Tables() : file_(std::filesystem::temp_directory_path() / ("tolva-fuzz-browse-" + std::to_string(getpid()) + ".db")) {
    std::filesystem::remove(file_);
    auto const connection = SQLiteConnection::open(file_, {.readOnly = false, .create = true});
    std::uint32_t state = 1;
    Draw const draw = [&](std::uint32_t bound) {
      state = state * 1'664'525 + 1'013'904'223;
      return (state >> 8) % bound;
    };
    for (BrowseTable const& table : browseTables()) {
      connection->execute(table.sql);
      fill(*connection, table, 700, draw);
      oracles_.push_back(std::make_unique<BrowseOracle>(*connection, table.name, table.columns, table.identity));
    }
    reader.open(file_, {});
  }
  ~Tables() { std::filesystem::remove(file_); }

  BrowseOracle const& oracle(std::size_t table) const { return *oracles_[table]; }

  DatabaseReader reader;

 private:
  std::filesystem::path const file_;
  std::vector<std::unique_ptr<BrowseOracle>> oracles_;
};

std::vector<DatabaseRow> pagedRows(DatabaseReader& reader, TableSchema const& schema, BrowseRequest const& request) {
  std::vector<DatabaseRow> rows;
  RowPage page = reader.page(schema, request, {}, {});
  for (; page.next; page = reader.page(schema, request, page.next, {})) {
    rows.insert(rows.end(), page.rows.begin(), page.rows.end());
  }
  return rows;
}

void checkSelection(DatabaseReader& reader, TableSchema const& schema, BrowseRequest const& request,
                    std::vector<DatabaseRow> const& all, Draw const& draw) {
  RowSelection selection;
  for (int position = 0; position < 4 && !all.empty(); ++position) {
    selection.insert(draw(256) * draw(256) % std::ssize(all));
  }
  std::vector<DatabaseRow> const selected = reader.selectedRows(schema, request, selection, {});
  std::size_t index = 0;
  for (auto const& range : selection.ranges()) {
    for (std::int64_t position = range.first; position < range.end; ++position, ++index) {
      expect(selected[index].values == all[static_cast<std::size_t>(position)].values,
             "a selected row is the one there");
    }
  }
  expect(index == selected.size(), "as many rows are selected as positions");
}

void check(Tables& tables, Draw const& draw) {
  std::uint32_t const table = draw(static_cast<std::uint32_t>(browseTables().size()));
  BrowseTable const& described = browseTables()[table];
  TableSchema const schema = tables.reader.schema({.name = described.name, .kind = "table", .sql = ""});
  BrowseRequest const request = drawRequest(draw, described.columns);
  std::vector<DatabaseRow> const expected = tables.oracle(table).rows(request);
  expect(pagedRows(tables.reader, schema, request) == expected, "the pages agree with the naive filter");
  expect(tables.reader.count(schema, request) == std::ssize(expected), "the count agrees with the pages");
  checkSelection(tables.reader, schema, request, expected, draw);
  if (!expected.empty()) {
    DatabaseRow const& row = expected[draw(256) % expected.size()];
    expect(tables.reader.row(schema, row.identity) == row, "a row is found again by its identity");
  }
}

}  // namespace
}  // namespace tolva

extern "C" int LLVMFuzzerTestOneInput(std::uint8_t const* data, std::size_t size) {
  static tolva::Tables tables;
  tolva::check(tables, tolva::Bits(data, size));
  return 0;
}
