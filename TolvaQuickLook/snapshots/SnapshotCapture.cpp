// SPDX-License-Identifier: Apache-2.0
#include "snapshots/SnapshotCapture.hpp"

#include <sqlite3.h>

#include <chrono>
#include <cstdint>
#include <filesystem>
#include <memory>
#include <optional>
#include <stop_token>
#include <string>
#include <utility>

#include "core/DatabaseError.hpp"
#include "core/SQLiteConnection.hpp"
#include "core/SQLiteStatement.hpp"
#include "core/SQLiteValue.hpp"
#include "platform/DurableFolder.hpp"
#include "platform/TaskCancellation.hpp"
#include "platform/UUID.hpp"
#include "snapshots/SnapshotCopy.hpp"
#include "snapshots/SnapshotRecord.hpp"
#include "snapshots/SnapshotSize.hpp"
#include "snapshots/SnapshotSource.hpp"
#include "snapshots/SnapshotStaging.hpp"

namespace tolva {
namespace {

/// The caller's own check of the source, whose failure is told as it stands, wherever it comes.
class Validation {
 public:
  explicit Validation(SourceValidation const& check) : check_(check) {}

  void run() try {
    if (check_) check_();
  } catch (...) {
    failed_ = true;
    throw;
  }

  bool failed() const { return failed_; }

 private:
  SourceValidation const& check_;
  bool failed_ = false;
};

/// The result of `stage`, whose failures are told with their stage in front.
template <class Stage>
auto inStage(char const* prefix, Stage&& stage) try {
  return stage();
} catch (DatabaseError const& error) {
  throw DatabaseError(prefix + error.detail, error.code);
}

std::string journalModeOf(SQLiteConnection& source) {
  SQLiteStatement asked = source.prepare("PRAGMA journal_mode");
  SQLiteValue const answer = asked.step() ? asked.value(0, /*full=*/false) : SQLiteValue();
  return answer.asText() ? *answer.asText() : std::string();
}

/// One capture.
class Capture {
 public:
  Capture(SnapshotStore const& store, SnapshotLimits const& limits, CaptureRequest const& request,
          std::stop_token const& task)
      : store_(store), limits_(limits), request_(request), task_(task), validation_(request.validateSource) {}

  Snapshot run() {
    validation_.run();
    begin();
    auto const folder = prepareFolder();
    SnapshotStaging staging(store_, folder);
    copySource(staging);
    describe(staging);
    staging.protectDatabase();
    staging.flush();
    checkCancellation(task_);
    validation_.run();
    staging.publish(snapshot_.id);
    return std::move(snapshot_);
  }

 private:
  void begin() {
    source_ = snapshotSource(request_.source);
    snapshot_.started = std::chrono::system_clock::now();
    snapshot_.id = UUID::make();
    snapshot_.label = request_.label ? trimmedLabel(*request_.label) : std::nullopt;
  }

  std::filesystem::path prepareFolder() const {
    auto folder = store_.directory(source_.databaseID);
    makeDurableFolder(folder);
    cleanStaging(store_, folder);
    return folder;
  }

  void copySource(SnapshotStaging const& staging) {
    auto const source = SQLiteConnection::open(source_.path, {.readOnly = true});
    SnapshotEstimate const estimate =
        inStage("Reading source size: ", [&] { return estimateSnapshot(*source, store_.root(), limits_); });
    requireSpace(estimate);
    inStage("Reading source journal mode: ", [&] {
      snapshot_.pageSize = pageSizeOf(*source);
      snapshot_.journalMode = journalModeOf(*source);
    });
    std::int64_t const pages = copyPages(*source, staging);
    checkCancellation(task_);
    bool const same = isSameFile(*source);
    if (same && (estimate.bytes == 0 || !wasEmptied(pages))) return;
    throw DatabaseError("The source file was replaced during capture. Refresh the database and try again.");
  }

  std::int64_t copyPages(SQLiteConnection& source, SnapshotStaging const& staging) try {
    return copySnapshot(
        source, staging, limits_, request_.progress, [&] { validation_.run(); }, task_);
  } catch (DatabaseError const& error) {
    if (validation_.failed()) throw;
    throw DatabaseError("Copying snapshot: " + error.detail, error.code);
  }

  /// SQLite copies on from the file that it has open when another one takes its name. It is asked, too, whether that
  /// is the file: its name may have led elsewhere for a while.
  bool isSameFile(SQLiteConnection const& source) const {
    int moved = 0;
    bool const same = snapshotSource(request_.source).sourceIdentity == source_.sourceIdentity;
    sqlite3_file_control(source.handle(), "main", SQLITE_FCNTL_HAS_MOVED, &moved);
    return same && !moved;
  }

  /// A database that has had pages never gets rid of the last one: somebody is writing the file anew. SQLite takes it
  /// for an empty database meanwhile, and would copy that.
  bool wasEmptied(std::int64_t pagesCopied) const {
    return pagesCopied == 0 || std::filesystem::file_size(source_.path) == 0;
  }

  void describe(SnapshotStaging const& staging) {
    snapshot_.databaseID = source_.databaseID;
    snapshot_.sourcePath = source_.path.string();
    snapshot_.sourceIdentity = source_.sourceIdentity;
    snapshot_.size = staging.databaseSize();
    snapshot_.sqliteVersion = sqlite3_libversion();
    snapshot_.timestamp = std::chrono::system_clock::now();
    snapshot_ = writeSnapshotRecord(store_, staging.path(), snapshot_);
  }

  SnapshotStore const& store_;
  SnapshotLimits const& limits_;
  CaptureRequest const& request_;
  std::stop_token const& task_;
  Validation validation_;
  SnapshotSource source_;
  Snapshot snapshot_;
};

}  // namespace

Snapshot captureSnapshot(SnapshotStore const& store, SnapshotLimits const& limits, CaptureRequest const& request,
                         std::stop_token const& task) {
  return Capture(store, limits, request, task).run();
}

}  // namespace tolva
