// SPDX-License-Identifier: Apache-2.0
#pragma once

namespace tolva {

/// Prepares libsodium. Called before any of its functions; all calls but the first cost a test. Any thread.
/// Throws `std::runtime_error` if the system gives no random numbers.
void prepareSodium();

}  // namespace tolva
