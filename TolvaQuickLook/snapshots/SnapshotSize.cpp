// SPDX-License-Identifier: Apache-2.0
#include "snapshots/SnapshotSize.hpp"

#include <sqlite3.h>
#include <sys/statvfs.h>

#include <algorithm>
#include <limits>
#include <optional>
#include <string_view>

#include "core/DatabaseError.hpp"
#include "core/SQLiteStatement.hpp"
#include "core/SQLiteValue.hpp"

namespace tolva {
namespace {

constexpr std::int64_t leastSpare = 16'777'216;  // bytes that stay free beside a small copy

std::int64_t answerOf(SQLiteConnection& source, std::string_view pragma) {
  SQLiteStatement asked = source.prepare(pragma);
  SQLiteValue const answer = asked.step() ? asked.value(0, /*full=*/false) : SQLiteValue();
  if (!answer.asInteger()) throw DatabaseError("Could not read database size.");
  return *answer.asInteger();
}

/// What a user without privileges may fill. Nothing where the file system does not tell.
std::optional<std::int64_t> freeBytes(std::filesystem::path const& store) {
  struct statvfs system {};
  if (::statvfs(store.c_str(), &system) != 0) return std::nullopt;
  std::int64_t bytes = 0;
  bool const tooMany = __builtin_mul_overflow(system.f_bavail, system.f_frsize, &bytes);
  return tooMany ? std::numeric_limits<std::int64_t>::max() : bytes;
}

}  // namespace

std::int64_t databaseSize(std::int64_t pages, std::int64_t pageSize) {
  std::int64_t bytes = 0;
  if (__builtin_mul_overflow(pages, pageSize, &bytes)) throw DatabaseError("Database is too large to snapshot.");
  return bytes;
}

std::int64_t pageSizeOf(SQLiteConnection& source) { return answerOf(source, "PRAGMA page_size"); }

SnapshotEstimate estimateSnapshot(SQLiteConnection& source, std::filesystem::path const& store,
                                  SnapshotLimits const& limits) try {
  std::int64_t const pages = answerOf(source, "PRAGMA page_count");
  std::int64_t const bytes = databaseSize(pages, pageSizeOf(source));
  return {.bytes = bytes,
          .availableBytes = limits.availableBytesOverride ? limits.availableBytesOverride : freeBytes(store)};
} catch (DatabaseError const& error) {
  if ((error.code & 0xFF) != SQLITE_CANTOPEN) throw;
  throw DatabaseError(
      R"(SQLite could not read this database. For a WAL database with missing or inaccessible sidecar files, reopen it in its owning application and try again. Snapshot capture requires read-only source access.)",
      error.code);
}

void requireSpace(SnapshotEstimate const& estimate) {
  if (!estimate.availableBytes) return;
  std::int64_t const spare = std::max(estimate.bytes / 10, leastSpare);
  // Of the room, so that no sum of large numbers overflows.
  if (*estimate.availableBytes < spare || *estimate.availableBytes - spare < estimate.bytes) {
    throw DatabaseError(
        "Not enough free space for this snapshot. Delete unwanted snapshots or free disk space and try again.");
  }
}

}  // namespace tolva
