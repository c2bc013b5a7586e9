// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <filesystem>
#include <optional>

#include "core/DatabaseError.hpp"
#include "snapshots/BaselinePointer.hpp"
#include "snapshots/StoreScene.hpp"

namespace tolva {

inline DatabaseError const changed("The baseline changed in another window. Refresh What Changed before continuing.");

/// A store with a baseline in it, or not.
struct BaselineScene : StoreScene {
  UUID seen;  // the baseline, by who compares

  BaselineSelection baseline() { return service.baseline(database.path(), noTask); }
  Snapshot capture(std::optional<UUID> const& replacing = {}, SnapshotProgressReport const& progress = {}) {
    return service.captureBaseline(database.path(), replacing, progress, noTask);
  }
  PreparedSnapshotComparison prepare(UUID const& expected, SnapshotProgressReport const& progress = {}) {
    return service.prepareChanges(database.path(), expected, progress, noTask);
  }
  void clear(UUID const& expected) { service.clearBaseline(database.path(), expected, noTask); }

  BaselinePointer pointer() const { return BaselinePointer(store, databaseFolder()); }
};

/// Puts another file in the place of the database, as a program does that writes a copy and renames it.
inline void replaceSource(StoreScene const& scene) {
  auto const copy = scene.folder / "copy.sqlite";
  std::filesystem::copy_file(scene.database.path(), copy);
  std::filesystem::rename(copy, scene.database.path());
}

}  // namespace tolva
