// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <filesystem>

namespace tolva {

/// Another working folder for a scope, for tests of relative paths.
class WorkingFolder {
 public:
  explicit WorkingFolder(std::filesystem::path const& folder) : before_(std::filesystem::current_path()) {
    std::filesystem::current_path(folder);
  }
  ~WorkingFolder() {
    std::error_code ignored;
    std::filesystem::current_path(before_, ignored);
  }
  WorkingFolder(WorkingFolder const&) = delete;
  WorkingFolder& operator=(WorkingFolder const&) = delete;

 private:
  std::filesystem::path const before_;
};

}  // namespace tolva
