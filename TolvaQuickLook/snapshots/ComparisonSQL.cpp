// SPDX-License-Identifier: Apache-2.0
#include "snapshots/ComparisonSQL.hpp"

#include <fmt/format.h>

#include <cstddef>
#include <vector>

#include "core/SQLIdentifier.hpp"
#include "platform/JoinedText.hpp"

namespace tolva {
namespace {

using Names = std::vector<std::string>;

Names qualified(char const* side, Names const& columns) {
  Names list;
  for (std::string const& column : columns) list.push_back(std::string(side) + "." + quoteIdentifier(column));
  return list;
}

/// "o0", "o1" and so on, one for each column of the key.
Names numbered(char const* letter, ComparisonIdentity const& identity) {
  Names list;
  for (std::size_t column = 0; column < identity.columns.size(); ++column) {
    list.push_back(letter + std::to_string(column));
  }
  return list;
}

std::string keyColumns(ComparisonIdentity const& identity) {
  return joined(numbered("o", identity), ",") + "," + joined(numbered("n", identity), ",");
}

/// The key of the left side by its collation, which therefore decides, equals that of the right.
std::string keysMatch(ComparisonIdentity const& identity, Names const& left, Names const& right) {
  Names terms;
  for (std::size_t column = 0; column < left.size(); ++column) {
    terms.push_back(left[column] + " COLLATE " + quoteIdentifier(identity.collations[column]) + " = " + right[column]);
  }
  return joined(terms, " AND ");
}

/// Of each column, whether its two values are of different storage classes or, texts and blobs, of different bytes.
Names differences(ComparisonIdentity const& identity) {
  Names const older = qualified("a", identity.allColumns);
  Names const newer = qualified("b", identity.allColumns);
  Names terms;
  for (std::size_t column = 0; column < older.size(); ++column) {
    terms.push_back(
        fmt::format("(typeof({0}) != typeof({1}) OR CASE WHEN typeof({0}) IN ('text','blob') THEN "
                    "CAST({0} AS BLOB) IS NOT CAST({1} AS BLOB) ELSE {0} IS NOT {1} END)",
                    older[column], newer[column]));
  }
  return terms;
}

std::string anyIsNull(Names const& names) { return joined(names, " IS NULL OR ") + " IS NULL"; }

}  // namespace

std::string ComparisonSQL::createStore(ComparisonPlan const& plan) {
  return "CREATE TABLE " + plan.store + "(id INTEGER PRIMARY KEY,kind TEXT," + keyColumns(plan.identity) + ")";
}

std::array<std::string, 3> ComparisonSQL::fillStore(ComparisonPlan const& plan) {
  ComparisonIdentity const& identity = plan.identity;
  Names const a = qualified("a", identity.columns);
  Names const b = qualified("b", identity.columns);
  std::string const nulls = joined(Names(a.size(), "NULL"), ",");
  std::string const match = keysMatch(identity, a, b);
  std::string const older = "older." + quoteIdentifier(plan.table) + " a";
  std::string const newer = "newer." + quoteIdentifier(plan.table) + " b";
  std::string const insert = "INSERT INTO " + plan.store + "(kind," + keyColumns(identity) + ") ";
  return {insert + "SELECT 'Inserted'," + nulls + "," + joined(b, ",") + " FROM " + newer +
              " WHERE NOT EXISTS(SELECT 1 FROM " + older + " WHERE " + match + ")",
          insert + "SELECT 'Updated'," + joined(a, ",") + "," + joined(b, ",") + " FROM " + older + " JOIN " + newer +
              " ON " + match + " WHERE " + joined(differences(identity), " OR "),
          insert + "SELECT 'Deleted'," + joined(a, ",") + "," + nulls + " FROM " + older +
              " WHERE NOT EXISTS(SELECT 1 FROM " + newer + " WHERE " + match + ")"};
}

std::string ComparisonSQL::findNullKey(ComparisonPlan const& plan) {
  return "SELECT 1 FROM " + plan.store + " WHERE (kind != 'Inserted' AND (" + anyIsNull(numbered("o", plan.identity)) +
         ")) OR (kind != 'Deleted' AND (" + anyIsNull(numbered("n", plan.identity)) + ")) LIMIT 1";
}

std::string ComparisonSQL::countRows(std::string const& database, std::string const& table) {
  return "SELECT count(*) FROM " + database + "." + quoteIdentifier(table) + " NOT INDEXED";
}

/// Without a condition SQLite counts whatever tree is the smallest, whichever is named.
std::string ComparisonSQL::countIndex(std::string const& database, std::string const& table, std::string const& index) {
  return "SELECT count(*) FROM " + database + "." + quoteIdentifier(table) + " INDEXED BY " + quoteIdentifier(index) +
         " WHERE 1";
}

std::string ComparisonSQL::page(ComparisonPlan const& plan) {
  return "SELECT * FROM " + plan.store + " WHERE id > ? ORDER BY id LIMIT ?";
}

/// The outer joins keep the row that has one side only.
std::string ComparisonSQL::cells(ComparisonPlan const& plan) {
  ComparisonIdentity const& identity = plan.identity;
  std::string const table = quoteIdentifier(plan.table);
  Names const olderKey = qualified("r", numbered("o", identity));
  Names const newerKey = qualified("r", numbered("n", identity));
  return "SELECT r.kind," + joined(qualified("a", identity.allColumns), ",") + "," +
         joined(qualified("b", identity.allColumns), ",") + "," + joined(differences(identity), ",") + " FROM " +
         plan.store + " r LEFT JOIN older." + table + " a ON " +
         keysMatch(identity, qualified("a", identity.columns), olderKey) + " LEFT JOIN newer." + table + " b ON " +
         keysMatch(identity, qualified("b", identity.columns), newerKey) + " WHERE r.id=?";
}

}  // namespace tolva
