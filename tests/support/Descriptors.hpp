// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <filesystem>
#include <iterator>

namespace tolva {

/// How many descriptors this process has open.
inline long openDescriptors() {
  // Less the one that the count itself takes.
  return std::distance(std::filesystem::directory_iterator("/proc/self/fd"), std::filesystem::directory_iterator()) - 1;
}

}  // namespace tolva
