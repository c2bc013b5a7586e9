// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <string>

#include "platform/JSONError.hpp"

namespace tolva {

/// The sentence of the `JSONError` that `call` ends with; one that names the lack of it when `call` returns.
template <class Call>
std::string jsonFailureOf(Call&& call) {
  try {
    call();
  } catch (JSONError const& error) {
    return error.what();
  }
  return "(nothing failed)";
}

}  // namespace tolva
