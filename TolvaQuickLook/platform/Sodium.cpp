// SPDX-License-Identifier: Apache-2.0
#include "platform/Sodium.hpp"

#include <sodium.h>

#include <stdexcept>

namespace tolva {

void prepareSodium() {
  static bool const ready = sodium_init() >= 0;
  if (!ready) throw std::runtime_error("The cryptography library could not be started.");
}

}  // namespace tolva
