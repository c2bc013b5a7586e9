// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <filesystem>

namespace tolva {

/// `path` with the working directory in front, links and dots kept. As it is where there is no working directory any
/// more or no name: the file system has an answer to that.
std::filesystem::path absolutePath(std::filesystem::path const& path);

/// Whether `path` has a NUL in it. No file is called so, but a call of the system ends the name there and finds
/// another.
bool holdsNUL(std::filesystem::path const& path) noexcept;

}  // namespace tolva
