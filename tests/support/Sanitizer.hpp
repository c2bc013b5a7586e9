// SPDX-License-Identifier: Apache-2.0
#pragma once

namespace tolva {

/// Whether this build is instrumented, which takes several times the time and the memory.
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
inline constexpr bool sanitized = true;
#elif defined(__has_feature)
inline constexpr bool sanitized = __has_feature(address_sanitizer) || __has_feature(thread_sanitizer);
#else
inline constexpr bool sanitized = false;
#endif

}  // namespace tolva
