// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <filesystem>
#include <string>
#include <string_view>

#include "core/Limit.hpp"

namespace tolva {

// The small text files of a store. Both throw `DatabaseError` for a text beyond `limit` bytes, and
// `std::filesystem::filesystem_error` otherwise. Any thread.

/// Reads a regular file, never a link, and waits for nothing.
std::string readStoreFile(std::filesystem::path const& path, Limit const& limit);

/// Replaces the file whole and on the disk, or leaves it as it was. A crash leaves a hidden file beside it, which
/// `cleanStaging` removes.
void writeStoreFile(std::filesystem::path const& path, std::string_view text, Limit const& limit);

}  // namespace tolva
