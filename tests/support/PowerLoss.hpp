// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <filesystem>
#include <functional>
#include <map>
#include <optional>
#include <string>
#include <vector>

namespace tolva {

/// What a folder can hold when the power failed at one moment of an operation. A value.
struct PowerLoss {
  /// By their paths in the folder; nothing stands for a folder.
  using Entries = std::map<std::filesystem::path, std::optional<std::string>>;

  std::string says;        // when it failed and what had reached the disk
  bool completed = false;  // whether the operation had returned
  Entries entries;

  /// Does `operation` and returns what each moment of it can leave in `folder`, which was on the disk as it is now.
  ///
  /// The moments are those before each call that gives, moves or removes a name or flushes something, and the end.
  /// What a file held at its last `fsync` is on the disk; of what was written since, all, half or nothing. The names in
  /// a folder are those of its last `fsync`, or those that it has; each folder is one or the other as a whole, alone or
  /// with all others. Nothing beyond that is supposed of the file system, not even an order.
  ///
  /// The files are read while they are in use: locks that this very process has on them are lost.
  static std::vector<PowerLoss> during(std::filesystem::path const& folder, std::function<void()> const& operation);

  /// The same where `earlier` was done before and nothing of it has reached the disk by itself.
  static std::vector<PowerLoss> during(std::filesystem::path const& folder, std::function<void()> const& earlier,
                                       std::function<void()> const& operation);

  /// Makes `folder`, which is emptied if it is there, hold this.
  void restore(std::filesystem::path const& folder) const;
};

}  // namespace tolva
