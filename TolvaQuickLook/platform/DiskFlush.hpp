// SPDX-License-Identifier: Apache-2.0
#pragma once

namespace tolva {

// Whether what was done to an open file or folder is on the disk now; `errno` tells why it is not. Any thread.

bool flushFileToDisk(int file) noexcept;

/// The names in a folder. A file system that has no way to flush a folder (EINVAL) is no failure.
bool flushFolderToDisk(int folder) noexcept;

}  // namespace tolva
