// SPDX-License-Identifier: Apache-2.0
// Scripts put together from pieces of SQL: each statement that `QueryScript` takes off one is one statement to
// SQLite's own test of completeness too, and both agree on where nothing but comments follows.

#include <sqlite3.h>

#include <array>
#include <cstdint>
#include <string>
#include <string_view>

#include "core/QueryScript.hpp"
#include "fuzz/Expect.hpp"
#include "platform/Trim.hpp"

namespace tolva {
namespace {

constexpr std::array<std::string_view, 32> pieces{"SELECT 1",
                                                  ";",
                                                  " ",
                                                  "\n",
                                                  "--",
                                                  "/*",
                                                  "*/",
                                                  "*",
                                                  "/",
                                                  "-",
                                                  "'",
                                                  "\"",
                                                  "`",
                                                  "[",
                                                  "]",
                                                  "x",
                                                  "SELECT ';'",
                                                  ", 2",
                                                  "BEGIN",
                                                  "END",
                                                  "CREATE",
                                                  "TEMP",
                                                  "TRIGGER",
                                                  " r AFTER INSERT ON t BEGIN ",
                                                  "SELECT \";\"",
                                                  "\t",
                                                  "\r\n",
                                                  "VALUES(1)",
                                                  "EXPLAIN ",
                                                  "DROP TABLE t",
                                                  "UPDATE t SET a = 1",
                                                  "a"};

std::string scriptOf(std::uint8_t const* data, std::size_t size) {
  std::string script;
  for (std::size_t at = 0; at < size; ++at) script += pieces[data[at] % pieces.size()];
  return script;
}

bool complete(std::string const& sql) { return sqlite3_complete(sql.c_str()) == 1; }

/// Nothing but white space and comments, told by how the text changes what SQLite says of a semicolon before it. A
/// comment without an end is complete to SQLite once it has one.
bool isBlank(std::string const& sql) { return complete(";" + sql) && !complete(sql); }
bool onlyComments(std::string const& sql) { return isBlank(sql) || isBlank(sql + "*/"); }

void check(std::string const& script) try {
  auto const connection = SQLiteConnection::open({}, {.readOnly = false, .create = true, .inMemory = true});
  connection->execute("CREATE TABLE t(a)");
  QueryScript statements(script);
  std::size_t passed = 0;
  while (auto const statement = statements.next(connection)) {
    std::string const piece = sqlite3_sql(statement->handle());
    std::size_t const found = script.find(piece, passed);
    expect(found != script.npos, "a statement stands in the script, behind the one before");
    passed = found + piece.size();
    std::string const rest = script.substr(passed);
    expect(complete(piece) || trimmed(rest).empty(), "a statement in front of more is complete");
    expect(statements.atEnd() == onlyComments(rest), "both see the end");
  }
} catch (DatabaseError const&) {  // SQLite's word on what is no SQL
}

}  // namespace
}  // namespace tolva

extern "C" int LLVMFuzzerTestOneInput(std::uint8_t const* data, std::size_t size) {
  if (size > 200) return 0;
  tolva::check(tolva::scriptOf(data, size));
  return 0;
}
