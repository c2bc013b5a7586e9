// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <filesystem>
#include <string>

#include "platform/UTF8.hpp"

namespace tolva {

/// The name of a file for people to read: the last component of its path, which may end in a slash, as valid UTF-8.
inline std::string lastPathComponent(std::filesystem::path const& path) {
  return repairUTF8((path.has_filename() ? path : path.parent_path()).filename().string());
}

}  // namespace tolva
