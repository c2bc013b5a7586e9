// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdint>
#include <filesystem>
#include <memory>
#include <stop_token>

#include "core/CancellationHandle.hpp"
#include "core/SQLiteConnection.hpp"
#include "platform/Uptime.hpp"
#include "snapshots/SnapshotLease.hpp"

namespace tolva {

/// A throw-away database in a private folder, with two snapshots attached to its connection for reading only: the one
/// before as "older", the one after as "newer". It holds their leases, and its folder goes with it. That of a process
/// that is killed stays, with up to 64 MiB of keys in it, as long as the system keeps what is temporary: nothing here
/// looks for it.
///
/// In the turn of the comparing service.
class ComparisonStore {
 public:
  /// Throws `DatabaseError`: code 14 where the temporary folder is missing, full or not the user's own, and as
  /// cancelled at the deadline. Nothing is left of it then. The leases are not null. Less than one page is one.
  ComparisonStore(std::shared_ptr<SnapshotLease const> before, std::shared_ptr<SnapshotLease const> after,
                  std::int64_t pages, std::shared_ptr<CancellationHandle> const& cancellation, Uptime deadline,
                  std::stop_token task);
  ComparisonStore(ComparisonStore const&) = delete;
  ComparisonStore& operator=(ComparisonStore const&) = delete;

  SQLiteConnection& connection() const { return *connection_; }

 private:
  /// Closed to everybody else from the moment when it is made.
  struct Folder {
    Folder();
    ~Folder();
    Folder(Folder const&) = delete;
    Folder& operator=(Folder const&) = delete;

    std::filesystem::path const path;
  };

  void configure(std::int64_t pages) const;
  void attach(SnapshotLease const& lease, char const* alias) const;

  Folder const folder_;  // outlives the connection
  std::shared_ptr<SnapshotLease const> const before_;
  std::shared_ptr<SnapshotLease const> const after_;
  std::shared_ptr<SQLiteConnection> connection_;
};

}  // namespace tolva
