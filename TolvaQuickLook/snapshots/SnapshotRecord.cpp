// SPDX-License-Identifier: Apache-2.0
#include "snapshots/SnapshotRecord.hpp"

#include <boost/describe.hpp>

#include "core/Limit.hpp"
#include "platform/JSONCodec.hpp"
#include "platform/JSONReader.hpp"
#include "platform/Trim.hpp"
#include "platform/UTF8.hpp"
#include "snapshots/StoreFile.hpp"

namespace tolva {

BOOST_DESCRIBE_STRUCT(Snapshot, (),
                      (version, id, databaseID, sourcePath, sourceIdentity, started, timestamp, label, size,
                       sqliteVersion, journalMode, pageSize))

namespace {

constexpr Limit recordBytes{65'535, "Snapshot metadata is too large."};
constexpr Limit labelBytes{240, "Use a snapshot name of at most 240 UTF-8 bytes."};

bool belongsTo(std::filesystem::path const& folder, Snapshot const& snapshot) {
  return snapshot.version == 1 && folder.filename() == snapshot.id.text() &&
         folder.parent_path().filename() == snapshot.databaseID;
}

Snapshot withValidTexts(Snapshot snapshot) {
  for (std::string* text : {&snapshot.databaseID, &snapshot.sourcePath, &snapshot.sourceIdentity,
                            &snapshot.sqliteVersion, &snapshot.journalMode})
    *text = repairUTF8(*text);
  if (snapshot.label) snapshot.label = repairUTF8(*snapshot.label);
  return snapshot;
}

}  // namespace

Snapshot readSnapshotRecord(SnapshotStore const& store, std::filesystem::path const& folder) {
  std::string const text = readStoreFile(store.checked(folder / SnapshotStore::recordName), recordBytes);
  Snapshot snapshot = decodeJSON<Snapshot>(readJSON(text));
  if (!belongsTo(folder, snapshot)) throw DatabaseError("Invalid snapshot metadata.");
  return snapshot;
}

Snapshot writeSnapshotRecord(SnapshotStore const& store, std::filesystem::path const& folder,
                             Snapshot const& snapshot) {
  std::string const text = encodeJSON(withValidTexts(snapshot));
  Snapshot written = decodeJSON<Snapshot>(readJSON(text));
  writeStoreFile(store.checked(folder / SnapshotStore::recordName), text, recordBytes);
  return written;
}

std::optional<std::string> trimmedLabel(std::string_view label) {
  std::string const valid = repairUTF8(label);
  std::string_view const rest = trimmed(valid);
  labelBytes.check(static_cast<std::int64_t>(rest.size()));
  if (rest.empty()) return std::nullopt;
  return std::string(rest);
}

}  // namespace tolva
