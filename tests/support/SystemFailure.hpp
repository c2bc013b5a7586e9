// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <string.h>

#include <filesystem>
#include <string>
#include <system_error>

namespace tolva {

/// The system error that `call` ends with, as "ENOENT" and, of a file, its name: "ENOENT absent.txt". The system's own
/// words for it depend on the locale.
template <class Call>
std::string systemFailureOf(Call&& call) {
  try {
    call();
  } catch (std::filesystem::filesystem_error const& error) {
    return std::string(strerrorname_np(error.code().value())) + " " + error.path1().filename().string();
  } catch (std::system_error const& error) {
    return strerrorname_np(error.code().value());
  }
  return "(nothing failed)";
}

}  // namespace tolva
