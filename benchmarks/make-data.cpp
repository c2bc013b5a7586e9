// SPDX-License-Identifier: Apache-2.0
// Makes the databases of the benchmarks. The same arguments and the same SQLite library give the same bytes: there is
// no clock and no random source in it.
#include <sqlite3.h>

#include <array>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <initializer_list>
#include <memory>
#include <string>
#include <string_view>

namespace {

constexpr char usage[] =
    "usage: make-data tables FILE COUNT   COUNT tables without rows, each with an index\n"
    "       make-data rows FILE COUNT     one table of COUNT rows of 8 columns\n"
    "       make-data changed FILE COUNT  the same with 1 % of the rows changed, added or gone\n"
    "       make-data different FILE COUNT  the same with every row changed\n"
    "       make-data keys FILE COUNT     one table of COUNT rows whose key has two columns, and no rowid\n"
    "       make-data keys-changed FILE COUNT  the same with 1 % of the rows changed, added or gone\n"
    "       make-data cells FILE COUNT    one table of COUNT rows with a text of 64 KiB each\n"
    "       make-data json FILE BYTES     no database but a JSON document\n"
    "       make-data csv FILE COUNT      no database but COUNT delimited rows of 8 columns\n"
    "       make-data quoted FILE COUNT   the same in quotes, with quotes, delimiters and line ends inside\n";

[[noreturn]] void fail(char const* doing, sqlite3* database) {
  std::fprintf(stderr, "make-data: %s: %s\n", doing, database ? sqlite3_errmsg(database) : "out of memory");
  std::exit(1);
}

/// The last step of the splitmix64 generator (https://prng.di.unimi.it/splitmix64.c), used as a hash.
std::uint64_t mixed(std::uint64_t x) {
  x += 0x9E3779B97F4A7C15;
  x = (x ^ (x >> 30)) * 0xBF58476D1CE4E5B9;
  x = (x ^ (x >> 27)) * 0x94D049BB133111EB;
  return x ^ (x >> 31);
}

/// A number below `bound` that looks random, one for each row and column.
std::int64_t drawn(std::int64_t row, int column, std::uint64_t bound) {
  auto const seed = static_cast<std::uint64_t>(row) * 64 + static_cast<std::uint64_t>(column);
  return static_cast<std::int64_t>(mixed(seed) % bound);
}

/// Words up to `length` bytes; one text in twenty has a letter of two bytes.
std::string words(std::int64_t row, int column, std::int64_t length) {
  constexpr std::array<std::string_view, 16> all{"alder",  "basalt",  "cedar",  "dune",    "ember", "fjord",
                                                 "garnet", "harbour", "indigo", "juniper", "kelp",  "lagoon",
                                                 "maple",  "nimbus",  "onyx",   "pebble"};
  std::string text;
  for (std::int64_t word = 0; text.size() < static_cast<std::size_t>(length); ++word) {
    if (!text.empty()) text += ' ';
    text += all[static_cast<std::size_t>(drawn(row * 16 + word, column, all.size()))];
  }
  text.resize(static_cast<std::size_t>(length));
  if (length > 4 && drawn(row, column + 32, 20) == 0) text.replace(2, 2, "é");
  return text;
}

class Database {
 public:
  explicit Database(char const* path) {
    std::remove(path);
    sqlite3* opened = nullptr;
    if (sqlite3_open(path, &opened) != SQLITE_OK) fail("open", opened);
    handle_.reset(opened);
    for (char const* pragma :
         {"PRAGMA page_size = 4096", "PRAGMA journal_mode = OFF", "PRAGMA synchronous = OFF", "BEGIN"})
      run(pragma);
  }

  void run(std::string const& sql) {
    if (sqlite3_exec(handle_.get(), sql.c_str(), nullptr, nullptr, nullptr) != SQLITE_OK)
      fail(sql.c_str(), handle_.get());
  }

  sqlite3* handle() const { return handle_.get(); }

 private:
  struct Close {
    void operator()(sqlite3* handle) const { sqlite3_close(handle); }
  };
  std::unique_ptr<sqlite3, Close> handle_;
};

std::string numbered(char const* prefix, std::int64_t number) {
  auto const digits = std::to_string(number);
  return prefix + std::string(5 - std::min<std::size_t>(5, digits.size()), '0') + digits;
}

/// Tables of 4 to 8 columns; one in seven is WITHOUT ROWID, one in eleven has a key that is not the rowid.
void makeTables(Database& database, std::int64_t count) {
  for (std::int64_t table = 0; table < count; ++table) {
    auto const name = numbered("table_", table);
    auto sql = "CREATE TABLE " + name + (table % 11 == 5 ? "(code TEXT PRIMARY KEY" : "(id INTEGER PRIMARY KEY");
    sql += ", name TEXT NOT NULL, amount REAL DEFAULT 0.0, changed TEXT";
    for (std::int64_t column = 0; column < drawn(table, 1, 5); ++column)
      sql += ", field_" + std::to_string(column) + " INTEGER";
    database.run(sql + (table % 7 == 3 ? ") WITHOUT ROWID" : ")"));
    database.run("CREATE INDEX " + numbered("index_", table) + " ON " + name + "(name, changed)");
  }
}

/// An integer key, two integers, two reals, three short texts; a quarter of `ratio` and a third of `note` are NULL.
void makeRows(Database& database, std::int64_t count) {
  database.run(
      "CREATE TABLE records(id INTEGER PRIMARY KEY, quantity INTEGER, reference INTEGER, price REAL, ratio REAL, code "
      "TEXT, "
      "name TEXT, note TEXT)");
  sqlite3_stmt* insert = nullptr;
  if (sqlite3_prepare_v2(database.handle(), "INSERT INTO records VALUES (?,?,?,?,?,?,?,?)", -1, &insert, nullptr) !=
      SQLITE_OK)
    fail("prepare", database.handle());
  auto const bindText = [insert](int index, std::string const& text) {
    sqlite3_bind_text(insert, index, text.data(), static_cast<int>(text.size()), SQLITE_TRANSIENT);
  };
  for (std::int64_t row = 1; row <= count; ++row) {
    sqlite3_clear_bindings(insert);
    sqlite3_bind_int64(insert, 1, row);
    sqlite3_bind_int64(insert, 2, drawn(row, 2, 2'000) - 1'000);
    sqlite3_bind_int64(insert, 3, drawn(row, 3, std::uint64_t{1} << 62));
    sqlite3_bind_double(insert, 4, static_cast<double>(drawn(row, 4, 100'000'000)) / 997.0);
    if (drawn(row, 5, 4) != 0) sqlite3_bind_double(insert, 5, static_cast<double>(drawn(row, 6, 1'000'000)) / 1e6);
    bindText(6, numbered("C", drawn(row, 7, 100'000)));
    bindText(7, words(row, 8, 8 + drawn(row, 9, 16)));
    if (drawn(row, 10, 3) != 0) bindText(8, words(row, 11, drawn(row, 12, 41)));
    if (sqlite3_step(insert) != SQLITE_DONE) fail("insert", database.handle());
    sqlite3_reset(insert);
  }
  sqlite3_finalize(insert);
}

/// A text and an integer as the key, 50 integers to a text, and two values.
void makeKeys(Database& database, std::int64_t count) {
  database.run(
      "CREATE TABLE pairs(name TEXT, number INTEGER, price REAL, note TEXT, PRIMARY KEY(name, number)) "
      "WITHOUT ROWID");
  for (std::int64_t row = 0; row < count; ++row) {
    database.run("INSERT INTO pairs VALUES ('" + numbered("N", row / 50) + "', " + std::to_string(row % 50) + ", " +
                 std::to_string(drawn(row, 1, 1000)) + ".5, '" + words(row, 2, 20) + "')");
  }
}

/// Of each 1,000 rows that `place` numbers from 1, eight have another `column`, one has gone, and one is new where `add`
/// puts it.
void change(Database& database, std::string const& table, std::string const& place, std::string const& column,
            std::string const& added) {
  std::string const at = place + " % 1000 ";
  database.run("INSERT INTO " + table + " SELECT " + added + " FROM " + table + " WHERE " + at + "= 10");
  database.run("UPDATE " + table + " SET " + column + " = " + column + " + 1 WHERE " + at + "BETWEEN 1 AND 8");
  database.run("DELETE FROM " + table + " WHERE " + at + "= 9");
}

void makeCells(Database& database, std::int64_t count) {
  database.run("CREATE TABLE cells(id INTEGER PRIMARY KEY, text TEXT)");
  for (std::int64_t row = 1; row <= count; ++row)
    database.run("INSERT INTO cells VALUES (" + std::to_string(row) + ", '" + words(row, 1, 65'536) + "')");
}

/// An array of such records as the rows of a table make, a space or two short of `bytes`.
void makeJSON(char const* path, std::int64_t bytes) {
  std::string json = "[";
  for (std::int64_t row = 1; json.size() + 300 < static_cast<std::size_t>(bytes); ++row) {
    if (row > 1) json += ",";
    json += "{\"id\":" + std::to_string(row) + ",\"quantity\":" + std::to_string(drawn(row, 2, 2'000) - 1'000) +
            ",\"price\":" + std::to_string(drawn(row, 4, 1'000'000)) + "." + std::to_string(drawn(row, 5, 9) + 1) +
            ",\"name\":\"" + words(row, 8, 8 + drawn(row, 9, 16)) +
            "\",\"note\":" + (drawn(row, 10, 3) == 0 ? "null" : "\"" + words(row, 11, drawn(row, 12, 41)) + "\"") +
            ",\"paid\":" + (drawn(row, 13, 2) == 0 ? "true" : "false") + ",\"tags\":[\"" + words(row, 14, 5) + "\"," +
            std::to_string(drawn(row, 15, 100)) + "]}";
  }
  json += "]";
  std::FILE* const file = std::fopen(path, "w");
  if (!file || std::fputs(json.c_str(), file) == EOF || std::fclose(file) != 0) fail(path, nullptr);
}

/// A heading and rows of three numbers, three short texts, a third of `note` empty, a text of 60 bytes and 64 digits.
void makeCSV(char const* path, std::int64_t count, bool quoted) {
  std::FILE* const file = std::fopen(path, "w");
  if (!file) fail(path, nullptr);
  std::fputs("id,quantity,price,code,note,day,description,digest\n", file);
  std::string_view const between = quoted ? "\",\"" : ",";
  for (std::int64_t row = 1; row <= count; ++row) {
    auto description = words(row, 8, 60);
    auto note = drawn(row, 10, 3) == 0 ? std::string() : words(row, 11, drawn(row, 12, 31));
    if (quoted) {
      for (std::size_t at : {50U, 29U, 5U}) description.insert(at, "\"\"");
      description.insert(40, "\r\n").insert(20, ",");
      if (!note.empty()) note += "\nline two";
    }
    std::string line;
    for (std::string const& field :
         {std::to_string(row), std::to_string(drawn(row, 2, 2'000) - 1'000),
          std::to_string(drawn(row, 4, 1'000'000)) + "." + std::to_string(drawn(row, 5, 9) + 1),
          numbered("C", drawn(row, 7, 100'000)), note, "2024-03-" + std::to_string(10 + drawn(row, 13, 20)),
          description}) {
      line += field;
      line += between;
    }
    for (int part = 14; part < 18; ++part) {
      std::array<char, 17> digits{};
      std::snprintf(digits.data(), digits.size(), "%016llx",
                    static_cast<unsigned long long>(mixed(static_cast<std::uint64_t>(drawn(row, part, 1U << 31)))));
      line += digits.data();
    }
    std::fputs((quoted ? "\"" + line + "\"\r\n" : line + "\n").c_str(), file);
  }
  if (std::fclose(file) != 0) fail(path, nullptr);
}

}  // namespace

int main(int argc, char** argv) {
  std::string_view const kind = argc == 4 ? argv[1] : "";
  std::int64_t const count = argc == 4 ? std::atoll(argv[3]) : 0;
  bool const known = kind == "tables" || kind == "rows" || kind == "changed" || kind == "different" || kind == "keys" ||
                     kind == "keys-changed" || kind == "cells" || kind == "json" || kind == "csv" || kind == "quoted";
  if (!known || count < 1) {
    std::fputs(usage, stderr);
    return 2;
  }
  if (kind == "json") {
    makeJSON(argv[2], count);
    return 0;
  }
  if (kind == "csv" || kind == "quoted") {
    makeCSV(argv[2], count, kind == "quoted");
    return 0;
  }
  Database database(argv[2]);
  if (kind == "tables") makeTables(database, count);
  if (kind == "rows" || kind == "changed" || kind == "different") makeRows(database, count);
  if (kind == "changed") {
    change(database, "records", "id", "quantity", "-id, quantity, reference, price, ratio, code, name, note");
  }
  if (kind == "different") database.run("UPDATE records SET quantity = quantity + 1");
  if (kind.starts_with("keys")) makeKeys(database, count);
  if (kind == "keys-changed") {
    change(database, "pairs", "(CAST(substr(name, 2) AS INTEGER) * 50 + number)", "price",
           "name, -1 - number, price, note");
  }
  if (kind == "cells") makeCells(database, count);
  database.run("COMMIT");
}
