// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <exception>
#include <stop_token>

#include "platform/Export.hpp"

namespace tolva {

/// Thrown where a cancelled task is noticed between two steps of an operation. A value.
struct TOLVA_EXPORT TaskCancelled : std::exception {
  char const* what() const noexcept override { return "Cancelled"; }
};

/// Throws `TaskCancelled` once `task` was asked to stop. The request is sticky: every later check throws as well.
inline void checkCancellation(std::stop_token const& task) {
  if (task.stop_requested()) throw TaskCancelled();
}

}  // namespace tolva
