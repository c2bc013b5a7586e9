// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <filesystem>
#include <set>
#include <string>
#include <string_view>
#include <vector>

namespace tolva {

/// A new folder for one test, removed with everything in it when it goes.
///
/// Fails the test if a hidden file is left at any depth then: staged work begins its names with a dot, and none of it
/// may outlive the operation that made it.
class TemporaryFolder {
 public:
  TemporaryFolder();
  ~TemporaryFolder();
  TemporaryFolder(TemporaryFolder const&) = delete;
  TemporaryFolder& operator=(TemporaryFolder const&) = delete;

  std::filesystem::path const& path() const { return path_; }  // absolute, without links
  std::filesystem::path operator/(std::filesystem::path const& name) const { return path_ / name; }

  /// Lets an entry of this very name stay without complaint, a lock file for example.
  void allowLeftover(std::string name) { allowed_.insert(std::move(name)); }

  /// Lets every user in, for what is done `asUnprivileged`.
  void openToEverybody();

  // Files in it -------------------------------------------------------------------------------------

  std::filesystem::path write(std::string const& name, std::string_view content) const;  // makes or overwrites it
  std::string read(std::string const& name) const;  // "(no NAME)" when it is not there
  std::vector<std::string> names() const;           // of the direct entries, sorted

 private:
  std::vector<std::string> leftovers() const;

  std::filesystem::path path_;
  std::set<std::string> allowed_;
};

}  // namespace tolva
