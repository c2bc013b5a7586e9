// SPDX-License-Identifier: Apache-2.0
// Comparisons of random databases against a comparison in memory of what plain statements read from them.

#include <gtest/gtest.h>

#include <algorithm>
#include <map>
#include <random>
#include <string>
#include <vector>

#include "core/SQLiteConnection.hpp"
#include "core/SQLiteStatement.hpp"
#include "platform/ASCIICase.hpp"
#include "platform/JoinedText.hpp"
#include "snapshots/ComparisonScene.hpp"

namespace tolva {
namespace {

using Cells = std::vector<DifferenceCell>;

// Tables -----------------------------------------------------------------------------------------------

struct Form {
  std::string says;
  std::string definition;                // what stands behind the name of the table
  std::vector<std::string> columns;      // that take values
  std::vector<std::string> key;          // in its order
  std::vector<std::string> collations;   // of the key
  std::vector<std::string> generated{};  // behind the others
};

/// Two hundred columns, the first 16 of which are the key, from the last to the first.
Form wideForm() {
  Form form{.says = "200 columns and a key of 16"};
  for (int column = 0; column < 200; ++column) form.columns.push_back("c" + std::to_string(column));
  form.key.assign(form.columns.rbegin() + 184, form.columns.rend());
  form.collations.assign(16, "BINARY");
  form.definition = "(" + joined(form.columns, ",") + ",PRIMARY KEY(" + joined(form.key, ",") + ")) WITHOUT ROWID";
  return form;
}

std::vector<Form> forms() {
  return {
      {"an alias of the rowid",
       "(id INTEGER PRIMARY KEY, a, b TEXT COLLATE NOCASE)",
       {"id", "a", "b"},
       {"id"},
       {"BINARY"}},
      {"a key of any storage class", "(a, k PRIMARY KEY NOT NULL, n NUMERIC)", {"a", "k", "n"}, {"k"}, {"BINARY"}},
      {"NOCASE", "(k TEXT COLLATE NOCASE PRIMARY KEY NOT NULL, a COLLATE NOCASE)", {"k", "a"}, {"k"}, {"NOCASE"}},
      {"RTRIM in the key alone", "(a, k NOT NULL, PRIMARY KEY(k COLLATE RTRIM))", {"a", "k"}, {"k"}, {"RTRIM"}},
      {"WITHOUT ROWID, two columns of two collations",
       "(a REAL, j COLLATE NOCASE, k, PRIMARY KEY(k COLLATE RTRIM DESC, j)) WITHOUT ROWID",
       {"a", "j", "k"},
       {"k", "j"},
       {"RTRIM", "NOCASE"}},
      {"STRICT", "(k ANY PRIMARY KEY, a ANY, b ANY) STRICT", {"k", "a", "b"}, {"k"}, {"BINARY"}},
      {"generated columns",
       "(id INTEGER PRIMARY KEY, a, g AS (hex(a)), s AS (typeof(a)) STORED)",
       {"id", "a"},
       {"id"},
       {"BINARY"},
       {"g", "s"}},
      {"the names of the store",
       "(o0 INT NOT NULL, id, kind, r NOT NULL, PRIMARY KEY(r, o0))",
       {"o0", "id", "kind", "r"},
       {"r", "o0"},
       {"BINARY", "BINARY"}},
      wideForm(),
  };
}

// Values -----------------------------------------------------------------------------------------------

class Draw {
 public:
  explicit Draw(std::uint32_t seed) : random_(seed) {}

  std::size_t operator()(std::size_t bound) { return random_() % bound; }

  /// Few, so that keys meet; many of them equal by a collation, or as numbers, and not by their bytes.
  SQLiteValue value() {
    static std::vector<SQLiteValue> const values{Null{},
                                                 0,
                                                 1,
                                                 2,
                                                 3,
                                                 1.0,
                                                 2.0,
                                                 0.5,
                                                 "a",
                                                 "A",
                                                 "a ",
                                                 "b",
                                                 "B  ",
                                                 "1",
                                                 "",
                                                 "\u00e4",
                                                 "\u00c4",
                                                 "\u4e2d\u6587",
                                                 "\U0001F600",
                                                 "\uE000",
                                                 Bytes{'a'},
                                                 Bytes{},
                                                 Bytes{0, 255},
                                                 Bytes{'1'}};
    return values[(*this)(values.size())];
  }

  std::vector<SQLiteValue> row(Form const& form) {
    std::vector<SQLiteValue> values;
    for (std::size_t column = 0; column < form.columns.size(); ++column) values.push_back(value());
    if (form.columns.size() < 100) return values;
    for (std::size_t column = 0; column < 14; ++column) values[column] = 1;  // keys of 16 random values never meet
    for (std::size_t column = 20; column < form.columns.size(); ++column) values[column] = 2;
    return values;
  }

 private:
  std::mt19937 random_;
};

class Side {
 public:
  Side(std::filesystem::path const& path, char const* encoding, Form const& form)
      : connection_(SQLiteConnection::open(path, {.readOnly = false, .create = true})) {
    connection_->execute("PRAGMA encoding='" + std::string(encoding) + "'");
    connection_->execute("PRAGMA synchronous=OFF");
    connection_->execute("CREATE TABLE t" + form.definition);
    connection_->execute("BEGIN");
    insert_ =
        "INSERT OR IGNORE INTO t(" + joined(form.columns, ",") + ") VALUES (?" + repeat(form.columns.size()) + ")";
  }
  ~Side() { connection_->execute("COMMIT"); }

  void insert(std::vector<SQLiteValue> const& row) const {
    try {
      connection_->execute(insert_, row);
    } catch (DatabaseError const& error) {
      if ((error.code & 0xFF) != 20 && (error.code & 0xFF) != 19) throw;  // a text for an INTEGER
    }
  }

 private:
  static std::string repeat(std::size_t count) {
    std::string marks;
    for (std::size_t mark = 1; mark < count; ++mark) marks += ",?";
    return marks;
  }

  std::shared_ptr<SQLiteConnection> const connection_;
  std::string insert_;
};

void fill(Form const& form, Side const& before, Side const& after, Draw& draw) {
  for (int rows = 0; rows < 60; ++rows) {
    auto row = draw.row(form);
    std::size_t const fate = draw(10);
    if (fate < 8) before.insert(row);
    if (fate > 4 && fate < 8) row[draw(row.size())] = draw.value();
    if (fate > 1) after.insert(row);
  }
}

// The oracle -------------------------------------------------------------------------------------------

struct StoredRow {
  std::vector<std::string> shown;   // the preview of each column
  std::vector<std::string> stored;  // its storage class and bytes
};

std::string folded(std::string text, std::string const& collation) {
  if (collation == "NOCASE") return lowerASCII(text);
  if (collation == "RTRIM") text.erase(text.find_last_not_of(' ') + 1);
  return text;
}

/// What two values that are equal as keys have in common. `number` is of an integer or a real.
std::string keyOf(std::string const& type, std::string const& text, std::string const& hex,
                  std::string const& collation) {
  if (type == "integer" || type == "real") return "number " + text.substr(0, text.find(".0"));
  return type + " " + (type == "text" ? folded(text, collation) : hex);
}

std::map<std::string, StoredRow> readRows(std::filesystem::path const& path, Form const& form,
                                          std::vector<std::string> const& columns) {
  std::string expressions;
  for (std::string const& name : columns) {
    expressions += "typeof(" + name + "),CAST(" + name + " AS TEXT),lower(hex(CAST(" + name +
                   " AS BLOB))),coalesce(length(CAST(" + name + " AS BLOB)),0),";
  }
  auto const connection = SQLiteConnection::open(path, {});
  SQLiteStatement row = connection->prepare("SELECT " + expressions + "1 FROM t");
  std::map<std::string, StoredRow> rows;
  while (row.step()) {
    StoredRow stored;
    std::map<std::string, std::string> keys;
    for (std::size_t column = 0; column < columns.size(); ++column) {
      auto const part = [&](std::size_t at) { return row.value(static_cast<int>(4 * column + at), true).display(); };
      std::string const type = part(0);
      // The bytes of a blob need be no text, so that it is not read as one.
      std::string const text = type == "blob" ? "" : part(1);
      std::string const hex = part(2);
      stored.stored.push_back(type + " " + hex);
      if (type == "null") stored.shown.push_back("NULL");
      if (type == "integer") stored.shown.push_back("INTEGER " + text);
      if (type == "real") stored.shown.push_back("REAL " + text);
      if (type == "text") stored.shown.push_back("TEXT \"" + text + "\"");
      if (type == "blob") {
        stored.shown.push_back(hex.empty() ? "BLOB (0 bytes)" : "BLOB hex " + hex + " [" + part(3) + " bytes]");
      }
      auto const place = std::ranges::find(form.key, columns[column]);
      if (place == form.key.end()) continue;
      keys[columns[column]] =
          keyOf(type, text, hex, form.collations[static_cast<std::size_t>(place - form.key.begin())]);
    }
    std::string key;
    for (std::string const& name : form.key) key += keys[name] + "|";
    EXPECT_TRUE(rows.emplace(key, stored).second) << "two rows of one key: " << key;
  }
  return rows;
}

/// A row that differs, as one text.
std::string told(std::string const& kind, std::string const& identity, Cells const& cells) {
  std::string text = kind + " " + identity + ":";
  for (DifferenceCell const& cell : cells) {
    text += " " + cell.column + "(" + cell.before.value_or("-") + "," + cell.after.value_or("-") +
            (cell.changed ? ",changed)" : ")");
  }
  return text;
}

std::string expected(Form const& form, std::vector<std::string> const& columns, StoredRow const* before,
                     StoredRow const* after) {
  Cells cells;
  std::vector<std::string> identity(form.key.size());
  for (std::size_t column = 0; column < columns.size(); ++column) {
    DifferenceCell cell{.column = columns[column]};
    if (before) cell.before = before->shown[column];
    if (after) cell.after = after->shown[column];
    cell.changed = !before || !after || before->stored[column] != after->stored[column];
    cells.push_back(cell);
    auto const place = std::ranges::find(form.key, columns[column]);
    if (place == form.key.end()) continue;
    identity[static_cast<std::size_t>(place - form.key.begin())] =
        columns[column] + "=" + (before ? before : after)->shown[column];
  }
  char const* const kind = !before ? "Inserted" : !after ? "Deleted" : "Updated";
  return told(kind, joined(identity, ", "), cells);
}

std::vector<std::string> expectedRows(ComparisonScene const& scene, Form const& form) {
  std::vector<std::string> columns = form.columns;
  columns.insert(columns.end(), form.generated.begin(), form.generated.end());
  auto const before = readRows(scene.folder / "before.db", form, columns);
  auto const after = readRows(scene.folder / "after.db", form, columns);
  std::vector<std::string> rows;
  for (auto const& [key, row] : before) {
    auto const other = after.find(key);
    if (other == after.end()) rows.push_back(expected(form, columns, &row, nullptr));
    if (other != after.end() && other->second.stored != row.stored)
      rows.push_back(expected(form, columns, &row, &other->second));
  }
  for (auto const& [key, row] : after) {
    if (!before.contains(key)) rows.push_back(expected(form, columns, nullptr, &row));
  }
  std::ranges::sort(rows);
  return rows;
}

std::vector<std::string> toldRows(ComparisonScene& scene) {
  std::vector<std::string> rows;
  std::int64_t last = 0;
  for (auto page = scene.service.rows("table:t", last, 7, noTask); !page.empty();
       page = scene.service.rows("table:t", last, 7, noTask)) {
    for (DifferenceRow const& row : page) {
      EXPECT_EQ(row.id, ++last);
      rows.push_back(told(row.kind, row.identity, scene.cells(row.id)));
    }
  }
  std::ranges::sort(rows);
  return rows;
}

std::int64_t countOf(std::vector<std::string> const& rows, char const* kind) {
  return std::ranges::count_if(rows, [&](std::string const& row) { return row.starts_with(kind); });
}

TEST(DatabaseDiffModel, TellsWhatAComparisonInMemoryTells) {
  std::map<std::string, std::int64_t> seen;
  for (std::uint32_t seed = 1; seed <= 6; ++seed) {
    for (char const* encoding : {"UTF-8", "UTF-16le", "UTF-16be"}) {
      for (Form const& form : forms()) {
        SCOPED_TRACE(form.says + ", " + encoding + ", seed " + std::to_string(seed));
        ComparisonScene scene;
        Draw draw(seed);
        {
          Side const before(scene.folder / "before.db", encoding, form);
          Side const after(scene.folder / "after.db", encoding, form);
          fill(form, before, after, draw);
        }
        ASSERT_EQ(rowsAsText(scene.folder / "after.db", "PRAGMA encoding"), encoding);
        auto const differences = scene.compare(scene.lease("before.db"), scene.lease("after.db"));
        ASSERT_EQ(differences.size(), 1U);
        ASSERT_EQ(differences[0].status, "Compared") << differences[0].explanation;
        auto const rows = expectedRows(scene, form);
        EXPECT_EQ(differences[0].inserted, countOf(rows, "Inserted"));
        EXPECT_EQ(differences[0].updated, countOf(rows, "Updated"));
        EXPECT_EQ(differences[0].deleted, countOf(rows, "Deleted"));
        EXPECT_EQ(toldRows(scene), rows);
        for (char const* kind : {"Inserted", "Updated", "Deleted"}) seen[form.says + kind] += countOf(rows, kind);
      }
    }
  }
  EXPECT_EQ(seen.size(), 3 * forms().size());
  for (auto const& [kind, count] : seen) EXPECT_GT(count, 0) << kind;
}

}  // namespace
}  // namespace tolva
