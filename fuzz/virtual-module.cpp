// SPDX-License-Identifier: Apache-2.0
// Any bytes as a statement: where SQLite accepts it, the module named for it is the one that SQLite creates the table
// with, both in the text as it came and in the text that SQLite stores; where SQLite creates no virtual table, no text
// that it stores names a module.

#include <sqlite3.h>

#include <cstdint>
#include <string>

#include "core/VirtualModule.hpp"
#include "fuzz/Expect.hpp"
#include "platform/ASCIICase.hpp"

namespace tolva {
namespace {

/// What SQLite makes of one statement, watched from its authorizer, which sees each creation with its module.
class Witness {
 public:
  explicit Witness(std::string const& sql) {
    sqlite3_open(":memory:", &db_);
    sqlite3_limit(db_, SQLITE_LIMIT_VDBE_OP, 100'000);
    sqlite3_progress_handler(
        db_, 100'000, [](void*) { return 1; }, nullptr);
    sqlite3_set_authorizer(db_, watch, this);
    sqlite3_stmt* statement = nullptr;
    if (sqlite3_prepare_v2(db_, sql.c_str(), -1, &statement, nullptr) == SQLITE_OK && statement) {
      accepted_ = sqlite3_step(statement) == SQLITE_DONE;
    }
    sqlite3_finalize(statement);
  }
  ~Witness() { sqlite3_close(db_); }
  Witness(Witness const&) = delete;
  Witness& operator=(Witness const&) = delete;

  bool accepted() const { return accepted_; }
  bool created() const { return created_; }
  std::string const& module() const { return module_; }

  /// Checks each stored statement: only the table that was created may name a module, and names this one.
  void checkStored() const {
    sqlite3_set_authorizer(db_, nullptr, nullptr);
    sqlite3_stmt* row = nullptr;
    sqlite3_prepare_v2(db_, "SELECT name = ?, sql FROM sqlite_schema WHERE sql IS NOT NULL", -1, &row, nullptr);
    sqlite3_bind_text(row, 1, table_.data(), static_cast<int>(table_.size()), SQLITE_STATIC);
    while (row && sqlite3_step(row) == SQLITE_ROW) {
      std::string const sql(reinterpret_cast<char const*>(sqlite3_column_text(row, 1)),
                            static_cast<std::size_t>(sqlite3_column_bytes(row, 1)));
      bool const own = created_ && sqlite3_column_int(row, 0) == 1;
      expect(virtualModule(sql) == (own ? std::optional(module_) : std::nullopt),
             "a stored statement names its module");
    }
    sqlite3_finalize(row);
  }

 private:
  static int watch(void* self, int action, char const* table, char const* module, char const*, char const*) {
    auto& witness = *static_cast<Witness*>(self);
    if (action == SQLITE_ATTACH || action == SQLITE_DETACH) return SQLITE_DENY;
    if (action != SQLITE_CREATE_VTABLE || witness.created_) return SQLITE_OK;
    witness.created_ = true;
    witness.table_ = table;
    witness.module_ = lowerASCII(module);
    return SQLITE_OK;
  }

  sqlite3* db_ = nullptr;
  bool accepted_ = false;
  bool created_ = false;
  std::string table_;
  std::string module_;
};

/// What EXPLAIN shows is not done, and a statement within another is not the statement.
bool isExplained(std::string const& sql) { return lowerASCII(sql).find("explain") != sql.npos; }

void check(std::string const& sql) {
  std::optional<std::string> const module = virtualModule(sql);
  Witness const witness(sql);
  if (!witness.accepted() || isExplained(sql)) return;
  expect(module == (witness.created() ? std::optional(witness.module()) : std::nullopt),
         "the module is that of the table that SQLite creates");
  witness.checkStored();
}

}  // namespace
}  // namespace tolva

extern "C" int LLVMFuzzerTestOneInput(std::uint8_t const* data, std::size_t size) {
  std::string const text(data, data + size);
  tolva::check(text);
  tolva::check("CREATE VIRTUAL TABLE " + text);
  tolva::check("CREATE VIRTUAL TABLE t USING " + text);
  return 0;
}
