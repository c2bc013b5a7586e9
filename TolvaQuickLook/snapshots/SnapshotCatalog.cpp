// SPDX-License-Identifier: Apache-2.0
#include "snapshots/SnapshotCatalog.hpp"

#include <algorithm>
#include <exception>
#include <utility>

#include "core/DatabaseError.hpp"
#include "platform/CanonicalPath.hpp"
#include "platform/FilePath.hpp"
#include "snapshots/BaselinePointer.hpp"
#include "snapshots/SnapshotRecord.hpp"
#include "snapshots/SnapshotSource.hpp"
#include "snapshots/SnapshotStaging.hpp"

namespace tolva {
namespace {

std::filesystem::path databaseIn(SnapshotStore const& store, std::filesystem::path const& folder) {
  return store.checked(folder / SnapshotStore::databaseName);
}

/// Whether a regular file is there, no link to one. Throws where that cannot be told.
bool isFile(std::filesystem::path const& path) {
  return std::filesystem::symlink_status(path).type() == std::filesystem::file_type::regular;
}

bool isThere(std::filesystem::path const& path) {
  return std::filesystem::symlink_status(path).type() != std::filesystem::file_type::not_found;
}

/// Removes what a killed `rename` has left beside a record. Nobody is harmed by what stays.
void dropLeftovers(SnapshotStore const& store, std::filesystem::path const& folder) noexcept try {
  cleanStaging(store, folder);
} catch (std::exception const&) {
}

std::shared_ptr<SnapshotLease const> leaseIn(SnapshotStore const& store, std::filesystem::path const& folder) {
  Snapshot const record = readSnapshotRecord(store, folder);
  std::filesystem::path const database = databaseIn(store, folder);
  if (!isFile(database)) throw DatabaseError("The snapshot database is missing.");
  StoreLock lock(store.checked(folder / SnapshotStore::leaseName), LockKind::shared);
  return std::make_shared<SnapshotLease const>(record, database, std::move(lock));
}

}  // namespace

// The history -------------------------------------------------------------------------------------

std::vector<Snapshot> SnapshotCatalog::history(std::filesystem::path const& source) const {
  std::filesystem::path const folder = store_.directory(snapshotSource(source).databaseID);
  std::vector<Snapshot> snapshots;
  if (!isThere(folder)) return snapshots;
  cleanStaging(store_, folder);
  for (std::filesystem::directory_entry const& entry : std::filesystem::directory_iterator(folder)) {
    if (UUID::parse(entry.path().filename().string()))
      snapshots.push_back(readSnapshotRecord(store_, store_.checked(entry.path())));
  }
  std::stable_sort(snapshots.begin(), snapshots.end(),
                   [](Snapshot const& left, Snapshot const& right) { return left.timestamp > right.timestamp; });
  return snapshots;
}

Snapshot SnapshotCatalog::rename(Snapshot const& snapshot, std::string_view label) const {
  std::filesystem::path const folder = store_.directory(snapshot.databaseID, snapshot.id);
  Snapshot renamed = readSnapshotRecord(store_, folder);
  renamed.label = trimmedLabel(label);
  dropLeftovers(store_, folder);
  return writeSnapshotRecord(store_, folder, renamed);
}

void SnapshotCatalog::remove(Snapshot const& snapshot) const {
  std::filesystem::path const folder = store_.directory(snapshot.databaseID, snapshot.id);
  Snapshot const record = readSnapshotRecord(store_, folder);
  if (BaselinePointer(store_, folder.parent_path()).id() == record.id)
    throw DatabaseError(
        "This is the What Changed baseline. Clear or replace the baseline in What Changed before deleting it.");
  StoreLock const unread(store_.checked(folder / SnapshotStore::leaseName), LockKind::exclusive);
  deleteSnapshotFolder(store_, folder);
}

// Reading -----------------------------------------------------------------------------------------

std::shared_ptr<SnapshotLease const> SnapshotCatalog::lease(Snapshot const& snapshot) const {
  return leaseIn(store_, store_.directory(snapshot.databaseID, snapshot.id));
}

std::shared_ptr<SnapshotLease const> SnapshotCatalog::lease(std::filesystem::path const& file) const {
  std::filesystem::path const database = store_.checked(holdsNUL(file) ? file : canonicalPath(file));
  if (database.filename() != SnapshotStore::databaseName) throw DatabaseError("Not a completed snapshot database.");
  Snapshot const record = readSnapshotRecord(store_, database.parent_path());
  // A copy of a whole folder elsewhere in the store has a record that fits, too.
  if (store_.directory(record.databaseID, record.id) != database.parent_path())
    throw DatabaseError("Not a completed snapshot database.");
  return lease(record);
}

std::optional<Snapshot> SnapshotCatalog::find(std::string_view databaseID, UUID const& id) const {
  std::filesystem::path const folder = store_.directory(databaseID, id);
  if (!isThere(store_.checked(folder / SnapshotStore::recordName)) || !isFile(databaseIn(store_, folder)))
    return std::nullopt;
  return readSnapshotRecord(store_, folder);
}

}  // namespace tolva
