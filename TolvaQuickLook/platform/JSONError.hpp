// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <stdexcept>

namespace tolva {

/// What reading, writing or decoding JSON fails with. A value; `what()` is a sentence for a person.
struct JSONError : std::runtime_error {
  using std::runtime_error::runtime_error;
};

}  // namespace tolva
