// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <filesystem>
#include <optional>
#include <utility>

#include "platform/UUID.hpp"
#include "snapshots/SnapshotStore.hpp"

namespace tolva {

/// The file of one source that names its baseline, "baseline.json"; without one there is no baseline. Used while the
/// catalog lock is held, and read afresh each time. Changes are on the disk when they return.
///
/// Throws `DatabaseError` where the file is too large, unsafe or of another version, `JSONError` where it is none,
/// and `std::filesystem::filesystem_error` where it is no regular file or cannot be read or written.
class BaselinePointer {
 public:
  /// In the folder of the source, which need not exist. `store` outlives the pointer.
  BaselinePointer(SnapshotStore const& store, std::filesystem::path folder)
      : store_(store), folder_(std::move(folder)) {}

  /// The snapshot that is named, which may be gone.
  std::optional<UUID> id() const;

  /// Throws `DatabaseError` unless the baseline is the `expected` one; none is nothing.
  void require(std::optional<UUID> const& expected) const;

  void set(UUID const& id) const;
  void clear() const;

 private:
  std::filesystem::path file() const { return store_.checked(folder_ / SnapshotStore::baselineName); }

  SnapshotStore const& store_;
  std::filesystem::path const folder_;
};

}  // namespace tolva
