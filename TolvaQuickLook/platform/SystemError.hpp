// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cerrno>
#include <filesystem>
#include <string>
#include <system_error>

namespace tolva {

/// Throws the reason in `errno` for the failure of `what`, which names the call or the deed.
[[noreturn]] inline void throwSystemError(std::string const& what) {
  throw std::system_error(errno, std::system_category(), what);
}

/// The same for a file, which the error names. A `std::system_error` too: one handler serves both.
[[noreturn]] inline void throwFileError(std::string const& what, std::filesystem::path const& path) {
  throw std::filesystem::filesystem_error(what, path, std::error_code(errno, std::system_category()));
}

}  // namespace tolva
