// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <fcntl.h>
#include <sys/resource.h>
#include <unistd.h>

#include "platform/SystemError.hpp"

namespace tolva {

/// Lets this process open only `free` descriptors more, for a scope. None is open above the lowest free one but a few.
class DescriptorLimit {
 public:
  explicit DescriptorLimit(int free) {
    if (::getrlimit(RLIMIT_NOFILE, &before_) != 0) throwSystemError("getrlimit");
    rlimit limit = before_;
    limit.rlim_cur = numberBehind(free);
    if (::setrlimit(RLIMIT_NOFILE, &limit) != 0) throwSystemError("setrlimit");
  }
  ~DescriptorLimit() { ::setrlimit(RLIMIT_NOFILE, &before_); }
  DescriptorLimit(DescriptorLimit const&) = delete;
  DescriptorLimit& operator=(DescriptorLimit const&) = delete;

 private:
  /// The least number that has `free` ones below it that are not taken.
  static rlim_t numberBehind(int free) {
    int number = 0;
    for (int left = free; left > 0 || ::fcntl(number, F_GETFD) >= 0; ++number) {
      if (::fcntl(number, F_GETFD) < 0) --left;
    }
    return static_cast<rlim_t>(number);
  }

  rlimit before_{};
};

}  // namespace tolva
