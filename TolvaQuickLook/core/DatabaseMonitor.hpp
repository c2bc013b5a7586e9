// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <array>
#include <chrono>
#include <cstdint>
#include <filesystem>
#include <optional>
#include <stop_token>

#include "core/DatabaseObservation.hpp"
#include "core/Stamp.hpp"
#include "platform/Export.hpp"
#include "platform/Turn.hpp"

namespace tolva {

/// Notices that another program changed or replaced an open database, from the stamps of its files alone.
///
/// A serial service: each operation waits for its turn. It takes no lock on the database and never opens it. Lives for
/// as long as the database stays open; a reopening makes a new one.
class TOLVA_EXPORT DatabaseMonitor {
 public:
  /// Reads nothing yet. `databaseURL` has its links resolved: SQLite keeps the companions beside the file itself.
  explicit DatabaseMonitor(std::filesystem::path const& databaseURL);

  /// Looks at the database, its "-wal" and its "-shm" once. Three calls of the system: cheap enough for a timer.
  ///
  /// The first sample is the measure of all later ones and no change itself. A file that is missing is no failure, but
  /// a database that is missing or cannot be looked at, once, requires a reopening for good, as does another file in
  /// its place, even when the old one is put back. Throws `TaskCancelled` and nothing else.
  DatabaseObservation sample(std::stop_token task);

 private:
  using Stamps = std::array<Stamp, 3>;  // in the order of `urls_`

  Stamps look() const;
  void compare(Stamps const& now) REQUIRES(turns_);

  std::array<std::filesystem::path, 3> const urls_;  // the database, its "-wal", its "-shm"

  TurnQueue turns_;
  std::optional<Stamp> original_ GUARDED_BY(turns_);   // of the database at the first sample
  std::optional<Stamps> previous_ GUARDED_BY(turns_);  // the last sample
  std::uint64_t revision_ GUARDED_BY(turns_) = 0;
  std::optional<std::chrono::system_clock::time_point> lastChange_ GUARDED_BY(turns_);
  bool replaced_ GUARDED_BY(turns_) = false;
};

}  // namespace tolva
