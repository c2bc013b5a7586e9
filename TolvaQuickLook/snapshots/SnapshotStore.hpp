// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <filesystem>
#include <string_view>

#include "platform/UUID.hpp"
#include "snapshots/StoreLock.hpp"

namespace tolva {

/// The places of a snapshot store:
///
///     .catalog-lock                        held by whoever works on the store
///     <databaseID>/                        everything of one source
///     <databaseID>/baseline.json           which snapshot is the baseline
///     <databaseID>/.partial-<UUID>         a capture, a deletion or a new baseline.json under way
///     <databaseID>/<id>/database.sqlite    the copy
///     <databaseID>/<id>/metadata.json      its record
///     <databaseID>/<id>/.lease             held by whoever reads it
///     <databaseID>/<id>/.partial-<UUID>    a new metadata.json under way
///
/// Every path below the root is checked before it is used. A value: any thread.
class SnapshotStore {
 public:
  static constexpr char const* catalogLockName = ".catalog-lock";
  static constexpr char const* baselineName = "baseline.json";
  static constexpr char const* databaseName = "database.sqlite";
  static constexpr char const* recordName = "metadata.json";
  static constexpr char const* leaseName = ".lease";
  static constexpr char const* hiddenPrefix = ".partial-";  // and a UUID: under way, or left by a crash

  /// Resolves the links of `root` now, whether it exists or not.
  explicit SnapshotStore(std::filesystem::path const& root);

  std::filesystem::path const& root() const { return root_; }  // absolute, without a slash at its end

  /// `path` without "." and "..". Throws `DatabaseError` unless it lies below the root and passes no link. What does
  /// not exist is no link.
  std::filesystem::path checked(std::filesystem::path const& path) const;

  /// The folder of one source. Throws `DatabaseError` unless `databaseID` is 64 lower-case hexadecimal digits.
  std::filesystem::path directory(std::string_view databaseID) const;

  /// The folder of one snapshot.
  std::filesystem::path directory(std::string_view databaseID, UUID const& id) const;

  /// Makes the root, if need be, and takes the lock under which every operation on the store runs.
  StoreLock lockCatalog() const;

  /// Puts the folders of the sources and the root on the disk, and whatever lies above them that this user may have
  /// made. Whoever publishes something in one that was there already does so: its maker may have been killed before it
  /// came to that.
  void flush() const;

 private:
  std::filesystem::path root_;
};

}  // namespace tolva
