// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <string_view>

namespace tolva {

/// Whether the brackets of a text are closed again and at most 64 of them are open at any place, those in strings left
/// out: asked before any parser sees the text. Says nothing else about it; the empty text passes. Any thread.
bool jsonDepthIsSafe(std::string_view text);

}  // namespace tolva
