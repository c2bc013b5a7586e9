// SPDX-License-Identifier: Apache-2.0
#include "core/KeyOrder.hpp"

#include <sqlite3.h>

#include <algorithm>

#include "core/SQLIdentifier.hpp"
#include "core/SQLiteStatement.hpp"
#include "core/TablePragmas.hpp"
#include "platform/ASCIICase.hpp"
#include "platform/JoinedText.hpp"

namespace tolva {
namespace {

bool isNumber(SQLiteValue const& value) { return value.asInteger() || value.asReal(); }

bool mayConvert(SQLiteValue const& one, SQLiteValue const& other) {
  return (isNumber(one) && other.asText()) || (one.asText() && isNumber(other));
}

std::map<std::string, std::set<std::string>> readKeyCollations(SQLiteConnection& connection, std::string const& table) {
  std::optional<std::string> const index = keyIndex(connection, {}, table);
  return index ? keyCollations(connection, {}, *index) : std::map<std::string, std::set<std::string>>();
}

}  // namespace

bool KeyOrder::mayHideRows(Identity const& identity) {
  if (!schema_.withoutRowID) return false;
  for (std::size_t i = 0; i < identity.size(); ++i) {
    if (identity[i].asText() && isFinerThan(schema_.identity.at(i))) return true;
  }
  return false;
}

bool KeyOrder::isTotal() {
  return !schema_.withoutRowID ||
         std::ranges::none_of(schema_.identity, [&](std::string const& name) { return isFinerThan(name); });
}

std::string KeyOrder::lookup() {
  std::string const table = quoteIdentifier(schema_.object.name);
  std::vector<std::string> terms;
  int parameter = 0;
  for (std::string const& name : schema_.identity) {
    std::string const term = table + "." + quoteIdentifier(name) + " IS ?" + std::to_string(++parameter);
    terms.push_back(term);
    for (std::string const& held : keyCollations(name)) {
      if (held != columnCollation(name)) terms.push_back(term + " COLLATE " + quoteIdentifier(held));
    }
  }
  return joined(terms, " AND ");
}

/// Whether the key may tell texts apart that the collation of their column does not.
bool KeyOrder::isFinerThan(std::string const& column) {
  std::string const compared = columnCollation(column);
  if (compared == "BINARY") return false;  // nothing is finer
  return std::ranges::any_of(keyCollations(column), [&](std::string const& held) { return held != compared; });
}

bool KeyOrder::contradicts(SQLiteValue const& from, SQLiteValue const& to) const {
  if (from.asInteger() && to.asInteger()) return *to.asInteger() <= *from.asInteger();
  if (mayConvert(from, to)) return false;
  std::string const collation = to.asText() ? columnCollation(schema_.identity.at(0)) : "BINARY";
  SQLiteStatement compared = connection_.prepare("SELECT ? > ? COLLATE " + quoteIdentifier(collation), {to, from});
  return compared.step() && compared.value(0, /*full=*/false) == SQLiteValue(0);
}

std::set<std::string> const& KeyOrder::keyCollations(std::string const& column) {
  if (!key_)
    key_ = schema_.withoutRowID ? readKeyCollations(connection_, schema_.object.name) : decltype(key_)::value_type();
  return (*key_)[column];
}

/// "BINARY" where SQLite cannot tell.
std::string KeyOrder::columnCollation(std::string const& column) const {
  char const* collation = nullptr;
  sqlite3_table_column_metadata(connection_.handle(), nullptr, schema_.object.name.c_str(), column.c_str(), nullptr,
                                &collation, nullptr, nullptr, nullptr);
  return upperASCII(collation ? collation : "BINARY");
}

}  // namespace tolva
