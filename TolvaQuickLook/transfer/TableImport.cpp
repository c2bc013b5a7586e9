// SPDX-License-Identifier: Apache-2.0
#include "transfer/TableImport.hpp"

#include <sqlite3.h>

#include <algorithm>
#include <span>
#include <string_view>
#include <unordered_map>
#include <unordered_set>
#include <utility>
#include <variant>

#include "core/LockPatience.hpp"
#include "core/MemoryBudget.hpp"
#include "core/SQLIdentifier.hpp"
#include "core/SQLiteStatement.hpp"
#include "core/TypedInput.hpp"
#include "platform/JoinedText.hpp"
#include "platform/LowerCase.hpp"
#include "transfer/ByteOrderMark.hpp"
#include "transfer/ColumnTypeInference.hpp"

namespace tolva {
namespace {

using Names = std::vector<std::string>;
using Fields = std::span<std::string_view const>;

constexpr std::int64_t batch = 500;  // rows between two savepoints, and two calls of the progress

/// `others` are the names of a header behind those that a table can have.
void requireDistinct(Names const& names, Fields others) {
  std::unordered_set<std::string> seen;
  auto const require = [&](std::string_view name) {
    if (name.empty() || !seen.insert(lowerUnicode(name)).second) {
      throw DatabaseError("CSV column names must be nonempty and unique.");
    }
  };
  std::ranges::for_each(names, require);
  std::ranges::for_each(others, require);
}

// SQL ----------------------------------------------------------------------------------------------

std::string createSQL(std::string const& table, Names const& names, Names const& types) {
  Names columns = quoted(names);
  for (std::size_t column = 0; column < columns.size(); ++column) columns[column] += " " + types[column];
  return "CREATE TABLE " + quoteIdentifier(table) + " (" + joined(columns, ",") + ")";
}

std::string insertSQL(std::string const& table, Names const& names) {
  Names const places(names.size(), "?");
  return "INSERT INTO " + quoteIdentifier(table) + " (" + joined(quoted(names), ",") + ") VALUES (" +
         joined(places, ",") + ")";
}

// Rows ---------------------------------------------------------------------------------------------

/// Binds one field to one parameter without a copy, and answers with SQLite's result code. The field outlives the step,
/// and its binding is cleared before the next one comes.
struct FieldBinder {
  sqlite3_stmt* statement;
  int parameter;
  std::string_view field;

  int operator()(std::int64_t value) const { return sqlite3_bind_int64(statement, parameter, value); }
  int operator()(double value) const { return sqlite3_bind_double(statement, parameter, value); }
  int operator()(std::monostate) const {
    char const* const text = field.empty() ? "" : field.data();  // a null pointer would bind NULL
    return sqlite3_bind_text64(statement, parameter, text, field.size(), SQLITE_STATIC, SQLITE_UTF8);
  }
};

/// Inserts rows one by one through one statement, and counts them. While it lives, all of them together wait for the
/// locks of others as long as one statement may.
class RowInserter {
 public:
  RowInserter(SQLiteConnection& connection, std::string const& sql, Names const& types)
      : connection_(connection),
        patience_(connection),
        statement_(connection.shared_from_this(), sql),
        takesNumbers_(types.size()) {
    std::ranges::transform(types, takesNumbers_.begin(), [](std::string const& type) { return takesNumbers(type); });
  }

  std::int64_t count() const { return count_; }

  void insert(Fields fields);
  void requireLength(std::size_t fields) const;

  /// Inserts the rows of `stream` up to the next batch's end; false when there was none left. Holds the handle's mutex,
  /// which each of the many calls for a row would otherwise take for itself.
  bool insertBatch(CSVStream& stream, std::stop_token const& task);

 private:
  void require(int result) const;
  std::string row() const { return "CSV row " + std::to_string(count_ + 1); }

  SQLiteConnection& connection_;
  LockPatience const patience_;
  SQLiteStatement statement_;
  std::vector<char> takesNumbers_;  // by column; whole bytes, since it is asked for each field
  std::int64_t count_ = 0;
};

void RowInserter::requireLength(std::size_t fields) const {
  if (fields == takesNumbers_.size()) return;
  throw DatabaseError(row() + " has " + std::to_string(fields) + " fields; expected " +
                      std::to_string(takesNumbers_.size()) + ".");
}

void RowInserter::insert(Fields fields) {
  requireLength(fields.size());
  sqlite3_stmt* const statement = statement_.handle();
  sqlite3_reset(statement);
  sqlite3_clear_bindings(statement);
  for (std::size_t column = 0; column < fields.size(); ++column) {
    FieldBinder const bind{statement, static_cast<int>(column) + 1, fields[column]};
    require(takesNumbers_[column] ? std::visit(bind, typedNumber(fields[column])) : bind(std::monostate()));
  }
  int stepped = SQLITE_ROW;
  while (stepped == SQLITE_ROW) stepped = sqlite3_step(statement);
  require(stepped == SQLITE_DONE ? SQLITE_OK : stepped);
  if (patience_.spent()) throw DatabaseError("database is locked", SQLITE_BUSY);  // so COMMIT would be refused as well
  ++count_;
}

void RowInserter::require(int result) const {
  if (result == SQLITE_OK) return;
  DatabaseError const error = connection_.error(result);
  throw DatabaseError(row() + ": " + error.detail, error.code);
}

bool RowInserter::insertBatch(CSVStream& stream, std::stop_token const& task) {
  HandleLock const held(connection_);
  do {
    std::optional<Fields> const fields = stream.nextFields(task);
    if (!fields) return false;
    insert(*fields);
  } while (count_ % batch != 0);
  return true;
}

/// Makes the table, if there is a statement for it, and then the one that fills it. The budget is for what the schema
/// of a hostile file can make of either.
RowInserter makeTableAndInserter(SQLiteConnection& connection, std::optional<std::string> const& create,
                                 std::string const& insert, Names const& types) {
  MemoryBudget const preparing(MemoryBudget::ordinary);
  if (create) connection.execute(*create);
  return RowInserter(connection, insert, types);
}

}  // namespace

std::int64_t TableImport::run(std::filesystem::path const& file, TransferProgress const& progress,
                              std::stop_token const& task) {
  CSVStream stream(file, options_, importLimits);
  std::optional<Fields> const row = stream.nextFields(task);
  if (!row) return 0;
  FirstRow const first = firstRow(*row);
  Names const names = columnNames(first.fields);
  requireDistinct(names, options_.header ? row->subspan(names.size()) : Fields());
  Names const types = schema_ ? declaredTypes(names) : inferredTypes(file, first, task);
  std::optional<std::string> create;
  if (!schema_) create = createSQL(table_, names, types);

  auto const insertAll = [&] {
    RowInserter rows = makeTableAndInserter(connection_, create, insertSQL(table_, names), types);
    connection_.execute("SAVEPOINT csv_batch");
    if (!options_.header) {
      rows.requireLength(first.length);
      rows.insert(std::vector<std::string_view>(first.fields.begin(), first.fields.end()));
    }
    while (rows.insertBatch(stream, task)) {
      connection_.execute("RELEASE csv_batch");
      connection_.execute("SAVEPOINT csv_batch");
      if (progress) progress(rows.count());
    }
    connection_.execute("RELEASE csv_batch");
    return rows.count();
  };
  std::int64_t const count = connection_.transaction(insertAll, task);
  if (progress) progress(count);
  return count;
}

/// A file of nothing but delimiters has a row of millions of fields. One more than a table can have is enough for
/// SQLite to refuse them all.
TableImport::FirstRow TableImport::firstRow(Fields row) const {
  auto const most = static_cast<std::size_t>(sqlite3_limit(connection_.handle(), SQLITE_LIMIT_COLUMN, -1)) + 1;
  Fields const kept = row.first(std::min(row.size(), most));
  FirstRow first{.length = row.size(), .fields = Names(kept.begin(), kept.end())};
  removeByteOrderMarks(first.fields.front());
  return first;
}

Names TableImport::columnNames(Names const& firstRow) const {
  if (options_.header) return firstRow;
  Names names;
  if (!schema_) {
    for (std::size_t column = 1; column <= firstRow.size(); ++column)
      names.push_back("column_" + std::to_string(column));
    return names;
  }
  for (DatabaseColumn const& column : schema_->columns) {
    if (names.size() == firstRow.size()) break;
    if (!column.generated) names.push_back(column.name);
  }
  return names;
}

Names TableImport::declaredTypes(Names const& names) const {
  std::unordered_map<std::string_view, std::string_view> editable;  // by name
  for (DatabaseColumn const& column : schema_->columns) {
    if (!column.generated) editable.emplace(column.name, column.type);
  }
  Names types;
  for (std::string const& name : names) {
    auto const column = editable.find(name);
    if (column == editable.end()) throw DatabaseError("CSV headers must match editable destination columns.");
    types.emplace_back(column->second);
  }
  return types;
}

/// Reads the whole file once more. A byte order mark stays in the first field here, though the row that is inserted
/// loses it: in a file without a header it makes the first column one of texts, which keeps every field as it stands.
Names TableImport::inferredTypes(std::filesystem::path const& file, FirstRow const& first,
                                 std::stop_token const& task) const {
  CSVStream stream(file, options_, importLimits);
  if (options_.header) stream.nextFields(task);
  ColumnTypeInference inference(first.length);
  while (auto const fields = stream.nextFields(task)) inference.add(*fields);
  std::vector<InferredType> const inferred = inference.types();
  Names types;
  for (std::size_t column = 0; column < first.fields.size(); ++column) types.emplace_back(rawValue(inferred[column]));
  return types;
}

}  // namespace tolva
