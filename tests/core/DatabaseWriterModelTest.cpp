// SPDX-License-Identifier: Apache-2.0
// Edits and deletes of random tables, which another process changes between the reading and the writing, against a
// model: it finds each row by comparing values in memory and changes it without a guard, in a transaction taken back.
#include <gtest/gtest.h>
#include <sqlite3.h>

#include <algorithm>
#include <cstdio>
#include <map>
#include <memory>
#include <optional>
#include <random>

#include "core/DatabaseWriter.hpp"
#include "core/SQLIdentifier.hpp"
#include "platform/UTF8.hpp"
#include "support/Failure.hpp"
#include "support/NoTask.hpp"
#include "support/SQLitePeer.hpp"
#include "support/TableRows.hpp"
#include "support/TemporaryDatabase.hpp"

namespace tolva {
namespace {

using Changes = std::vector<CellChange>;
using Rows = std::vector<DatabaseRow>;
using Values = std::vector<SQLiteValue>;

/// The same numbers from the same seed with every library.
class Chance {
 public:
  explicit Chance(std::uint64_t seed) : engine_(seed) {}
  std::size_t below(std::size_t bound) { return engine_() % bound; }
  bool oneIn(std::size_t many) { return below(many) == 0; }
  template <class List>
  auto const& of(List const& list) {
    return list[below(std::size(list))];
  }

 private:
  std::mt19937_64 engine_;
};

/// A value as a literal of SQL. A text goes by its bytes, which need not be UTF-8.
std::string literal(SQLiteValue const& value) {
  auto const hexadecimal = [](auto const& bytes) {
    std::string text = "x'";
    for (auto const byte : bytes) {
      char two[3];
      std::snprintf(two, sizeof two, "%02x", static_cast<unsigned>(static_cast<unsigned char>(byte)));
      text += two;
    }
    return text + "'";
  };
  if (auto const* text = value.asText()) return "CAST(" + hexadecimal(*text) + " AS TEXT)";
  if (auto const* blob = value.asBlob()) return hexadecimal(*blob);
  return value.display();  // a number or NULL
}

/// The misleading ones are what another text reads like when it is repaired, or the name of a column that is gone.
SQLiteValue randomValue(Chance& chance) {
  using namespace std::string_literals;
  static Values const values{
      -1,      0,        1,       2,        3,          1.0,           0.5, -2.25, 1e15,    std::int64_t{1} << 60,
      Null{},  Null{},   "",      "a",      "A",        "b",           "é", "2",   "a\0b"s, "a\0c"s,
      "\xff"s, "b\xfe"s, Bytes{}, Bytes{0}, Bytes{'a'}, Bytes{0xff, 0}};
  static Values const misleading{"\uFFFD", "b\uFFFD", "k", "c1", "c2"};
  return chance.of(chance.oneIn(6) ? misleading : values);
}

// The table ----------------------------------------------------------------------------------------

std::string randomColumns(Chance& chance, bool strict) {
  constexpr char const* types[] = {"", "INTEGER", "TEXT", "REAL", "NUMERIC", "BLOB"};
  constexpr char const* strictTypes[] = {"ANY", "ANY", "INTEGER", "TEXT", "REAL", "BLOB"};
  std::string columns;
  for (int column = 0; column < 4; ++column) {
    columns += ", c" + std::to_string(column) + " " + (strict ? chance.of(strictTypes) : chance.of(types));
    if (chance.oneIn(6)) columns += " UNIQUE";
    if (chance.oneIn(8)) columns += " NOT NULL";
    if (chance.oneIn(8)) columns += " CHECK (c" + std::to_string(column) + " IS NOT 3)";
  }
  if (chance.oneIn(2)) columns += std::string(", g TEXT AS (c0 || 'g') ") + (chance.oneIn(2) ? "STORED" : "VIRTUAL");
  return columns;
}

/// The tables "t" and "log", and "child" if rows of "t" can be named from it, with some triggers.
std::string randomTables(Chance& chance) {
  bool const strict = chance.oneIn(4);
  struct Key {
    char const* columns;
    char const* behind;
    char const* child;
  };
  constexpr Key keys[] = {
      {"k INTEGER", "", nullptr},
      {"rowid INTEGER", "", nullptr},
      {"k INTEGER PRIMARY KEY", "", "p REFERENCES t(k)"},
      {"k TEXT PRIMARY KEY", "", "p REFERENCES t(k)"},
      {"k TEXT PRIMARY KEY", "WITHOUT ROWID", "p REFERENCES t(k)"},
      {"k BLOB PRIMARY KEY", "WITHOUT ROWID", nullptr},
      {"k INTEGER, l TEXT, PRIMARY KEY (l, k)", "WITHOUT ROWID", "p, q, FOREIGN KEY (p, q) REFERENCES t(l, k)"},
  };
  constexpr char const* actions[] = {"CASCADE", "SET NULL", "RESTRICT"};
  Key const& key = chance.of(keys);
  std::string const keyColumns = key.columns;
  std::string const keyClause = keyColumns.substr(std::min(keyColumns.size(), keyColumns.find(", PRIMARY")));
  std::string const options = std::string(key.behind) + (strict ? (*key.behind ? ", STRICT" : "STRICT") : "");
  std::string sql = "CREATE TABLE log(what, value); CREATE TABLE t(" +
                    keyColumns.substr(0, keyColumns.size() - keyClause.size()) + randomColumns(chance, strict) +
                    keyClause + ") " + options + ";";
  if (key.child) {
    sql += std::string("CREATE TABLE child(") + key.child + " ON UPDATE " + chance.of(actions) + " ON DELETE " +
           chance.of(actions) + ");";
  }
  if (chance.oneIn(2))
    sql += "CREATE TRIGGER a AFTER UPDATE ON t BEGIN INSERT INTO log VALUES ('update', new.c1); END;";
  if (chance.oneIn(2))
    sql += "CREATE TRIGGER b BEFORE DELETE ON t BEGIN INSERT INTO log VALUES ('delete', old.c1); END;";
  if (chance.oneIn(5)) sql += "CREATE TRIGGER c AFTER UPDATE ON t BEGIN UPDATE t SET c3 = 2 WHERE c1 IS new.c1; END;";
  if (chance.oneIn(5)) sql += "CREATE TRIGGER d AFTER DELETE ON t BEGIN DELETE FROM t WHERE c2 IS old.c2; END;";
  return sql;
}

// The model ----------------------------------------------------------------------------------------

/// As SQLite compares with IS and the collation BINARY.
bool same(SQLiteValue const& left, SQLiteValue const& right) {
  auto const number = [](SQLiteValue const& value) -> long double {
    return value.asInteger() ? static_cast<long double>(*value.asInteger()) : *value.asReal();
  };
  bool const numbers = (left.asInteger() || left.asReal()) && (right.asInteger() || right.asReal());
  return numbers ? number(left) == number(right) : left == right;
}

bool sameInAll(Values const& seen, Values const& stored) {
  return std::ranges::equal(seen, stored, [](auto const& a, auto const& b) { return same(a, b); });
}

/// A text that is not UTF-8 is read as a repaired one, which another row can have.
bool canNameARow(SQLiteValue const& value) { return !value.asText() || repairUTF8(*value.asText()) == *value.asText(); }

/// A connection that sees the bytes as they are and knows nothing of the code under test.
class Model {
 public:
  Model(std::filesystem::path const& path, TableSchema const& schema) : schema_(schema) {
    sqlite3* opened = nullptr;
    sqlite3_open_v2(path.c_str(), &opened, SQLITE_OPEN_READWRITE, nullptr);
    db_.reset(opened);
    run("PRAGMA foreign_keys = ON; PRAGMA synchronous = OFF");
  }

  std::string run(std::string const& sql) const { return rowsAsText(db_.get(), sql); }

  /// All rows, whole, with texts as they are stored.
  Rows stored() const;

  /// All that the database holds, with its types.
  std::string content() const {
    std::string sql = "SELECT '" + schema_.identity.front() + "'";
    auto const add = [&](std::string const& name) {
      sql += ", typeof(" + name + "), iif(typeof(" + name + ") IN ('text', 'blob'), hex(" + name + "), quote(" + name +
             "))";
    };
    for (std::string const& name : schema_.identity) add(name);
    for (DatabaseColumn const& column : schema_.columns) add(column.name);
    return run(sql + " FROM t; SELECT '--', what, typeof(value), hex(value) FROM log; " + children());
  }

  /// What the database would hold after the changes; nothing if they must be refused.
  std::optional<std::string> afterApply(Changes const& changes) {
    return rehearse([&] { return applyAll(changes); });
  }
  std::optional<std::string> afterDelete(Rows const& rows) {
    return rehearse([&] { return std::ranges::all_of(rows, [&](DatabaseRow const& row) { return deleteOne(row); }); });
  }

  /// Where the row stands whose identity is stored so.
  std::string where(Values const& identity) const {
    std::string sql = " WHERE ";
    for (std::size_t column = 0; column < identity.size(); ++column)
      sql += (column > 0 ? " AND " : "") + schema_.identity[column] + " IS " + literal(identity[column]);
    return sql;
  }

 private:
  struct Close {
    void operator()(sqlite3* db) const { sqlite3_close(db); }
  };

  std::string children() const {
    bool const has = run("SELECT count(*) FROM sqlite_schema WHERE name = 'child'") == "1";
    return has ? "SELECT '--', * FROM child" : "";
  }

  template <class Steps>
  std::optional<std::string> rehearse(Steps const& steps) {
    run("BEGIN IMMEDIATE");
    std::optional<std::string> after;
    try {
      if (steps() && run("PRAGMA foreign_key_check").empty()) after = content();
    } catch (DatabaseError const&) {
      after.reset();  // a constraint
    }
    if (!sqlite3_get_autocommit(db_.get())) run("ROLLBACK");
    return after;
  }

  bool applyAll(Changes const& changes) {
    std::vector<bool> done(changes.size());
    for (std::size_t first = 0; first < changes.size(); ++first) {
      if (done[first]) continue;
      std::vector<CellChange const*> group;
      for (std::size_t other = first; other < changes.size(); ++other) {
        if (changes[other].row.identity != changes[first].row.identity) continue;
        group.push_back(&changes[other]);
        done[other] = true;
      }
      if (!editOne(changes[first].row, group)) return false;
    }
    return true;
  }

  bool editOne(DatabaseRow const& seen, std::vector<CellChange const*> const& group) {
    std::map<std::string, SQLiteValue> assigned;
    std::vector<std::size_t> compared;
    for (CellChange const* change : group) {
      auto const column = std::ranges::find(schema_.columns, change->column, &DatabaseColumn::name);
      compared.push_back(static_cast<std::size_t>(column - schema_.columns.begin()));
      if (column->generated || seen.values[compared.back()].isDeferred()) return false;
      assigned[change->column] = change->value;
    }
    std::string sql;
    for (auto const& [column, value] : assigned) sql += (sql.empty() ? "" : ", ") + column + " = " + literal(value);
    bool const named = std::ranges::all_of(schema_.identity, [&](std::string const& name) {
      return !assigned.contains(name) || canNameARow(assigned[name]);
    });
    return named && changeOne("UPDATE t SET " + sql, seen, compared);
  }

  bool deleteOne(DatabaseRow const& seen) {
    std::vector<std::size_t> compared;
    for (std::size_t column = 0; column < seen.values.size(); ++column)
      if (!seen.values[column].isDeferred()) compared.push_back(column);
    return changeOne("DELETE FROM t", seen, compared);
  }

  bool changeOne(std::string const& what, DatabaseRow const& seen, std::vector<std::size_t> const& compared) {
    std::vector<std::string> found;
    for (DatabaseRow const& row : stored()) {
      bool const matches = sameInAll(seen.identity, row.identity) && std::ranges::all_of(compared, [&](auto column) {
                             return same(seen.values[column], row.values[column]);
                           });
      if (matches) found.push_back(where(row.identity));
    }
    if (found.size() != 1) return false;
    run(what + found.front());
    return true;
  }

  TableSchema const& schema_;
  std::unique_ptr<sqlite3, Close> db_;
};

Rows Model::stored() const {
  std::string sql = "SELECT ";
  for (DatabaseColumn const& column : schema_.columns) sql += column.name + ", ";
  for (std::string const& name : schema_.identity) sql += name + (name == schema_.identity.back() ? "" : ", ");
  sqlite3_stmt* statement = nullptr;
  sqlite3_prepare_v2(db_.get(), (sql + " FROM t").c_str(), -1, &statement, nullptr);
  Rows rows;
  while (sqlite3_step(statement) == SQLITE_ROW) {
    DatabaseRow& row = rows.emplace_back();
    for (int column = 0; column < sqlite3_column_count(statement); ++column) {
      bool const ordinary = static_cast<std::size_t>(column) < schema_.columns.size();
      Values& list = ordinary ? row.values : row.identity;
      int const type = sqlite3_column_type(statement, column);
      auto const* const bytes = static_cast<char const*>(sqlite3_column_blob(statement, column));
      auto const size = static_cast<std::size_t>(sqlite3_column_bytes(statement, column));
      if (type == SQLITE_INTEGER) list.emplace_back(std::int64_t{sqlite3_column_int64(statement, column)});
      if (type == SQLITE_FLOAT) list.emplace_back(sqlite3_column_double(statement, column));
      if (type == SQLITE_TEXT) list.emplace_back(std::string(bytes, size));
      if (type == SQLITE_BLOB) list.emplace_back(Bytes(bytes, bytes + size));
      if (type == SQLITE_NULL) list.emplace_back();
    }
  }
  sqlite3_finalize(statement);
  return rows;
}

// The play -----------------------------------------------------------------------------------------

/// What another application may do to one row, or none, meanwhile.
std::string randomMeddling(Chance& chance, Model const& model, TableSchema const& schema) {
  Rows const rows = model.stored();
  if (rows.empty() || chance.oneIn(3)) return "SELECT 1";
  std::string const where = model.where(chance.of(rows).identity);
  if (chance.oneIn(4)) return "DELETE FROM t" + where;
  std::string const column = chance.of(schema.columns).name;
  if (column == "g") return "DELETE FROM log";
  return "UPDATE t SET " + column + " = " + literal(randomValue(chance)) + where;
}

void fill(Chance& chance, Model const& model, TableSchema const& schema) {
  for (int row = 0; row < 8; ++row) {
    std::string names;
    std::string values;
    for (DatabaseColumn const& column : schema.columns) {
      if (column.generated) continue;
      names += (names.empty() ? "" : ", ") + column.name;
      values += (values.empty() ? "" : ", ") + literal(randomValue(chance));
    }
    try {
      model.run("INSERT INTO t(" + names + ") VALUES (" + values + ")");
    } catch (DatabaseError const&) {  // a constraint
    }
  }
  for (char const* const child :
       {"INSERT INTO child SELECT k FROM t LIMIT 2", "INSERT INTO child SELECT l, k FROM t LIMIT 2"}) {
    try {
      model.run(child);
    } catch (DatabaseError const&) {  // no such table, or another key
    }
  }
}

Changes randomChanges(Chance& chance, TableSchema const& schema, Rows const& seen) {
  Changes changes;
  for (std::size_t count = 1 + chance.below(3); changes.size() < count;)
    changes.push_back({chance.of(seen), chance.of(schema.columns).name, randomValue(chance)});
  return changes;
}

Rows randomRows(Chance& chance, Rows const& seen) {
  Rows rows;
  for (std::size_t count = 1 + chance.below(2); rows.size() < count;) rows.push_back(chance.of(seen));
  return rows;
}

/// The column that another application renames for the time of one change, if any. The writer has the schema of the
/// change before.
std::optional<std::string> randomRenaming(Chance& chance, TableSchema const& schema) {
  return chance.oneIn(4) ? std::optional(chance.of(schema.columns).name) : std::nullopt;
}

bool compares(TableSchema const& schema, Changes const& changes, std::string const& column) {
  return std::ranges::count(schema.identity, column) > 0 ||
         std::ranges::count(changes, column, &CellChange::column) > 0;
}

bool compares(TableSchema const& schema, Rows const& deleted, std::string const& column) {
  auto const found = std::ranges::find(schema.columns, column, &DatabaseColumn::name);
  auto const place = static_cast<std::size_t>(found - schema.columns.begin());
  auto const wasSeen = [&](DatabaseRow const& row) { return !row.values[place].isDeferred(); };
  return std::ranges::count(schema.identity, column) > 0 || std::ranges::any_of(deleted, wasSeen);
}

struct Tally {
  int done = 0;
  int refused = 0;
  int renamed = 0;
};

/// One table, read, meddled with and changed a few times.
void play(std::uint64_t seed, Tally& tally) {
  Chance chance(seed);
  TemporaryDatabase const database("PRAGMA synchronous = OFF; PRAGMA journal_mode = WAL; " + randomTables(chance));
  TableSchema const schema = schemaOf(database.path(), "t");
  ASSERT_TRUE(schema.editable());
  Model model(database.path(), schema);
  fill(chance, model, schema);
  SQLitePeer peer(database.path());
  peer.exec("PRAGMA foreign_keys = ON; PRAGMA synchronous = OFF");
  DatabaseWriter writer;
  writer.open(database.path());
  for (int round = 0; round < 6; ++round) {
    Rows const seen = rowsOf(database.path(), schema, chance.oneIn(2) ? RowValues::whole : RowValues::asInAPage);
    if (seen.empty()) return;
    peer.rows(randomMeddling(chance, model, schema));
    std::string const before = model.content();
    bool const deletes = chance.oneIn(3);
    Changes const changes = randomChanges(chance, schema, seen);
    Rows const rows = randomRows(chance, seen);
    auto expected = deletes ? model.afterDelete(rows) : model.afterApply(changes);
    auto const renamed = randomRenaming(chance, schema);
    if (renamed) {
      ASSERT_EQ(peer.exec("ALTER TABLE t RENAME COLUMN " + *renamed + " TO renamed"), "ok");
      if (deletes ? compares(schema, rows, *renamed) : compares(schema, changes, *renamed)) expected.reset();
      ++tally.renamed;
    }
    Changes results;
    DatabaseError const error = failureOf([&] {
      if (deletes)
        writer.deleteRows(schema, rows, noTask);
      else
        results = writer.apply(schema, changes, noTask);
    });
    if (renamed) {
      ASSERT_EQ(peer.exec("ALTER TABLE t RENAME COLUMN renamed TO " + *renamed), "ok");
    }
    EXPECT_EQ(error.code == -1, expected.has_value()) << error.detail;
    EXPECT_EQ(model.content(), expected.value_or(before)) << error.detail;
    EXPECT_EQ(results.size(), expected && !deletes ? changes.size() : 0);
    ++(expected ? tally.done : tally.refused);
  }
  EXPECT_EQ(model.run("PRAGMA integrity_check"), "ok");
}

class DatabaseWriterModel : public testing::TestWithParam<std::uint64_t> {};

TEST_P(DatabaseWriterModel, ChangesExactlyTheRowsThatAPersonSawOrNothing) {
  Tally tally;
  for (std::uint64_t seed = GetParam(); seed < GetParam() + 150 && !HasFailure(); ++seed) {
    SCOPED_TRACE("seed " + std::to_string(seed));
    play(seed, tally);
  }
  EXPECT_GE(tally.done, 200);
  EXPECT_GE(tally.refused, 200);
  EXPECT_GE(tally.renamed, 100);
}

INSTANTIATE_TEST_SUITE_P(FromSeed, DatabaseWriterModel, testing::Values(0, 1000, 2000, 3000),
                         testing::PrintToStringParamName());

}  // namespace
}  // namespace tolva
