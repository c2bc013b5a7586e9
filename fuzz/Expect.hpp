// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdio>
#include <cstdlib>

namespace tolva {

/// Ends the run with a sentence when what must always hold does not.
inline void expect(bool holds, char const* sentence) {
  if (holds) return;
  std::fprintf(stderr, "Broken: %s\n", sentence);
  std::abort();
}

}  // namespace tolva
