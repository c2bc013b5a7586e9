// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <map>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include "core/SQLiteConnection.hpp"
#include "core/TableSchema.hpp"

namespace tolva {

/// How SQLite orders a table's rows by their identity, and which of them it tells apart. Used in the turn of the
/// connection's service; asks the database when it is asked.
class KeyOrder {
 public:
  using Identity = std::vector<SQLiteValue>;

  KeyOrder(SQLiteConnection& connection, TableSchema const& schema) : connection_(connection), schema_(schema) {}

  /// Whether a row may follow that compares equal to `identity`, and so is not behind it: the key of a WITHOUT ROWID
  /// table can tell texts apart which the collation of its column, that comparisons go by, does not.
  bool mayHideRows(Identity const& identity);

  /// Whether rows in the order of their identity stand in one order only, which every statement reads them in. Not
  /// where `mayHideRows` of any identity.
  bool isTotal();

  /// Conditions that hold of one row alone, each column of the identity bound once and in order. A column is compared
  /// by its own collation and, where that differs, by the key's as well: alone the first could find rows that the key
  /// tells apart, and make no use of the key's index.
  std::string lookup();

  /// Whether `to`, in an identity of one column, surely does not stand behind `from`. Never sure of a number and a
  /// text: the column's type may turn one into the other before it compares them.
  bool contradicts(SQLiteValue const& from, SQLiteValue const& to) const;

  /// The collations, in upper case, by which the key of a WITHOUT ROWID table holds one column of the identity; none in
  /// another table.
  std::set<std::string> const& keyCollations(std::string const& column);

 private:
  bool isFinerThan(std::string const& column);
  std::string columnCollation(std::string const& column) const;

  SQLiteConnection& connection_;
  TableSchema const& schema_;
  std::optional<std::map<std::string, std::set<std::string>>> key_;  // collations by column
};

}  // namespace tolva
