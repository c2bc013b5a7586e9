// SPDX-License-Identifier: Apache-2.0
#include "platform/Descriptor.hpp"

#include <unistd.h>

#include <cerrno>

namespace tolva {

Descriptor& Descriptor::operator=(Descriptor&& other) noexcept {
  if (this != &other) {
    reset();
    descriptor_ = other.release();
  }
  return *this;
}

void Descriptor::reset() noexcept {
  if (descriptor_ < 0) return;
  int const reason = errno;
  ::close(release());  // never repeated after EINTR: on Linux the descriptor is gone already
  errno = reason;
}

}  // namespace tolva
