// SPDX-License-Identifier: Apache-2.0
#include "support/TableRows.hpp"

#include "core/IdentityValue.hpp"
#include "core/SQLIdentifier.hpp"
#include "core/SQLiteConnection.hpp"
#include "core/SQLiteStatement.hpp"
#include "core/SchemaPragmas.hpp"

namespace tolva {
namespace {

std::string quotedList(std::vector<std::string> const& names) {
  std::string list;
  for (std::string const& name : names) list += (list.empty() ? "" : ",") + quoteIdentifier(name);
  return list;
}

std::string selectRows(TableSchema const& schema) {
  std::vector<std::string> selected;
  for (DatabaseColumn const& column : schema.columns) selected.push_back(column.name);
  selected.insert(selected.end(), schema.identity.begin(), schema.identity.end());
  std::string const sql = "SELECT " + quotedList(selected) + " FROM " + quoteIdentifier(schema.object.name);
  return schema.identity.empty() ? sql : sql + " ORDER BY " + quotedList(schema.identity);
}

}  // namespace

TableSchema schemaOf(std::filesystem::path const& database, std::string const& name, std::string const& kind) {
  return readSchema(*SQLiteConnection::open(database, {}), {.name = name, .kind = kind, .sql = ""});
}

std::vector<DatabaseRow> rowsOf(std::filesystem::path const& database, TableSchema const& schema, RowValues values) {
  auto const connection = SQLiteConnection::open(database, {});
  SQLiteStatement statement = connection->prepare(selectRows(schema));
  int const ordinary = static_cast<int>(schema.columns.size());
  std::vector<DatabaseRow> rows;
  while (statement.step()) {
    DatabaseRow& row = rows.emplace_back();
    for (int column = 0; column < statement.columnCount(); ++column) {
      if (column >= ordinary)
        row.identity.push_back(identityValue(statement, column));
      else
        row.values.push_back(statement.value(column, values == RowValues::whole));
    }
  }
  return rows;
}

}  // namespace tolva
