// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <filesystem>

#include "support/Command.hpp"
#include "support/Environment.hpp"
#include "support/TemporaryFolder.hpp"

namespace tolva {

/// A locale that writes 1,5 for 1.5, made for a scope where `newlocale` and `setlocale` find it by its name.
class GermanLocale {
 public:
  static constexpr char const* name = "de_DE.UTF-8";

  /// False without the program that makes locales or what it makes them from, Debian's package `locales`.
  bool isMade() const { return isMade_; }

 private:
  static bool make(std::filesystem::path const& folder) {
    std::filesystem::path const program = "/usr/bin/localedef";
    return std::filesystem::exists(program) &&
           runCommand({program, "--no-archive", "-i", "de_DE", "-f", "UTF-8", folder / name}).status == 0;
  }

  TemporaryFolder const folder_;
  bool const isMade_ = make(folder_.path());
  Environment const path_{"LOCPATH", folder_.path()};
};

}  // namespace tolva
