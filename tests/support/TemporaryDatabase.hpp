// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <filesystem>
#include <memory>
#include <string>

#include "support/RowsAsText.hpp"
#include "support/TemporaryFolder.hpp"

namespace tolva {

/// A database file, made with nothing but SQLite's own interface.
class TemporaryDatabase {
 public:
  TemporaryDatabase(TemporaryFolder const& folder, std::string const& name, std::string const& sql);

  /// In a folder of its own.
  explicit TemporaryDatabase(std::string const& sql);

  std::filesystem::path const& path() const { return path_; }

  // Each on a connection of its own, closed again on return -------------------------------------------

  void run(std::string const& sql) const { rowsAsText(path_, sql); }
  std::string rows(std::string const& sql) const { return rowsAsText(path_, sql); }

 private:
  std::unique_ptr<TemporaryFolder> const own_;
  std::filesystem::path const path_;
};

}  // namespace tolva
