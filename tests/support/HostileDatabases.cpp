// SPDX-License-Identifier: Apache-2.0
#include "support/HostileDatabases.hpp"

#include <fstream>
#include <string>
#include <utility>
#include <vector>

#include "support/RowsAsText.hpp"
#include "support/SchemaPages.hpp"

namespace tolva {
namespace {

void writeDatabase(std::filesystem::path const& path, std::string const& sql) {
  std::ofstream(path).close();  // an empty file is a database without tables
  rowsAsText(path, "PRAGMA journal_mode = OFF; PRAGMA synchronous = OFF;" + sql);
}

/// Writes a file with a table and a view "v", whose SQL the expression `view` gives.
void writeView(std::filesystem::path const& path, std::string const& view) {
  writeDatabase(path,
                "PRAGMA writable_schema = ON; CREATE TABLE t(a);"
                "INSERT INTO sqlite_schema VALUES ('view', 'v', 'v', 0, " +
                    view + ")");
}

}  // namespace

void writeLongList(std::filesystem::path const& path) {
  writeView(path, "'CREATE VIEW v AS SELECT 1 IN (0' || replace(hex(zeroblob(10000000)), '0', ',0') || ')'");
}

void writeLongToken(std::filesystem::path const& path) {
  writeView(path, "'CREATE VIEW v AS SELECT ' || replace(hex(zeroblob(75000000)), '0', 'a')");
}

void writeMultiplyingViews(std::filesystem::path const& path) {
  std::string sql = "BEGIN; CREATE TABLE v0(x);";
  for (int table = 1; table <= 3000; ++table)
    sql += "CREATE TABLE t" + std::to_string(table) + "(id INTEGER PRIMARY KEY);";
  for (int view = 1; view <= 18; ++view) {
    std::string const below = "v" + std::to_string(view - 1);
    sql += "CREATE VIEW v" + std::to_string(view) + " AS SELECT a.x FROM " + below + " a, " + below + " b;";
  }
  writeDatabase(path, sql + "COMMIT");
}

void writeEndlessSchema(std::filesystem::path const& path) {
  SchemaPages pages;
  SchemaPages::Page below = pages.leaf(std::vector(20, pages.cell(SchemaPages::keptIndex)));
  for (int level = 0; level < 8; ++level) below = pages.interior(std::vector(400, below));
  pages.append(below, 300);
  pages.write(path);
}

void writeSharedSQL(std::filesystem::path const& path) { writeSharedSQL(path, 100'000'000, 1); }

void writeSharedSQL(std::filesystem::path const& path, std::size_t bytes, std::size_t times) {
  SchemaPages pages;
  std::string const cell =
      pages.cell({.type = "view", .name = "v", .table = "v", .sql = "create" + std::string(bytes, ' ')});
  SchemaPages::Page const leaf = pages.leaf({cell});
  pages.append(times == 1 ? leaf : pages.interior(std::vector(times, leaf)), 300);  // one child alone is damage
  pages.write(path);
}

void writeManyKinds(std::filesystem::path const& path) {
  constexpr std::size_t kinds = 14'000;
  constexpr std::size_t cellsOfLeaf = 8;
  constexpr std::size_t leavesOfPage = 300;
  constexpr std::size_t digits = 5;
  SchemaPages pages;
  SchemaEntry const index{.type = "index", .name = "i", .table = "t", .rootPage = 2, .sql = "CREATE INDEX i ON t(a)"};
  std::vector<SchemaPages::Page> branches{pages.leaf({pages.cell(index)})};
  // Of this length the least stands on the leaf itself, and the number within it.
  std::string const mark(digits, '#');
  std::string const cell =
      pages.cell({.type = mark + std::string(61'845, 'x'), .name = "i", .table = "t", .rootPage = 2});
  std::vector<std::string> cells;
  std::vector<SchemaPages::Page> leaves;
  for (std::size_t kind = 0; kind < kinds; ++kind) {
    std::string const number = std::to_string(kind);
    cells.push_back(cell);
    cells.back().replace(cell.find(mark), digits, std::string(digits - number.size(), '0') + number);
    if (cells.size() == cellsOfLeaf) leaves.push_back(pages.leaf(std::exchange(cells, {})));
    if (leaves.size() == leavesOfPage) branches.push_back(pages.interior(std::exchange(leaves, {})));
  }
  branches.push_back(pages.interior(leaves));
  pages.append(pages.interior(branches), 1);
  pages.write(path);
}

std::string doublingQuery() {
  std::string query = "WITH a0 AS (SELECT 1 AS x)";
  for (int table = 1; table < 40; ++table) {
    std::string const half = "SELECT * FROM a" + std::to_string(table - 1);
    query += ", a" + std::to_string(table) + " AS (" + half + " UNION ALL " + half + ")";
  }
  return query + " SELECT * FROM a39";
}

}  // namespace tolva
