// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <chrono>

#include "platform/Uptime.hpp"

namespace tolva {

/// The result of `call`, which asks one helper program, and again when it took as long as the host waits for one: a busy
/// machine may need that for the start of a program alone, which tells nothing about what the program answers.
template <class Call>
auto patiently(Call const& call) {
  for (int again = 0;; ++again) {
    auto const begun = uptime();
    auto result = call();
    if (again == 5 || uptime() - begun < std::chrono::seconds(3)) return result;
  }
}

}  // namespace tolva
