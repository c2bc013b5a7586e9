// SPDX-License-Identifier: Apache-2.0
#include "core/RowClauses.hpp"

#include <algorithm>

#include "core/DatabaseError.hpp"
#include "core/DeclaredType.hpp"
#include "core/SQLIdentifier.hpp"
#include "platform/JoinedText.hpp"

namespace tolva {
namespace {

bool hasColumn(TableSchema const& schema, std::string_view name) {
  return std::ranges::find(schema.columns, name, &DatabaseColumn::name) != schema.columns.end();
}

void addFilter(RowClauses& clauses, TableFilter const& filter) {
  std::string const column = quoteIdentifier(filter.column);
  auto const add = [&](std::string condition, std::initializer_list<SQLiteValue> values) {
    clauses.conditions.push_back(std::move(condition));
    clauses.parameters.insert(clauses.parameters.end(), values);
  };
  auto const shown = [&] { return SQLiteValue::text(filter.value.display()); };
  switch (filter.operation) {
    case FilterOperator::equals:
      return add(column + " = ?", {filter.value});
    case FilterOperator::notEqual:
      return add(column + " <> ?", {filter.value});
    case FilterOperator::greater:
      return add(column + " > ?", {filter.value});
    case FilterOperator::less:
      return add(column + " < ?", {filter.value});
    case FilterOperator::between:
      return add(column + " BETWEEN ? AND ?", {filter.value, filter.second});
    case FilterOperator::contains:
      return add("instr(CAST(" + column + " AS TEXT), ?) > 0", {shown()});
    case FilterOperator::starts:
      return add("substr(CAST(" + column + " AS TEXT), 1, length(?)) = ?", {shown(), shown()});
    case FilterOperator::ends:
      return add("substr(CAST(" + column + " AS TEXT), -length(?)) = ?", {shown(), shown()});
    case FilterOperator::isNull:
      return add(column + " IS NULL", {});
    case FilterOperator::notNull:
      return add(column + " IS NOT NULL", {});
  }
}

/// Numbers and blobs are not searched; without a column that is, nothing is found.
void addSearch(RowClauses& clauses, TableSchema const& schema, std::string const& search) {
  std::vector<std::string> terms;
  for (DatabaseColumn const& column : schema.columns) {
    if (!column.type.empty() && !declaresText(column.type)) continue;
    terms.push_back("instr(lower(CAST(" + quoteIdentifier(column.name) + " AS TEXT)), lower(?)) > 0");
    clauses.parameters.push_back(SQLiteValue::text(search));
  }
  clauses.conditions.push_back(terms.empty() ? "0" : "(" + joined(terms, " OR ") + ")");
}

}  // namespace

RowClauses rowClauses(TableSchema const& schema, BrowseRequest const& request) {
  RowClauses clauses;
  for (TableFilter const& filter : request.filters) {
    if (!hasColumn(schema, filter.column)) throw DatabaseError("The filtered column no longer exists.");
    addFilter(clauses, filter);
  }
  if (!request.search.empty()) addSearch(clauses, schema, request.search);
  if (request.sort) {
    if (!hasColumn(schema, request.sort->column)) throw DatabaseError("The sorted column no longer exists.");
    clauses.order.push_back(quoteIdentifier(request.sort->column) + (request.sort->ascending ? " ASC" : " DESC"));
  }
  for (std::string const& name : schema.identity) clauses.order.push_back(quoteIdentifier(name));
  return clauses;
}

bool goesOnByKey(PageToken const& token, TableSchema const& schema, BrowseRequest const& request) {
  return !request.sort && !schema.identity.empty() && token.identity.size() == schema.identity.size() &&
         std::ranges::none_of(token.identity, &SQLiteValue::isDeferred);
}

std::string RowClauses::text(std::string_view table) const {
  std::string text = " FROM " + quoteIdentifier(table);
  if (!conditions.empty()) text += " WHERE " + joined(conditions, " AND ");
  if (!order.empty()) text += " ORDER BY " + joined(order, ",");
  return text;
}

std::string selectList(TableSchema const& schema) {
  std::vector<std::string> names;
  names.reserve(schema.columns.size() + schema.identity.size());
  for (DatabaseColumn const& column : schema.columns) names.push_back(column.name);
  names.insert(names.end(), schema.identity.begin(), schema.identity.end());
  return joined(quoted(names), ",");
}

}  // namespace tolva
