// SPDX-License-Identifier: Apache-2.0
#include "snapshots/SchemaObjects.hpp"

#include <sqlite3.h>

#include <array>
#include <cstddef>
#include <cstdint>
#include <utility>

#include "core/KeptText.hpp"
#include "core/Limit.hpp"
#include "core/MemoryBudget.hpp"
#include "core/SQLIdentifier.hpp"
#include "core/SQLiteStatement.hpp"
#include "platform/TaskCancellation.hpp"

namespace tolva {
namespace {

constexpr std::int64_t mostObjects = 4'096;

constexpr Limit schemaBytes{4'194'304, "Schema exceeds the 4 MiB comparison budget."};

enum Column { nameColumn, typeColumn, sqlColumn };

/// The bytes of a text in the encoding of its database, which a repair would change; of anything else nothing. Asked
/// for before the text itself is, which converts it.
std::string storedBytes(SQLiteStatement const& row, int column, bool isUTF8) {
  sqlite3_stmt* const handle = row.handle();
  if (sqlite3_column_type(handle, column) != SQLITE_TEXT) return {};
  void const* const bytes = isUTF8 ? sqlite3_column_text(handle, column) : sqlite3_column_text16(handle, column);
  int const size = isUTF8 ? sqlite3_column_bytes(handle, column) : sqlite3_column_bytes16(handle, column);
  if (!bytes || !MemoryBudget::keep(size)) throw row.connection()->error(SQLITE_NOMEM);
  return {static_cast<char const*>(bytes), static_cast<std::size_t>(size)};
}

std::string requiredText(SQLiteStatement const& row, int column) {
  SQLiteValue const value = row.value(column, /*full=*/false);
  if (value.asText()) return *value.asText();
  throw DatabaseError("Schema exceeds comparison limits (4096 objects, 64 KiB per definition).");
}

std::pair<SchemaKey, SchemaObject> readObject(SQLiteStatement const& row, bool isUTF8) {
  // Between the two stands what no kind has in it, so that kinds and names are told apart.
  std::string bytes = storedBytes(row, typeColumn, isUTF8) + '\0' + storedBytes(row, nameColumn, isUTF8);
  std::string definition = storedBytes(row, sqlColumn, isUTF8);
  SchemaObject object{.kind = keptText(row, typeColumn),
                      .name = requiredText(row, nameColumn),
                      .sql = requiredText(row, sqlColumn),
                      .table = reinterpret_cast<char const*>(sqlite3_column_text(row.handle(), nameColumn)),
                      .definition = std::move(definition)};
  SchemaKey key{.text = object.kind + ":" + object.name, .bytes = std::move(bytes)};
  return {std::move(key), std::move(object)};
}

}  // namespace

std::map<SchemaKey, SchemaObject> readSchemaObjects(SQLiteConnection& connection, std::string const& database,
                                                    std::stop_token task) {
  bool const isUTF8 = connection.storesUTF8();
  SQLiteStatement row = connection.prepare("SELECT name,type,sql FROM " + quoteIdentifier(database) +
                                           ".sqlite_schema WHERE name NOT GLOB 'sqlite_*' LIMIT 4097");
  std::map<SchemaKey, SchemaObject> objects;
  std::int64_t bytes = 0;
  for (std::int64_t read = 0; row.step(); ++read) {
    checkCancellation(task);
    if (read == mostObjects) {
      throw DatabaseError("Schema exceeds comparison limits (4096 objects, 64 KiB per definition).");
    }
    auto [key, object] = readObject(row, isUTF8);
    bytes += static_cast<std::int64_t>(object.name.size() + object.sql.size());
    schemaBytes.check(bytes);
    objects.insert_or_assign(std::move(key), std::move(object));
  }
  return objects;
}

}  // namespace tolva
