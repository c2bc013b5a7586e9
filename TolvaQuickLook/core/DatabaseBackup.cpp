// SPDX-License-Identifier: Apache-2.0
#include "core/DatabaseBackup.hpp"

#include <fcntl.h>
#include <sqlite3.h>
#include <sys/stat.h>

#include <algorithm>
#include <chrono>
#include <cstdint>
#include <functional>
#include <limits>
#include <optional>
#include <string>
#include <string_view>
#include <system_error>
#include <utility>
#include <vector>

#include "core/DatabaseError.hpp"
#include "core/OnlineBackup.hpp"
#include "core/OpenDatabases.hpp"
#include "core/SQLiteConnection.hpp"
#include "core/SQLiteStatement.hpp"
#include "platform/AtomicFile.hpp"
#include "platform/FileNode.hpp"
#include "platform/FilePath.hpp"
#include "platform/UUID.hpp"

namespace tolva {
namespace {

constexpr int pagesPerStep = 256;      // the source is locked for one step at a time
constexpr std::size_t keptBeside = 4;  // older backups that stay with a new one
constexpr std::string_view prefix = "backup-";
constexpr std::string_view extension = ".sqlite";

std::string newName() {
  auto const now = std::chrono::system_clock::now().time_since_epoch();
  auto const seconds = std::chrono::floor<std::chrono::seconds>(now).count();
  return std::string(prefix) + std::to_string(seconds) + "-" + UUID::make().text() + std::string(extension);
}

[[noreturn]] void failToOpen() { throw DatabaseError(sqlite3_errstr(SQLITE_CANTOPEN), SQLITE_CANTOPEN); }

// Copying ------------------------------------------------------------------------------------------

/// The source keeps the message of whatever it failed with last; it belongs to this failure only where the code does.
DatabaseError failureOf(SQLiteConnection const& source, int code) {
  bool const told = (sqlite3_errcode(source.handle()) & 0xFF) == (code & 0xFF);
  return told ? source.error(code) : DatabaseError(sqlite3_errstr(code), code);
}

/// Lets a connection wait for no lock, for a scope. A script may have set its time of waiting, which cannot be asked
/// for between two rows of a statement that was cancelled: but then the connection has its lock, and waits for none.
class NoWaiting {
 public:
  explicit NoWaiting(SQLiteConnection& connection) : handle_(connection.handle()), before_(timeoutOf(connection)) {
    if (before_) sqlite3_busy_timeout(handle_, 0);
  }
  ~NoWaiting() {
    if (before_) sqlite3_busy_timeout(handle_, *before_);
  }
  NoWaiting(NoWaiting const&) = delete;
  NoWaiting& operator=(NoWaiting const&) = delete;

 private:
  static std::optional<int> timeoutOf(SQLiteConnection& connection) try {
    SQLiteStatement asked = connection.prepare("PRAGMA busy_timeout");
    return asked.step() ? std::optional(sqlite3_column_int(asked.handle(), 0)) : std::nullopt;
  } catch (DatabaseError const& error) {
    if (!error.isCancellation()) throw;
    return std::nullopt;
  }

  sqlite3* const handle_;
  std::optional<int> const before_;  // milliseconds
};

void copyPages(SQLiteConnection& source, SQLiteConnection& copy, std::stop_token const& task) {
  NoWaiting const scope(source);
  OnlineBackup backup(source, copy);
  int stepped = SQLITE_OK;
  while (stepped == SQLITE_OK) stepped = task.stop_requested() ? SQLITE_INTERRUPT : backup.step(pagesPerStep);
  int const finished = backup.finish();
  if (stepped != SQLITE_DONE) throw failureOf(source, stepped);
  if (finished != SQLITE_OK) throw failureOf(source, finished);
}

/// What a failed copy can have left of SQLite's own files beside it.
struct NoCompanions {
  std::filesystem::path const& database;
  ~NoCompanions() {
    for (char const* const suffix : {"-journal", "-wal", "-shm"}) {
      std::error_code ignored;
      std::filesystem::remove(database.string() + suffix, ignored);
    }
  }
};

/// SQLite opens a file by its path, which may lead elsewhere by now: what is published must be what was copied into.
void requireOpen(AtomicFile const& file) {
  std::optional<FileNode> const node = fileNode(file.descriptor());
  if (!node || !OpenDatabases::shared().contain(*node)) failToOpen();
}

/// Nobody sees the copy before it is complete and flushed as a whole, so it needs neither a journal nor a flush on the
/// way.
void copyInto(AtomicFile const& file, std::filesystem::path const& path, SQLiteConnection& source,
              std::stop_token const& task) {
  NoCompanions const after{path};
  auto const copy = SQLiteConnection::open(path, {.readOnly = false});
  requireOpen(file);
  copy->execute("PRAGMA journal_mode = OFF");
  copy->execute("PRAGMA synchronous = OFF");
  copyPages(source, *copy, task);
  copy->execute("PRAGMA journal_mode = DELETE");  // a copy of a database in WAL mode is in it as well
}

AtomicFile newFile(std::filesystem::path const& path) try {
  return AtomicFile(path, {.prefix = ".tolva-backup-"});
} catch (std::filesystem::filesystem_error const&) {
  failToOpen();
}

void publish(AtomicFile& file, std::filesystem::path const& path) try {
  file.publish(Publication::exclusive);
} catch (std::filesystem::filesystem_error const&) {
  std::error_code ignored;
  if (file.published()) std::filesystem::remove(path, ignored);  // only the folder could not be flushed
  throw DatabaseError(sqlite3_errstr(SQLITE_IOERR), SQLITE_IOERR);
}

/// The copy stands in a hidden sibling until it is whole: a partial one must never count as a backup.
void writeCopy(SQLiteConnection& source, std::filesystem::path const& path, std::stop_token const& task) {
  AtomicFile file = newFile(path);
  copyInto(file, path.parent_path() / file.sibling(), source, task);
  publish(file, path);
}

// Pruning ------------------------------------------------------------------------------------------

using Moment = std::pair<std::int64_t, std::uint32_t>;  // seconds since 1970 and nanoseconds

/// Where the file system keeps no creation date, the distant past.
Moment createdAt(std::filesystem::path const& path) {
  struct statx status {};
  bool const known = ::statx(AT_FDCWD, path.c_str(), AT_SYMLINK_NOFOLLOW, STATX_BTIME, &status) == 0 &&
                     (status.stx_mask & STATX_BTIME) != 0;
  return known ? Moment(status.stx_btime.tv_sec, status.stx_btime.tv_nsec)
               : Moment(std::numeric_limits<std::int64_t>::min(), 0);
}

/// A person can look into a backup, or work on with it, and back that up in turn. The source of a backup is open, too.
bool isOpenDatabase(std::filesystem::path const& path) {
  std::optional<FileNode> const node = fileNode(path);
  return node && OpenDatabases::shared().contain(*node);
}

bool isBackup(std::filesystem::directory_entry const& entry) {
  std::error_code ignored;
  return entry.path().filename().native().starts_with(prefix) && entry.path().extension() == extension &&
         entry.symlink_status(ignored).type() == std::filesystem::file_type::regular;
}

void prune(std::filesystem::path const& directory, std::filesystem::path const& made) {
  std::vector<std::pair<Moment, std::filesystem::path>> others;
  for (std::filesystem::directory_entry const& entry : std::filesystem::directory_iterator(directory)) {
    if (isBackup(entry) && entry.path().filename() != made.filename()) {
      others.emplace_back(createdAt(entry.path()), entry.path());
    }
  }
  std::ranges::sort(others, std::greater());  // the newest first; of one moment by name, which holds the second
  for (std::size_t place = keptBeside; place < others.size(); ++place) {
    std::error_code ignored;
    if (!isOpenDatabase(others[place].second)) std::filesystem::remove(others[place].second, ignored);
  }
}

}  // namespace

std::filesystem::path makeBackup(SQLiteConnection& connection, std::filesystem::path const& directory,
                                 std::stop_token task) {
  if (holdsNUL(directory)) failToOpen();  // the folder would be made under a name that ends there
  std::filesystem::create_directories(directory);
  std::filesystem::path path = std::filesystem::absolute(directory) / newName();
  writeCopy(connection, path, task);
  prune(directory, path);
  return path;
}

}  // namespace tolva
