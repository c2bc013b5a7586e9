// SPDX-License-Identifier: Apache-2.0
#include "snapshots/ComparisonStore.hpp"

#include <fmt/format.h>
#include <sqlite3.h>
#include <sys/stat.h>

#include <algorithm>
#include <string>
#include <string_view>
#include <system_error>
#include <utility>

#include "core/SQLIdentifier.hpp"
#include "core/SQLiteStatement.hpp"
#include "platform/ApplicationFolders.hpp"
#include "platform/FilePath.hpp"
#include "platform/SystemError.hpp"
#include "platform/UUID.hpp"
#include "snapshots/ComparisonBudget.hpp"

namespace tolva {
namespace {

constexpr int longestValue = 1'048'576;  // bytes

/// The failure reads as that of SQLite, which would have made a file.
std::filesystem::path newFolder() try {
  std::filesystem::path path = temporaryFolder() / ("tolva-diff-" + UUID::make().text());
  if (::mkdir(path.c_str(), 0700) != 0) throwFileError("The folder for the comparison cannot be made", path);
  return path;
} catch (std::system_error const&) {
  throw DatabaseError(sqlite3_errstr(SQLITE_CANTOPEN), SQLITE_CANTOPEN);
}

/// Nothing was ever stored in it, so any encoding suits it.
bool isEmpty(SnapshotLease const& lease) {
  std::error_code error;
  return std::filesystem::file_size(lease.databaseURL, error) == 0;
}

/// As the snapshot tells it: "UTF-8", "UTF-16le" or "UTF-16be".
std::string encodingOf(SnapshotLease const& lease, std::shared_ptr<CancellationHandle> const& cancellation,
                       Uptime deadline, std::stop_token const& task) {
  auto const connection = SQLiteConnection::open(lease.databaseURL, {.readOnly = true}, cancellation);
  ComparisonBudget const budget(connection->handle(), deadline, task);
  SQLiteStatement encoding = connection->prepare("PRAGMA encoding");
  return encoding.step() ? encoding.value(0, /*full=*/false).display() : "UTF-8";
}

// The URI (https://sqlite.org/uri.html) ---------------------------------------------------------------

bool isUnreserved(char c) {
  bool const isLetter = (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z');
  return isLetter || (c >= '0' && c <= '9') || std::string_view("-._~/").find(c) != std::string_view::npos;
}

std::string percentEncoded(std::string_view path) {
  std::string encoded;
  for (char const c : path) {
    if (isUnreserved(c))
      encoded += c;
    else
      encoded += fmt::format("%{:02X}", static_cast<unsigned char>(c));
  }
  return encoded;
}

/// With an empty authority, since a path may begin with two slashes. SQLite would end a path at its first NUL.
std::string readOnlyURI(std::filesystem::path const& database) {
  std::filesystem::path const path = absolutePath(database);
  if (!path.is_absolute() || holdsNUL(path)) throw DatabaseError(sqlite3_errstr(SQLITE_CANTOPEN), SQLITE_CANTOPEN);
  return "file://" + percentEncoded(path.string()) + "?mode=ro";
}

}  // namespace

ComparisonStore::Folder::Folder() : path(newFolder()) {}

ComparisonStore::Folder::~Folder() {
  try {
    std::error_code ignored;
    std::filesystem::remove_all(path, ignored);
  } catch (...) {
    // Out of memory: what is left goes with the temporary folder.
  }
}

ComparisonStore::ComparisonStore(std::shared_ptr<SnapshotLease const> before,
                                 std::shared_ptr<SnapshotLease const> after, std::int64_t pages,
                                 std::shared_ptr<CancellationHandle> const& cancellation, Uptime deadline,
                                 std::stop_token task)
    : before_(std::move(before)), after_(std::move(after)) {
  std::string const encoding = encodingOf(isEmpty(*before_) ? *after_ : *before_, cancellation, deadline, task);
  connection_ = SQLiteConnection::open(folder_.path / "results.sqlite",
                                       {.readOnly = false, .create = true, .allowURI = true}, cancellation);
  ComparisonBudget const budget(connection_->handle(), deadline, std::move(task));
  // A database that is attached must have the encoding of the one that it is attached to.
  if (encoding != "UTF-8") connection_->execute("PRAGMA encoding='" + encoding + "'");
  configure(pages);
  attach(*before_, "older");
  attach(*after_, "newer");
  sqlite3_limit(connection_->handle(), SQLITE_LIMIT_LENGTH, longestValue);
}

void ComparisonStore::configure(std::int64_t pages) const {
  connection_->execute("PRAGMA page_size=4096");
  // A count of 0 would be a question, and leave the store without a bound.
  connection_->execute("PRAGMA max_page_count=" + std::to_string(std::max<std::int64_t>(pages, 1)));
  connection_->execute("PRAGMA cache_size=-2048");
  connection_->execute("PRAGMA temp_store=FILE");
}

/// Each attached database has a cache of its own, and of a size that its file may set.
void ComparisonStore::attach(SnapshotLease const& lease, char const* alias) const {
  connection_->execute("ATTACH DATABASE ? AS " + quoteIdentifier(alias), {readOnlyURI(lease.databaseURL)});
  if (sqlite3_db_readonly(connection_->handle(), alias) != 1) {
    throw DatabaseError("Snapshot attachment must be genuinely read-only.");
  }
  connection_->execute("PRAGMA " + quoteIdentifier(alias) + ".cache_size=-2048");
}

}  // namespace tolva
