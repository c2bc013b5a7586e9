// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <sys/stat.h>
#include <sys/sysmacros.h>

#include <exception>
#include <filesystem>
#include <functional>
#include <string>

#include "support/SystemFailure.hpp"

namespace tolva {

/// What an operation ends with, whatever kind of error it is.
inline std::string endOf(std::function<void()> const& operation) {
  try {
    operation();
  } catch (std::filesystem::filesystem_error const&) {
    return systemFailureOf([] { throw; });
  } catch (std::exception const& error) {
    return error.what();
  }
  return "(nothing failed)";
}

/// Makes something at `path` that is neither a file nor a folder; false where the system does not let it.
inline bool plantPipe(std::filesystem::path const& path) { return ::mkfifo(path.c_str(), 0600) == 0; }
inline bool plantDevice(std::filesystem::path const& path) {
  return ::mknod(path.c_str(), S_IFCHR | 0600, makedev(1, 5)) == 0;
}

}  // namespace tolva
