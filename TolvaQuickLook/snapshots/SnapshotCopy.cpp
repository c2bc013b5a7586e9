// SPDX-License-Identifier: Apache-2.0
#include "snapshots/SnapshotCopy.hpp"

#include <sqlite3.h>

#include <chrono>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <thread>

#include "core/DatabaseError.hpp"
#include "core/OnlineBackup.hpp"
#include "core/OpenDatabases.hpp"
#include "platform/FileNode.hpp"
#include "platform/TaskCancellation.hpp"
#include "platform/Uptime.hpp"

namespace tolva {
namespace {

using namespace std::chrono_literals;

constexpr int pagesPerStep = 256;       // the source is locked for one step at a time
constexpr int sourcePatience = 50;      // milliseconds for a lock on the source, which SQLite waits once in a backup,
constexpr auto pauseForLock = 20ms;     // and the time to the next step
constexpr auto betweenReports = 0.15s;  // of progress, but for the last one

/// SQLite opens a file by its path, which may lead elsewhere by now: what is published must be what was copied into.
void requireStaged(SnapshotStaging const& staging) {
  std::optional<FileNode> const node = staging.databaseNode();
  if (!node || !OpenDatabases::shared().contain(*node)) {
    throw DatabaseError(sqlite3_errstr(SQLITE_CANTOPEN), SQLITE_CANTOPEN);
  }
}

std::shared_ptr<SQLiteConnection> openDestination(SnapshotStaging const& staging, SnapshotLimits const& limits) {
  auto copy =
      SQLiteConnection::open(staging.database(), {.readOnly = false, .create = true, .allowSnapshotWrite = true});
  requireStaged(staging);
  copy->execute("PRAGMA cache_size=-2048");
  copy->execute("PRAGMA cache_spill=1");
  if (limits.destinationPageLimit) {
    copy->execute("PRAGMA max_page_count=" + std::to_string(*limits.destinationPageLimit));
  }
  return copy;
}

/// The copy's message belongs to the backup only where its code does.
DatabaseError failureOf(SQLiteConnection const& copy, int code) {
  bool const told = (sqlite3_errcode(copy.handle()) & 0xFF) == (code & 0xFF);
  return told ? copy.error(code) : DatabaseError(sqlite3_errstr(code), code);
}

/// The copying itself, for one destination.
class Steps {
 public:
  Steps(SQLiteConnection& source, SQLiteConnection& copy, SnapshotLimits const& limits,
        SnapshotProgressReport const& progress)
      : copy_(copy),
        progress_(progress),
        backup_(source, copy),
        reported_(uptime()),
        end_(reported_ + limits.timeout) {}

  /// Copies some pages, and tells whether there are more.
  bool next() {
    requireTime();
    int const stepped = backup_.step(pagesPerStep);
    report(stepped == SQLITE_DONE);
    if (stepped == SQLITE_DONE) return false;
    if (stepped == SQLITE_BUSY || stepped == SQLITE_LOCKED) {
      std::this_thread::sleep_for(pauseForLock);
    } else if (stepped != SQLITE_OK) {
      int const finished = backup_.finish();
      throw failureOf(copy_, finished != SQLITE_OK ? finished : stepped);
    }
    return true;
  }

  /// Returns the pages of the source.
  std::int64_t finish() {
    int const finished = backup_.finish();
    if (finished != SQLITE_OK) throw failureOf(copy_, finished);
    return backup_.pageCount();
  }

 private:
  void requireTime() const {
    if (uptime() < end_) return;
    throw DatabaseError(
        "Snapshot capture timed out. The database may be changing continuously; try again when it is less busy.");
  }

  void report(bool last) {
    Uptime const now = uptime();
    if (!last && now - reported_ < betweenReports) return;
    reported_ = now;
    if (progress_) {
      progress_({.copiedPages = backup_.pageCount() - backup_.remaining(), .totalPages = backup_.pageCount()});
    }
  }

  SQLiteConnection& copy_;
  SnapshotProgressReport const& progress_;
  OnlineBackup backup_;
  Uptime reported_;
  std::chrono::time_point<Uptime::clock, std::chrono::duration<double, Uptime::period>> const end_;
};

}  // namespace

std::int64_t copySnapshot(SQLiteConnection& source, SnapshotStaging const& staging, SnapshotLimits const& limits,
                          SnapshotProgressReport const& progress, SourceValidation const& validateSource,
                          std::stop_token const& task) {
  auto const copy = openDestination(staging, limits);
  sqlite3_busy_timeout(source.handle(), sourcePatience);
  Steps steps(source, *copy, limits, progress);
  do {
    if (validateSource) validateSource();
    checkCancellation(task);
  } while (steps.next());
  std::int64_t const pages = steps.finish();
  checkCancellation(task);
  copy->execute("PRAGMA journal_mode=DELETE");  // a copy of a database in WAL mode is in it as well
  return pages;
}

}  // namespace tolva
