// SPDX-License-Identifier: Apache-2.0
#include "support/BrowseOracle.hpp"

#include <algorithm>
#include <array>
#include <cstdlib>
#include <optional>

#include "core/SQLIdentifier.hpp"
#include "core/SQLiteStatement.hpp"

namespace tolva {
namespace {

using Affinity = BrowseOracle::Affinity;

char lowered(char c) { return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c; }

std::string lowered(std::string text) {
  std::ranges::transform(text, text.begin(), [](char c) { return lowered(c); });
  return text;
}

/// NULL, numbers, texts, blobs stand in this order.
int storageClass(SQLiteValue const& value) {
  if (value.isNull()) return 0;
  if (value.asText()) return 2;
  return value.asBlob() ? 3 : 1;
}

/// Wide enough for every integer of 64 bits and every double.
long double number(SQLiteValue const& value) {
  return value.asInteger() ? static_cast<long double>(*value.asInteger()) : static_cast<long double>(*value.asReal());
}

template <class Sequence>
int order(Sequence const& left, Sequence const& right) {
  return left < right ? -1 : left > right ? 1 : 0;
}

int compare(SQLiteValue const& left, SQLiteValue const& right, bool ignoresCase) {
  int const classes = order(storageClass(left), storageClass(right));
  if (classes != 0 || left.isNull()) return classes;
  if (left.asText()) {
    return ignoresCase ? order(lowered(*left.asText()), lowered(*right.asText()))
                       : order(*left.asText(), *right.asText());
  }
  return left.asBlob() ? order(*left.asBlob(), *right.asBlob()) : order(number(left), number(right));
}

/// A text that is a number as a whole, blanks around it aside.
SQLiteValue withNumericAffinity(SQLiteValue value) {
  if (!value.asText()) return value;
  std::string text = *value.asText();
  text.erase(0, text.find_first_not_of(' '));
  text.erase(text.find_last_not_of(' ') + 1);
  if (text.empty() || text.find_first_not_of("+-.0123456789e") != text.npos) return value;
  char* end = nullptr;
  double const parsed = std::strtod(text.c_str(), &end);
  return *end == '\0' ? SQLiteValue(parsed) : value;
}

/// What CAST AS TEXT gives; a NULL gives none. The drawn reals have few digits, so that any way to write them is one.
std::optional<std::string> castToText(SQLiteValue const& value) {
  if (value.isNull()) return {};
  if (Bytes const* const blob = value.asBlob()) return std::string(blob->begin(), blob->end());
  return value.display();
}

SQLiteValue compared(SQLiteValue value, Affinity affinity) {
  if (affinity == Affinity::numeric) return withNumericAffinity(std::move(value));
  bool const isNumber = value.asInteger() || value.asReal();
  return affinity == Affinity::text && isNumber ? SQLiteValue::text(value.display()) : value;
}

/// Blobs, and long texts, as a page shows them; a short blob of an identity is held whole.
SQLiteValue marked(SQLiteValue const& value, bool identity) {
  if (auto const* const text = value.asText(); text && text->size() > 65'536) {
    return SQLiteValue::largeText(static_cast<std::int64_t>(text->size()));
  }
  auto const* const blob = value.asBlob();
  if (blob && !(identity && blob->size() <= 65'536))
    return SQLiteValue::largeBlob(static_cast<std::int64_t>(blob->size()));
  return value;
}

std::vector<SQLiteValue> marked(std::vector<SQLiteValue> const& values, bool identity) {
  std::vector<SQLiteValue> shown;
  for (SQLiteValue const& value : values) shown.push_back(marked(value, identity));
  return shown;
}

}  // namespace

BrowseOracle::BrowseOracle(SQLiteConnection& connection, std::string const& table, std::vector<Column> columns,
                           std::vector<std::string> identity)
    : columns_(std::move(columns)), identity_(std::move(identity)) {
  std::string list;
  for (Column const& column : columns_) list += quoteIdentifier(column.name) + ", ";
  for (std::string const& name : identity_) list += quoteIdentifier(name) + ", ";
  list.resize(list.size() - 2);
  SQLiteStatement all = connection.prepare("SELECT " + list + " FROM " + quoteIdentifier(table));
  while (all.step()) {
    std::vector<SQLiteValue> const row = all.row(/*full=*/true);
    auto const identityBegins = row.begin() + static_cast<std::ptrdiff_t>(columns_.size());
    stored_.push_back({.values = {row.begin(), identityBegins}, .identity = {identityBegins, row.end()}});
  }
}

std::vector<DatabaseRow> BrowseOracle::rows(BrowseRequest const& request) const {
  std::vector<Stored const*> chosen;
  for (Stored const& row : stored_) {
    if (shows(row, request)) chosen.push_back(&row);
  }
  std::ranges::stable_sort(chosen,
                           [&](Stored const* left, Stored const* right) { return precedes(*left, *right, request); });
  std::vector<DatabaseRow> rows;
  for (Stored const* const row : chosen) {
    rows.push_back({.values = marked(row->values, false), .identity = marked(row->identity, true)});
  }
  return rows;
}

bool BrowseOracle::shows(Stored const& row, BrowseRequest const& request) const {
  return std::ranges::all_of(request.filters, [&](TableFilter const& filter) { return passes(row, filter); }) &&
         (request.search.empty() || isFound(row, request.search));
}

bool BrowseOracle::passes(Stored const& row, TableFilter const& filter) const {
  SQLiteValue const& value = row.values[indexOf(filter.column)];
  Column const& column = columnOf(filter.column);
  auto const against = [&](SQLiteValue const& bound) -> std::optional<int> {
    if (value.isNull() || bound.isNull()) return {};
    return compare(value, compared(bound, column.affinity), column.ignoresCase);
  };
  std::optional<int> const first = against(filter.value);
  std::optional<std::string> const text = castToText(value);
  std::string const shown = filter.value.display();
  switch (filter.operation) {
    case FilterOperator::equals:
      return first && *first == 0;
    case FilterOperator::notEqual:
      return first && *first != 0;
    case FilterOperator::greater:
      return first && *first > 0;
    case FilterOperator::less:
      return first && *first < 0;
    case FilterOperator::between: {
      std::optional<int> const second = against(filter.second);
      return first && second && *first >= 0 && *second <= 0;
    }
    case FilterOperator::contains:
      return text && text->find(shown) != text->npos;
    case FilterOperator::starts:
      return text && text->starts_with(shown);
    case FilterOperator::ends:  // the last 0 characters are the whole text to SQLite
      return text && (shown.empty() ? text->empty() : text->ends_with(shown));
    case FilterOperator::isNull:
      return value.isNull();
    case FilterOperator::notNull:
      return !value.isNull();
  }
  std::abort();
}

bool BrowseOracle::isFound(Stored const& row, std::string const& search) const {
  for (std::size_t column = 0; column < columns_.size(); ++column) {
    std::string const type = lowered(columns_[column].type);
    bool const searched = type.empty() || type.find("text") != type.npos || type.find("char") != type.npos ||
                          type.find("clob") != type.npos;
    std::optional<std::string> const text = castToText(row.values[column]);
    if (searched && text && lowered(*text).find(lowered(search)) != text->npos) return true;
  }
  return false;
}

bool BrowseOracle::precedes(Stored const& left, Stored const& right, BrowseRequest const& request) const {
  if (request.sort) {
    std::size_t const index = indexOf(request.sort->column);
    int const sorted = compare(left.values[index], right.values[index], columns_[index].ignoresCase);
    if (sorted != 0) return request.sort->ascending ? sorted < 0 : sorted > 0;
  }
  for (std::size_t key = 0; key < identity_.size(); ++key) {
    auto const column = std::ranges::find(columns_, identity_[key], &Column::name);
    bool const ignoresCase = column != columns_.end() && column->ignoresCase;
    int const keys = compare(left.identity[key], right.identity[key], ignoresCase);
    if (keys != 0) return keys < 0;
  }
  return false;
}

BrowseOracle::Column const& BrowseOracle::columnOf(std::string const& name) const { return columns_[indexOf(name)]; }

std::size_t BrowseOracle::indexOf(std::string const& name) const {
  return static_cast<std::size_t>(std::ranges::find(columns_, name, &Column::name) - columns_.begin());
}

SQLiteValue drawValue(Draw const& draw) {
  constexpr std::array texts{"",   "a",    "A", "ab",  "aB",  "b",  "ba",   "é",    "É",
                             "aé", "日本", "5", "5.0", " 5 ", "12", "-1",   "NULL", "0.5",
                             "x5", "5e0",  " ", "a b", "abc", "%",  "a_b%", "'\"?", "BLOB"};
  switch (draw(6)) {
    case 0:
      return Null{};
    case 1:
      return static_cast<std::int64_t>(draw(20)) - 5;
    case 2:
      return static_cast<double>(draw(80)) / 4 - 5;
    case 3: {
      std::string_view const text = texts[draw(texts.size())];
      return Bytes(text.begin(), text.end());
    }
    default:
      return texts[draw(texts.size())];
  }
}

BrowseRequest drawRequest(Draw const& draw, std::vector<BrowseOracle::Column> const& columns) {
  auto const drawColumn = [&] { return columns[draw(static_cast<std::uint32_t>(columns.size()))].name; };
  BrowseRequest request;
  for (std::uint32_t filters = draw(4); filters > 0; --filters) {
    request.filters.push_back({.column = drawColumn(),
                               .operation = filterOperators[draw(filterOperators.size())],
                               .value = drawValue(draw),
                               .second = drawValue(draw)});
  }
  if (draw(3) == 0) request.search = drawValue(draw).display();
  if (draw(2) == 0) request.sort = TableSort{.column = drawColumn(), .ascending = draw(2) == 0};
  return request;
}

std::vector<BrowseTable> const& browseTables() {
  using Column = BrowseOracle::Column;
  std::vector<Column> const shared{
      {"n", "INTEGER", Affinity::numeric, false}, {"t", "TEXT", Affinity::text, false},
      {"u", "", Affinity::none, false},           {"v", "VARCHAR(10)", Affinity::text, true},
      {"r", "REAL", Affinity::numeric, false},    {"b", "BLOB", Affinity::none, false}};
  std::string const declared = "n INTEGER, t TEXT, u, v VARCHAR(10) COLLATE NOCASE, r REAL, b BLOB";
  auto const withId = [&] {
    std::vector<Column> columns{{"id", "INTEGER", Affinity::numeric, false}};
    columns.insert(columns.end(), shared.begin(), shared.end());
    return columns;
  };
  static std::vector<BrowseTable> const tables{
      {"plain", "CREATE TABLE plain(" + declared + ")", shared, {"rowid"}},
      {"alias", "CREATE TABLE alias(id INTEGER PRIMARY KEY, " + declared + ")", withId(), {"id"}},
      {"keyed", "CREATE TABLE keyed(" + declared + ", PRIMARY KEY (v, u)) WITHOUT ROWID", shared, {"v", "u"}}};
  return tables;
}

void fill(SQLiteConnection& connection, BrowseTable const& table, int count, Draw const& draw) {
  std::string names;
  std::string places;
  for (BrowseOracle::Column const& column : table.columns) {
    if (column.name == "id") continue;
    names += (names.empty() ? "" : ", ") + column.name;
    places += places.empty() ? "?" : ", ?";
  }
  connection.execute("BEGIN");
  for (int row = 0; row < count; ++row) {
    std::vector<SQLiteValue> values;
    for (BrowseOracle::Column const& column : table.columns) {
      if (column.name != "id") values.push_back(drawValue(draw));
    }
    connection.execute("INSERT OR IGNORE INTO " + table.name + "(" + names + ") VALUES (" + places + ")", values);
  }
  connection.execute("COMMIT");
}

}  // namespace tolva
