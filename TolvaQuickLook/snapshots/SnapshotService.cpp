// SPDX-License-Identifier: Apache-2.0
#include "snapshots/SnapshotService.hpp"

#include "core/ManagedSnapshots.hpp"
#include "core/SQLiteConnection.hpp"
#include "snapshots/SnapshotCapture.hpp"
#include "snapshots/SnapshotCatalog.hpp"
#include "snapshots/SnapshotSize.hpp"
#include "snapshots/SnapshotStore.hpp"

namespace tolva {

SnapshotService& SnapshotService::shared() {
  static SnapshotService service(defaultSnapshotRoot());
  return service;
}

SnapshotService::SnapshotService(std::filesystem::path const& root, SnapshotLimits limits)
    : store_(std::make_unique<SnapshotStore const>(root)), limits_(limits) {}

SnapshotService::~SnapshotService() = default;

bool SnapshotService::isManagedSnapshot(std::filesystem::path const& path) { return tolva::isManagedSnapshot(path); }

// Taking snapshots --------------------------------------------------------------------------------

SnapshotEstimate SnapshotService::estimate(std::filesystem::path const& source, std::stop_token task) {
  Turn const turn(turns_);
  checkCancellation(task);
  SnapshotCatalog const catalog(*store_);
  auto const connection = SQLiteConnection::open(source, {.readOnly = true});
  return estimateSnapshot(*connection, store_->root(), limits_);
}

Snapshot SnapshotService::create(std::filesystem::path const& source, std::optional<std::string> const& label,
                                 SnapshotProgressReport const& progress, SourceValidation const& validateSource,
                                 std::stop_token task) {
  Turn const turn(turns_);
  return capture(source, label, progress, validateSource, task);
}

Snapshot SnapshotService::capture(std::filesystem::path const& source, std::optional<std::string> const& label,
                                  SnapshotProgressReport const& progress, SourceValidation const& validateSource,
                                  std::stop_token const& task) {
  checkCancellation(task);
  SnapshotCatalog const catalog(*store_);
  store_->flush();
  CaptureRequest const request{
      .source = source, .label = label, .progress = progress, .validateSource = validateSource};
  return captureSnapshot(*store_, limits_, request, task);
}

// The history -------------------------------------------------------------------------------------

std::vector<Snapshot> SnapshotService::history(std::filesystem::path const& source, std::stop_token task) {
  Turn const turn(turns_);
  checkCancellation(task);
  return SnapshotCatalog(*store_).history(source);
}

Snapshot SnapshotService::rename(Snapshot const& snapshot, std::string_view label) {
  Turn const turn(turns_);
  return SnapshotCatalog(*store_).rename(snapshot, label);
}

void SnapshotService::deleteSnapshot(Snapshot const& snapshot) {
  Turn const turn(turns_);
  SnapshotCatalog(*store_).remove(snapshot);
}

// Reading -----------------------------------------------------------------------------------------

std::shared_ptr<SnapshotLease const> SnapshotService::open(Snapshot const& snapshot) {
  Turn const turn(turns_);
  return SnapshotCatalog(*store_).lease(snapshot);
}

std::shared_ptr<SnapshotLease const> SnapshotService::open(std::filesystem::path const& file) {
  Turn const turn(turns_);
  return SnapshotCatalog(*store_).lease(file);
}

}  // namespace tolva
