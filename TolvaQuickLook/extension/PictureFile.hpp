// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <filesystem>

#include "platform/Bytes.hpp"

namespace tolva {

/// Throws unless a picture may be written under this name: nothing is there, or an empty file as file managers prepare
/// it, or an earlier PNG, or a link, which is replaced and not followed. Whatever else is there stays: a wrong argument
/// must not cost anyone a file.
void requireReplaceable(std::filesystem::path const& picture);

/// Writes a PNG under this name, whole or not at all. Throws as `requireReplaceable` and `AtomicFile` do.
void writePicture(std::filesystem::path const& picture, Bytes const& png);

}  // namespace tolva
