// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "core/BrowseRequest.hpp"
#include "core/DatabaseRow.hpp"
#include "core/SQLiteConnection.hpp"

namespace tolva {

/// A naive second opinion on browsing: all rows of a table in memory, filtered, searched and sorted one by one by
/// SQLite's documented rules of comparison (https://sqlite.org/datatype3.html), without a statement.
class BrowseOracle {
 public:
  enum class Affinity { none, text, numeric };

  struct Column {
    std::string name;
    std::string type;  // as declared
    Affinity affinity;
    bool ignoresCase;  // its collation is NOCASE
  };

  /// Reads the whole table through a plain statement. `identity` are names of columns, or a rowid.
  BrowseOracle(SQLiteConnection& connection, std::string const& table, std::vector<Column> columns,
               std::vector<std::string> identity);

  /// All rows of the request, as a page gives them.
  std::vector<DatabaseRow> rows(BrowseRequest const& request) const;

 private:
  struct Stored {
    std::vector<SQLiteValue> values;    // whole
    std::vector<SQLiteValue> identity;  // whole
  };

  bool shows(Stored const& row, BrowseRequest const& request) const;
  bool passes(Stored const& row, TableFilter const& filter) const;
  bool isFound(Stored const& row, std::string const& search) const;
  bool precedes(Stored const& left, Stored const& right, BrowseRequest const& request) const;
  Column const& columnOf(std::string const& name) const;
  std::size_t indexOf(std::string const& name) const;

  std::vector<Column> const columns_;
  std::vector<std::string> const identity_;
  std::vector<Stored> stored_;
};

/// Numbers below a bound: from a generator in a test, from the input in a fuzz target.
using Draw = std::function<std::uint32_t(std::uint32_t bound)>;

/// A value of the kind that the tables of the oracle hold.
SQLiteValue drawValue(Draw const& draw);

/// A request with up to three filters and perhaps a search and a sort.
BrowseRequest drawRequest(Draw const& draw, std::vector<BrowseOracle::Column> const& columns);

/// One of the oracle's tables.
struct BrowseTable {
  std::string name;
  std::string sql;  // makes it
  std::vector<BrowseOracle::Column> columns;
  std::vector<std::string> identity;
};

/// A table by rowid, one by an alias of it, and one by a key of two columns.
std::vector<BrowseTable> const& browseTables();

/// Fills a table with `count` drawn rows; those that collide with a key are left out.
void fill(SQLiteConnection& connection, BrowseTable const& table, int count, Draw const& draw);

}  // namespace tolva
