// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <stdexcept>

#include "platform/Export.hpp"

namespace tolva {

/// What reading, writing or decoding JSON fails with. A value; `what()` is a sentence for a person.
struct TOLVA_EXPORT JSONError : std::runtime_error {
  using std::runtime_error::runtime_error;
};

}  // namespace tolva
