// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <stop_token>

namespace tolva {

/// The task of a test that cancels nothing.
inline std::stop_token const noTask;

}  // namespace tolva
