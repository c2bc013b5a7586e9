// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdint>
#include <filesystem>
#include <optional>
#include <string>
#include <vector>

namespace tolva {

/// One entry of a schema, with its columns as SQLite knows them (https://sqlite.org/schematab.html).
struct SchemaEntry {
  std::string type;
  std::string name;
  std::string table;
  std::int32_t rootPage = 0;
  std::optional<std::string> sql{};
};

/// A database file whose schema is put together page by page (https://sqlite.org/fileformat.html), for what no program
/// would write: SQLite reads a tree without asking whether two branches lead to the same page.
///
/// It begins as `CREATE TABLE t(a UNIQUE)`, so that `keptIndex` stands for an entry that SQLite accepts any number of
/// times.
class SchemaPages {
 public:
  using Page = std::uint32_t;

  static SchemaEntry const keptIndex;

  SchemaPages();

  /// The cell of an entry; what does not fit on a leaf lies on pages that every use of the cell shares.
  std::string cell(SchemaEntry const& entry);

  Page leaf(std::vector<std::string> const& cells);
  Page interior(std::vector<Page> const& children);

  /// Puts `page` below the root `times` over, behind the entries of the table.
  void append(Page page, std::size_t times);

  void write(std::filesystem::path const& path) const;

 private:
  Page add(std::string const& page);
  Page addOverflow(std::string_view rest);

  std::string bytes_;
};

}  // namespace tolva
