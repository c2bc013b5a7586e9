// SPDX-License-Identifier: Apache-2.0
#include "core/TableQueryBuilder.hpp"

#include <algorithm>

#include "core/RowClauses.hpp"
#include "core/SQLIdentifier.hpp"
#include "platform/JoinedText.hpp"

namespace tolva {
namespace {

constexpr std::int64_t leastRows = 1;

std::string behindKey(TableSchema const& schema) {
  std::vector<std::string> const names = quoted(schema.identity);
  if (names.size() == 1) return names.front() + " > ?";
  return "(" + joined(names, ",") + ") > (" + joined(std::vector<std::string>(names.size(), "?"), ",") + ")";
}

}  // namespace

BuiltQuery TableQueryBuilder::build(TableSchema const& schema, BrowseRequest const& request,
                                    std::optional<PageToken> const& token, QueryScope const& scope) {
  RowClauses clauses = rowClauses(schema, request);
  bool const byKey = token && goesOnByKey(*token, schema, request);
  if (byKey) {
    clauses.conditions.push_back(behindKey(schema));
    clauses.parameters.insert(clauses.parameters.end(), token->identity.begin(), token->identity.end());
  }
  if (scope.countOnly) clauses.order.clear();

  BuiltQuery query{
      .sql = "SELECT " + (scope.countOnly ? "COUNT(*)" : selectList(schema)) + clauses.text(schema.object.name),
      .parameters = std::move(clauses.parameters)};
  if (scope.limit) {
    query.sql += " LIMIT ?";
    query.parameters.emplace_back(std::clamp(*scope.limit, leastRows, mostRows));
  }
  if (token && !byKey) {
    query.sql += " OFFSET ?";
    query.parameters.emplace_back(token->offset);
  }
  return query;
}

}  // namespace tolva
