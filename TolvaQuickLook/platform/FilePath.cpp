// SPDX-License-Identifier: Apache-2.0
#include "platform/FilePath.hpp"

#include <string>
#include <system_error>

namespace tolva {

std::filesystem::path absolutePath(std::filesystem::path const& path) {
  std::error_code failed;
  std::filesystem::path absolute = std::filesystem::absolute(path, failed);
  return failed ? path : absolute;
}

bool holdsNUL(std::filesystem::path const& path) noexcept { return path.native().find('\0') != std::string::npos; }

}  // namespace tolva
