// SPDX-License-Identifier: Apache-2.0
#include "core/DatabaseWriter.hpp"

#include <fcntl.h>
#include <sqlite3.h>
#include <unistd.h>

#include <algorithm>
#include <functional>
#include <initializer_list>
#include <span>
#include <string_view>
#include <unordered_map>
#include <utility>

#include "core/DatabaseBackup.hpp"
#include "core/IdentityValue.hpp"
#include "core/PreparedStatements.hpp"
#include "core/SQLIdentifier.hpp"
#include "core/SQLiteConnection.hpp"
#include "core/SQLiteStatement.hpp"
#include "core/TraceInterval.hpp"
#include "platform/JoinedText.hpp"
#include "platform/TaskCancellation.hpp"

namespace tolva {
namespace {

using Names = std::vector<std::string>;
using Values = std::vector<SQLiteValue>;

constexpr std::size_t chainedGuards = 500;  // without parentheses

bool isWritable(std::filesystem::path const& path) {
  return ::faccessat(AT_FDCWD, path.c_str(), W_OK, AT_EACCESS) == 0;
}

/// Fails as SQLite does, in every journal mode but WAL, where it would write to a file that has lost its name and take
/// the change for done.
void requireNamedFile(SQLiteConnection const& connection) {
  int moved = 0;
  sqlite3_file_control(connection.handle(), "main", SQLITE_FCNTL_HAS_MOVED, &moved);
  if (moved) throw DatabaseError(sqlite3_errstr(SQLITE_READONLY_DBMOVED), SQLITE_READONLY_DBMOVED);
}

/// SQLite takes a quoted name that is no column for a string, and the index for one on that: no row would differ from
/// another. Here it fails for a scope. The other changes may hold such strings, of a person or of an old schema.
class ColumnsOnly {
 public:
  ColumnsOnly(SQLiteConnection const& connection, SchemaChange const& change) : handle_(connection.handle()) {
    sqlite3_db_config(handle_, SQLITE_DBCONFIG_DQS_DDL, -1, &before_);
    if (std::holds_alternative<SchemaChange::CreateIndex>(change.asCase())) set(0);
  }
  ~ColumnsOnly() { set(before_); }
  ColumnsOnly(ColumnsOnly const&) = delete;
  ColumnsOnly& operator=(ColumnsOnly const&) = delete;

 private:
  void set(int allowed) { sqlite3_db_config(handle_, SQLITE_DBCONFIG_DQS_DDL, allowed, nullptr); }

  sqlite3* const handle_;
  int before_ = 1;
};

// SQL ----------------------------------------------------------------------------------------------

/// Each name quoted and followed by `behind`.
Names quotedWith(Names const& names, std::string_view behind) {
  Names list = quoted(names);
  for (std::string& name : list) name += behind;
  return list;
}

/// All columns are what is bound to them. SQLite takes expressions up to 1,000 deep and counts a chain of AND by its
/// length, so that a long one is cut.
std::string guards(Names const& names) {
  Names const terms = quotedWith(names, " IS ?");
  if (terms.size() <= chainedGuards) return joined(terms, " AND ");
  Names groups;
  for (std::span<std::string const> rest = terms; !rest.empty();) {
    auto const group = rest.first(std::min(rest.size(), chainedGuards));
    groups.push_back("(" + joined(group, " AND ") + ")");
    rest = rest.subspan(group.size());
  }
  return joined(groups, " AND ");
}

std::string updateSQL(TableSchema const& schema, Names const& changed, Names const& guarded) {
  return "UPDATE " + quoteIdentifier(schema.object.name) + " SET " + joined(quotedWith(changed, " = ?"), ",") +
         " WHERE " + guards(guarded) + " RETURNING " + joined(quoted(schema.identity), ",");
}

std::string insertSQL(TableSchema const& schema, Names const& columns) {
  std::string const table = quoteIdentifier(schema.object.name);
  if (columns.empty()) return "INSERT INTO " + table + " DEFAULT VALUES";
  Names const places(columns.size(), "?");
  return "INSERT INTO " + table + " (" + joined(quoted(columns), ",") + ") VALUES (" + joined(places, ",") + ")";
}

std::string deleteSQL(TableSchema const& schema, Names const& guarded) {
  return "DELETE FROM " + quoteIdentifier(schema.object.name) + " WHERE " + guards(guarded);
}

// Editing ------------------------------------------------------------------------------------------

using RowChanges = std::vector<CellChange const*>;  // the changes of one row, in their order

struct IdentityHash {
  static std::size_t of(SQLiteValue const& value) {
    if (auto const* integer = value.asInteger()) return std::hash<std::int64_t>()(*integer);
    if (auto const* real = value.asReal()) return std::hash<double>()(*real);
    if (auto const* text = value.asText()) return std::hash<std::string_view>()(*text);
    auto const* const blob = value.asBlob();
    return blob ? std::hash<std::string_view>()({reinterpret_cast<char const*>(blob->data()), blob->size()}) : 0;
  }
  std::size_t operator()(Values const* identity) const {
    std::size_t hash = identity->size();
    for (SQLiteValue const& value : *identity) hash = hash * 31 + of(value);
    return hash;
  }
};

struct IdentityEqual {
  bool operator()(Values const* left, Values const* right) const { return *left == *right; }
};

/// In the order of each row's first change.
std::vector<RowChanges> groupedByRow(std::vector<CellChange> const& changes, std::stop_token const& task) {
  std::vector<RowChanges> groups;
  std::unordered_map<Values const*, std::size_t, IdentityHash, IdentityEqual> known;  // places in `groups`
  for (CellChange const& change : changes) {
    checkCancellation(task);
    auto const [group, isNew] = known.try_emplace(&change.row.identity, groups.size());
    if (isNew) groups.emplace_back();
    groups[group->second].push_back(&change);
  }
  return groups;
}

bool hasUsableIdentity(TableSchema const& schema, DatabaseRow const& row) {
  return row.identity.size() == schema.identity.size() && std::ranges::none_of(row.identity, &SQLiteValue::isDeferred);
}

/// What one row is asked to become.
struct RowEdit {
  Names columns;  // as they are assigned and compared; one may stand twice
  Values assigned;
  Values seen;   // the values as the person saw them
  Values after;  // the whole row with what is assigned
};

/// The place of a column whose value a person can have edited in place: an ordinary one that was read whole.
std::size_t editablePlace(TableSchema const& schema, DatabaseRow const& row, std::string const& column) {
  auto const found = std::ranges::find(schema.columns, column, &DatabaseColumn::name);
  auto const place = static_cast<std::size_t>(found - schema.columns.begin());
  if (found == schema.columns.end() || found->generated || place >= row.values.size() ||
      row.values[place].isDeferred()) {
    throw DatabaseError("Generated or deferred values cannot be edited inline.");
  }
  return place;
}

RowEdit rowEdit(TableSchema const& schema, RowChanges const& changes) {
  DatabaseRow const& row = changes.front()->row;
  RowEdit edit{.after = row.values};
  for (CellChange const* const change : changes) {
    std::size_t const place = editablePlace(schema, row, change->column);
    edit.columns.push_back(change->column);
    edit.assigned.push_back(change->value);
    edit.seen.push_back(row.values[place]);
    edit.after[place] = change->value;
  }
  return edit;
}

/// The identity that the current row of an UPDATE returns.
Values returnedIdentity(SQLiteStatement const& row) {
  Values identity;
  for (int column = 0; column < row.columnCount(); ++column) identity.push_back(identityValue(row, column));
  if (std::ranges::any_of(identity, &SQLiteValue::isDeferred)) {
    throw DatabaseError("The edited primary key exceeds the inline-edit size limit.");
  }
  return identity;
}

Values concatenated(std::initializer_list<std::reference_wrapper<Values const>> lists) {
  Values all;
  for (Values const& list : lists) all.insert(all.end(), list.begin(), list.end());
  return all;
}

/// Edits one row and returns its identity after that.
Values updateRow(PreparedStatements& statements, TableSchema const& schema, Values const& identity,
                 RowEdit const& edit) {
  Names guarded = schema.identity;
  guarded.insert(guarded.end(), edit.columns.begin(), edit.columns.end());
  SQLiteStatement& update = statements.ready(updateSQL(schema, edit.columns, guarded), guarded,
                                             concatenated({edit.assigned, identity, edit.seen}));
  if (!update.step()) throw DatabaseError("This row changed in another application. Refresh before editing.");
  Values after = returnedIdentity(update);
  if (update.step()) throw DatabaseError("The edit matched more than one row.");
  return after;
}

/// Makes the changes of one row and adds them to `results`.
void applyToRow(PreparedStatements& statements, TableSchema const& schema, RowChanges const& changes,
                std::vector<CellChange>& results) {
  DatabaseRow const& row = changes.front()->row;
  if (!hasUsableIdentity(schema, row)) throw DatabaseError("This row has no usable stable identity.");
  RowEdit edit = rowEdit(schema, changes);
  Values identity = updateRow(statements, schema, row.identity, edit);
  DatabaseRow const after{.values = std::move(edit.after), .identity = std::move(identity)};
  for (CellChange const* const change : changes) {
    results.push_back({after, change->column, change->value, row.identity});
  }
}

// Deleting -----------------------------------------------------------------------------------------

void deleteRow(SQLiteConnection& connection, PreparedStatements& statements, TableSchema const& schema,
               DatabaseRow const& row) {
  if (!hasUsableIdentity(schema, row) || row.values.size() != schema.columns.size()) {
    throw DatabaseError("This row has no usable identity.");
  }
  Names guarded = schema.identity;
  Values values = row.identity;
  for (std::size_t column = 0; column < row.values.size(); ++column) {
    if (row.values[column].isDeferred()) continue;
    guarded.push_back(schema.columns[column].name);
    values.push_back(row.values[column]);
  }
  statements.run(deleteSQL(schema, guarded), guarded, values);
  if (sqlite3_changes64(connection.handle()) != 1) {
    throw DatabaseError("This row changed externally. Refresh before deleting.");
  }
}

}  // namespace

DatabaseWriter::DatabaseWriter() : cancellation_(std::make_shared<CancellationHandle>()) {}

DatabaseWriter::~DatabaseWriter() = default;

void DatabaseWriter::open(std::filesystem::path const& database) {
  Turn const turn(turns_);
  if (!isWritable(database)) {
    throw DatabaseError("This database can’t be modified. Check its file permissions.");
  }
  connection_.reset();
  connection_ = SQLiteConnection::open(database, {.readOnly = false}, cancellation_);
}

void DatabaseWriter::close() {
  Turn const turn(turns_);
  connection_.reset();
}

bool DatabaseWriter::isOpen() const {
  Turn const turn(turns_);
  return connection_ != nullptr;
}

std::vector<CellChange> DatabaseWriter::apply(TableSchema const& schema, std::vector<CellChange> const& changes,
                                              std::stop_token task) {
  Turn const turn(turns_);
  TraceInterval const interval("cell update");
  if (!schema.editable()) throw DatabaseError("Tolva couldn’t determine a stable row identity for this object.");
  SQLiteConnection& connection = db();
  auto const applyAll = [&] {
    HandleLock const held(connection);
    requireNamedFile(connection);
    PreparedStatements statements(connection, schema.object.name);
    std::vector<CellChange> results;
    results.reserve(changes.size());
    for (RowChanges const& row : groupedByRow(changes, task)) {
      checkCancellation(task);
      applyToRow(statements, schema, row, results);
    }
    return results;
  };
  return connection.transaction(applyAll, task);
}

void DatabaseWriter::insert(TableSchema const& schema, std::map<std::string, SQLiteValue> const& values) {
  Turn const turn(turns_);
  if (!schema.editable()) throw DatabaseError("This object is read-only.");
  SQLiteConnection& connection = db();
  Names columns;
  Values inserted;
  for (DatabaseColumn const& column : schema.columns) {
    auto const value = values.find(column.name);
    if (value == values.end() || column.generated) continue;
    columns.push_back(column.name);
    inserted.push_back(value->second);
  }
  requireNamedFile(connection);
  PreparedStatements(connection, schema.object.name).run(insertSQL(schema, columns), {}, inserted);
}

void DatabaseWriter::deleteRows(TableSchema const& schema, std::vector<DatabaseRow> const& rows, std::stop_token task) {
  Turn const turn(turns_);
  if (!schema.editable()) throw DatabaseError("This object is read-only.");
  SQLiteConnection& connection = db();
  auto const deleteAll = [&] {
    HandleLock const held(connection);
    requireNamedFile(connection);
    PreparedStatements statements(connection, schema.object.name);
    for (DatabaseRow const& row : rows) {
      checkCancellation(task);
      deleteRow(connection, statements, schema, row);
    }
  };
  connection.transaction(deleteAll, task);
}

std::filesystem::path DatabaseWriter::modifySchema(SchemaChange const& change,
                                                   std::filesystem::path const& backupDirectory, std::stop_token task) {
  Turn const turn(turns_);
  SQLiteConnection& connection = db();
  std::string const sql = change.sql();
  if (sql.find('\0') != sql.npos)
    throw DatabaseError("The change contains a NUL character, where SQLite would stop reading. Remove it.");
  requireNamedFile(connection);
  std::filesystem::path backup = makeBackup(connection, backupDirectory, task);
  auto const applyChange = [&] {
    requireNamedFile(connection);
    ColumnsOnly const strict(connection, change);
    connection.execute(sql);
  };
  connection.transaction(applyChange, task);
  return backup;
}

SQLiteConnection& DatabaseWriter::db() const {
  if (!connection_) throw DatabaseError("No database is open.", SQLITE_READONLY);
  return *connection_;
}

}  // namespace tolva
