// SPDX-License-Identifier: Apache-2.0
#include "core/QuerySpool.hpp"

#include <fcntl.h>
#include <sqlite3.h>

#include <algorithm>
#include <initializer_list>
#include <iterator>
#include <string_view>
#include <system_error>

#include "core/SQLiteRowCoding.hpp"
#include "platform/ApplicationFolders.hpp"
#include "platform/Descriptor.hpp"
#include "platform/JSONError.hpp"
#include "platform/SystemError.hpp"
#include "platform/UUID.hpp"

namespace tolva {
namespace {

constexpr std::int64_t headsPerRow = 262'144;        // bytes
constexpr std::int64_t headBytes = 65'536;           // of one value
constexpr std::int64_t largestWithHead = 8'388'608;  // bytes of a value
constexpr std::int64_t pageBytes = 4'194'304;        // of stored rows

constexpr std::string_view insertRowSQL = "INSERT INTO result VALUES (?, ?)";
constexpr std::string_view insertHeadSQL = "INSERT INTO cell_preview VALUES(?,?,?,?,?)";

/// Runs a prepared insert whose values are bound. The failure reads as that of `SQLiteConnection::execute`.
void insert(SQLiteStatement const& statement) {
  sqlite3_stmt* const handle = statement.handle();
  int const stepped = sqlite3_step(handle);
  if (stepped != SQLITE_DONE) {
    DatabaseError const error = statement.connection()->error(stepped);
    throw DatabaseError(error.detail + " [" + sqlite3_sql(handle) + "]", error.code);
  }
  sqlite3_reset(handle);
}

void requireBound(SQLiteStatement const& statement, std::initializer_list<int> codes) {
  for (int const code : codes) {
    if (code != SQLITE_OK) throw statement.connection()->error(code);
  }
}

/// The row that is stored in a column. Only somebody else can have put anything there that cannot be read.
QuerySpool::Row decoded(Bytes const& payload) try {
  return decodeRow({reinterpret_cast<char const*>(payload.data()), payload.size()});
} catch (JSONError const&) {
  throw DatabaseError("Query result is no longer available.");
}

/// The failure reads as that of SQLite, which would have made the file.
std::filesystem::path newFile() try {
  std::filesystem::path path = temporaryFolder() / ("tolva-query-" + UUID::make().text() + ".sqlite");
  Descriptor const made(::open(path.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, 0600));
  if (!made) throwFileError("The file for the query result cannot be made", path);
  return path;
} catch (std::system_error const&) {
  throw DatabaseError(sqlite3_errstr(SQLITE_CANTOPEN), SQLITE_CANTOPEN);
}

}  // namespace

// The file -----------------------------------------------------------------------------------------

QuerySpool::File::File() : path(newFile()) {}

QuerySpool::File::~File() {
  std::error_code ignored;
  std::filesystem::remove(path, ignored);
}

QuerySpool::QuerySpool() : connection_(SQLiteConnection::open(file_.path, {.readOnly = false, .create = true})) {
  connection_->execute("PRAGMA locking_mode = EXCLUSIVE");
  connection_->execute("PRAGMA page_size = 16384");  // rows come and go by hundreds
  connection_->execute("PRAGMA synchronous = OFF");
  connection_->execute("PRAGMA journal_mode = MEMORY");
  connection_->execute("CREATE TABLE result (position INTEGER PRIMARY KEY, payload BLOB NOT NULL)");
  connection_->execute(
      "CREATE TABLE cell_preview(position INTEGER,col INTEGER,type TEXT,total INTEGER,bytes BLOB,PRIMARY "
      "KEY(position,col))");
}

// Filling ------------------------------------------------------------------------------------------

QuerySpool::Writer::Writer(QuerySpool& spool)
    : insertRow_(spool.connection_, insertRowSQL), insertHead_(spool.connection_, insertHeadSQL) {}

std::int64_t QuerySpool::Writer::add(std::int64_t position, SQLiteStatement const& result) {
  row_.clear();
  result.append(row_, 0, result.columnCount(), /*full=*/false);
  std::int64_t const heads = addHeads(position, result);
  payload_.clear();
  encodeRow(row_, payload_);
  sqlite3_stmt* const handle = insertRow_.handle();
  requireBound(insertRow_, {sqlite3_bind_int64(handle, 1, position),
                            sqlite3_bind_blob64(handle, 2, payload_.data(), payload_.size(), SQLITE_STATIC)});
  insert(insertRow_);
  return heads + static_cast<std::int64_t>(payload_.size());
}

std::int64_t QuerySpool::Writer::addHeads(std::int64_t position, SQLiteStatement const& result) {
  std::int64_t budget = headsPerRow;
  for (int column = 0; budget > 0 && column < std::ssize(row_); ++column) {
    if (row_[static_cast<std::size_t>(column)].isDeferred()) budget -= addHead(position, result, column, budget);
  }
  return headsPerRow - budget;
}

/// Returns the length of the head.
std::int64_t QuerySpool::Writer::addHead(std::int64_t position, SQLiteStatement const& result, int column,
                                         std::int64_t budget) {
  bool const isText = sqlite3_column_type(result.handle(), column) == SQLITE_TEXT;
  std::int64_t const total = sqlite3_column_bytes(result.handle(), column);
  if (total > largestWithHead) return 0;
  void const* const bytes = sqlite3_column_blob(result.handle(), column);
  if (!bytes && total > 0) return 0;
  std::int64_t const length = std::min({budget, total, headBytes});
  sqlite3_stmt* const handle = insertHead_.handle();
  requireBound(
      insertHead_,
      {sqlite3_bind_int64(handle, 1, position), sqlite3_bind_int(handle, 2, column),
       sqlite3_bind_text(handle, 3, isText ? "text" : "blob", -1, SQLITE_STATIC), sqlite3_bind_int64(handle, 4, total),
       sqlite3_bind_blob64(handle, 5, bytes ? bytes : "", static_cast<sqlite3_uint64>(length), SQLITE_STATIC)});
  insert(insertHead_);
  return length;
}

// Reading ------------------------------------------------------------------------------------------

std::vector<QuerySpool::Row> QuerySpool::rows(std::int64_t first, std::int64_t end) const {
  auto statement = connection_->prepare(
      "SELECT payload FROM result WHERE position >= ? AND position < ? ORDER BY position", {first, end});
  std::vector<Row> rows;
  std::int64_t bytes = 0;
  while (bytes < pageBytes && statement.step()) {
    SQLiteValue const payload = statement.value(0, /*full=*/true);
    auto const* const coded = payload.asBlob();
    if (!coded) continue;
    rows.push_back(decoded(*coded));
    bytes += std::ssize(*coded);
  }
  return rows;
}

std::optional<QuerySpool::Row> QuerySpool::row(std::int64_t position) const {
  auto statement = connection_->prepare("SELECT payload FROM result WHERE position=?", {position});
  if (!statement.step()) return std::nullopt;
  SQLiteValue const payload = statement.value(0, /*full=*/true);
  return payload.asBlob() ? std::optional(decoded(*payload.asBlob())) : std::nullopt;
}

std::optional<QuerySpool::Head> QuerySpool::head(std::int64_t position, std::int64_t column) const {
  auto statement =
      connection_->prepare("SELECT type,total,bytes FROM cell_preview WHERE position=? AND col=?", {position, column});
  if (!statement.step()) return std::nullopt;
  Row const found = statement.row(/*full=*/true);
  if (!found[1].asInteger() || !found[2].asBlob()) return std::nullopt;
  return Head{.type = found[0].display(), .total = *found[1].asInteger(), .bytes = *found[2].asBlob()};
}

}  // namespace tolva
