// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <filesystem>
#include <functional>
#include <memory>
#include <optional>
#include <stop_token>
#include <string>
#include <string_view>
#include <vector>

#include "core/DatabaseError.hpp"
#include "platform/Export.hpp"
#include "platform/JSONError.hpp"
#include "platform/TaskCancellation.hpp"
#include "platform/Turn.hpp"
#include "platform/UUID.hpp"
#include "snapshots/BaselineSelection.hpp"
#include "snapshots/PreparedSnapshotComparison.hpp"
#include "snapshots/Snapshot.hpp"
#include "snapshots/SnapshotEstimate.hpp"
#include "snapshots/SnapshotLease.hpp"
#include "snapshots/SnapshotLimits.hpp"
#include "snapshots/SnapshotProgress.hpp"

namespace tolva {

class SnapshotStore;

/// Told how far a copy is, about six times a second and at its end. It is called by the operation, in its turn, so it
/// may call no serial service at all, this one or another: `Turn` ends the program otherwise. It may take plain locks.
/// What it throws ends the capture as a failure does. May be empty.
using SnapshotProgressReport = std::function<void(SnapshotProgress const&)>;

/// Throws when the caller's own view of the source holds no longer; what it throws ends the capture and is told as it
/// stands. Called several times, the last time just before the snapshot enters the store, and bound as the report of
/// progress is: what it looks at is kept where a plain lock will do. May be empty.
using SourceValidation = std::function<void()>;

/// The private store of read-only copies of databases, and the baseline from which a person asks what changed.
///
/// A serial service: each operation waits for its turn, which a capture may have for minutes, and blocks until it is
/// done, so call it from a worker thread. A task that is cancelled waits as well; it is looked at in the turn.
/// One operation at a time has the store among all processes, too; nothing waits for another process: whoever comes
/// second fails at once with "Snapshot storage is in use. Close open snapshot tabs or wait for the other operation to
/// finish." A capture has the store for its whole length.
///
/// A copy stands in a hidden folder until it is complete and on the disk; it then enters the store by one move, and its
/// database never changes again. All operations whose task is not cancelled already make the store if it is not there.
/// They throw `DatabaseError`, `TaskCancelled`, the system's own `std::filesystem::filesystem_error` where a file
/// cannot be read or written, and `JSONError` where a record of the store is none, which does not name the file.
class TOLVA_EXPORT SnapshotService {
 public:
  /// The one on the user's own store, made at the first call. Throws where the user has no home.
  static SnapshotService& shared();

  /// On the store at `root`, whose links are resolved now. Only the user's own store is closed to writers elsewhere.
  explicit SnapshotService(std::filesystem::path const& root, SnapshotLimits limits = {});
  ~SnapshotService();
  SnapshotService(SnapshotService const&) = delete;
  SnapshotService& operator=(SnapshotService const&) = delete;

  /// Whether `path` lies in the user's own store, whose databases are never written. Any thread.
  static bool isManagedSnapshot(std::filesystem::path const& path);

  // Taking snapshots ---------------------------------------------------------------------------

  /// What a snapshot of `source` would take, and what there is. The companions of a database in WAL mode are made as by
  /// `create`.
  SnapshotEstimate estimate(std::filesystem::path const& source, std::stop_token task);

  /// Copies the database at `source` as it is at one moment, while others may read and write it. A `label` is trimmed;
  /// without one left there is none, and more than 240 bytes are refused.
  ///
  /// Pages are copied 256 at a time, the source locked for that long; the copy starts again when another process
  /// commits in between, and gives up after `timeout`. The source is not written to. So one whose journal a crash has
  /// left behind is refused, until a program that may write opens it. Where SQLite may write in the folder,
  /// reading a database in WAL mode makes its companions and leaves them there.
  Snapshot create(std::filesystem::path const& source, std::optional<std::string> const& label,
                  SnapshotProgressReport const& progress, SourceValidation const& validateSource, std::stop_token task);

  // The history --------------------------------------------------------------------------------

  /// The complete snapshots of the file at `source`, the newest first. The same file at another path, or another file
  /// at this one, has a history of its own. One record that cannot be read fails the whole list: a history that is
  /// silently short would be worse.
  std::vector<Snapshot> history(std::filesystem::path const& source, std::stop_token task);

  /// Gives a snapshot another label, by the rules of `create`; an empty one takes it away. Returns the new record.
  Snapshot rename(Snapshot const& snapshot, std::string_view label);

  /// Removes a snapshot that nobody reads and that is no baseline. One that fails may have removed it.
  void deleteSnapshot(Snapshot const& snapshot);

  // Reading ------------------------------------------------------------------------------------

  /// Keeps a snapshot from being deleted for as long as the lease is held.
  std::shared_ptr<SnapshotLease const> open(Snapshot const& snapshot);

  /// The same by the path of its "database.sqlite".
  std::shared_ptr<SnapshotLease const> open(std::filesystem::path const& file);

  // What Changed -------------------------------------------------------------------------------
  // The baseline of a database is a snapshot that a pointer names. Who changes it tells which one they saw.

  /// The baseline of the file at `source`, which may be gone or broken.
  BaselineSelection baseline(std::filesystem::path const& source, std::stop_token task);

  /// Takes a snapshot and makes it the baseline in place of `replacing`, nothing for none. The former baseline stays in
  /// the history, and so does the new snapshot when the baseline was changed by somebody else meanwhile.
  Snapshot captureBaseline(std::filesystem::path const& source, std::optional<UUID> const& replacing,
                           SnapshotProgressReport const& progress, std::stop_token task);

  /// Forgets the baseline `expected`. Its snapshot stays.
  void clearBaseline(std::filesystem::path const& source, UUID const& expected, std::stop_token task);

  /// Takes a snapshot of now, which stays in the history, and leases it and the baseline for `DatabaseDiffService`.
  PreparedSnapshotComparison prepareChanges(std::filesystem::path const& source, UUID const& expectedBaseline,
                                            SnapshotProgressReport const& progress, std::stop_token task);

 private:
  Snapshot capture(std::filesystem::path const& source, std::optional<std::string> const& label,
                   SnapshotProgressReport const& progress, SourceValidation const& validateSource,
                   std::stop_token const& task);
  void adoptBaseline(std::filesystem::path const& source, std::optional<UUID> const& replacing,
                     Snapshot const& snapshot, std::stop_token const& task);

  TurnQueue turns_;
  std::unique_ptr<SnapshotStore const> const store_;
  SnapshotLimits const limits_;
};

}  // namespace tolva
