// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <filesystem>
#include <optional>
#include <string>

#include "platform/Descriptor.hpp"
#include "platform/FileNode.hpp"
#include "platform/UUID.hpp"
#include "snapshots/SnapshotStore.hpp"

namespace tolva {

// Staging folders lie beside the snapshots of a database, under ".partial-" and a UUID, which no listing shows. Used
// under the catalog lock. What fails throws `DatabaseError` or the system's own `std::filesystem::filesystem_error`.

/// Deletes what captures, deletions and `writeStoreFile` have left in `folder` that were ended by a crash: under the
/// catalog lock nobody else can be at work there.
void cleanStaging(SnapshotStore const& store, std::filesystem::path const& folder);

/// Deletes the snapshot in `folder`, which nobody reads, under the name of a staging folder: a crash leaves what the
/// next capture or listing clears away, and never a torn snapshot, which would block the whole history. Where it fails
/// while the snapshot is whole, it has its name again, but nothing beside its database and its record.
void deleteSnapshotFolder(SnapshotStore const& store, std::filesystem::path const& folder);

/// The hidden folder in which one snapshot is made, for a scope. Deleted when it goes, unless it was published.
///
/// Used by one thread at a time.
class SnapshotStaging {
 public:
  SnapshotStaging(SnapshotStore const& store, std::filesystem::path const& databaseFolder);
  ~SnapshotStaging();
  SnapshotStaging(SnapshotStaging const&) = delete;
  SnapshotStaging& operator=(SnapshotStaging const&) = delete;

  std::filesystem::path const& path() const { return path_; }
  std::filesystem::path const& database() const { return database_; }
  std::optional<FileNode> databaseNode() const;  // nothing while there is none

  // When the database is complete and closed ---------------------------------------------------------

  /// Its size in bytes; 0 where the file system does not tell.
  std::int64_t databaseSize() const;

  /// Takes the right to write to the database from everybody.
  void protectDatabase();

  /// Puts the database and the folder on the disk.
  void flush();

  /// Gives the flushed folder the name `id`, which nothing has yet, and puts that on the disk, too. When only the
  /// latter fails the name is taken back, so that no snapshot is listed that was told as failed; where that fails as
  /// well it stays, whole.
  void publish(UUID const& id);

 private:
  void move(std::string const& from, std::string const& to);
  void takeBack(std::string const& published) noexcept;

  std::string const name_;
  std::filesystem::path const path_;
  std::filesystem::path const database_;
  Descriptor parent_;
  Descriptor folder_;
  bool deletable_ = false;  // whether the disk has the folder under its hidden name for sure, if it has it
};

}  // namespace tolva
