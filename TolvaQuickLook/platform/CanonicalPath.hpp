// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <filesystem>

namespace tolva {

/// The absolute path without links, "." or "..", for a comparison with another. Links are followed as far as they lead,
/// that of a file that is not there yet too. Never fails: a path that cannot be resolved is only tidied. Any thread.
std::filesystem::path canonicalPath(std::filesystem::path const& path);

}  // namespace tolva
