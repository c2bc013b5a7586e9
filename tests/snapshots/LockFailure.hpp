// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cerrno>
#include <string>
#include <system_error>

namespace tolva {

/// What is told where a lock file cannot be opened, in the words of the locale.
inline std::string lockFailure(int reason) {
  return "Cannot lock snapshot storage: " + std::generic_category().message(reason);
}

}  // namespace tolva
