// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "core/DatabaseReader.hpp"
#include "support/NoTask.hpp"
#include "support/TemporaryDatabase.hpp"

namespace tolva {

/// A database with the object `name`, open in a reader.
class Browsed {
 public:
  explicit Browsed(std::string const& sql, std::string const& name = "t") : database(sql) {
    for (DatabaseObject const& object : reader.open(database.path(), noTask)) {
      if (object.name == name) schema = reader.schema(object);
    }
  }

  RowPage page(BrowseRequest const& request = {}, std::optional<PageToken> const& token = {}) {
    return reader.page(schema, request, token, noTask);
  }

  /// The numbers of rows of all pages, the empty one included.
  std::vector<std::size_t> pageSizes(BrowseRequest const& request = {}) {
    std::vector<std::size_t> sizes;
    std::optional<PageToken> token;
    do {
      RowPage const read = page(request, token);
      sizes.push_back(read.rows.size());
      token = read.next;
    } while (token && sizes.size() < 100);
    return sizes;
  }

  std::vector<DatabaseRow> selected(RowSelection const& indices, BrowseRequest const& request = {}) {
    return reader.selectedRows(schema, request, indices, noTask);
  }

  /// The first values of all rows, page by page, as a person sees them.
  std::string pagedValues(BrowseRequest const& request = {}) {
    std::string text;
    int pages = 0;
    for (RowPage read = page(request); read.next && ++pages < 100; read = page(request, read.next)) {
      for (DatabaseRow const& row : read.rows) text += (text.empty() ? "" : " ") + row.values.at(0).display();
    }
    return text;
  }

  TemporaryDatabase const database;
  DatabaseReader reader;
  TableSchema schema;
};

/// SQL that inserts rows with `values`, an expression of i, for i from 1 to `count`.
inline std::string inserting(std::string const& table, std::string const& values, int count) {
  return "; WITH RECURSIVE c(i) AS (SELECT 1 UNION ALL SELECT i + 1 FROM c WHERE i < " + std::to_string(count) +
         ") INSERT INTO " + table + " SELECT " + values + " FROM c LIMIT " + std::to_string(count);
}

inline BrowseRequest filtered(std::string column, FilterOperator operation, SQLiteValue value = {},
                              SQLiteValue second = {}) {
  return {.filters = {{.column = std::move(column),
                       .operation = operation,
                       .value = std::move(value),
                       .second = std::move(second)}}};
}

inline BrowseRequest sortedBy(std::string column) {
  return {.sort = TableSort{.column = std::move(column), .ascending = true}};
}

}  // namespace tolva
